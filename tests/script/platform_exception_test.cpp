#include "ScriptContext.h"

#include <JSWebAPIErrorFactory.h>
#include <PlatformException.h>

#include <gtest/gtest.h>

#include <string>

using namespace DeviceAPI::Common;

namespace {

using PlatformExceptionTest = KvTest::ScriptTest;

TEST_F(PlatformExceptionTest, CarriesNameAndMessage) {
    BasePlatformException error("TokenNotGeneratedError", "no token");
    EXPECT_EQ(error.getName(), "TokenNotGeneratedError");
    EXPECT_EQ(error.getMessage(), "no token");
    EXPECT_STREQ(error.what(), "TokenNotGeneratedError: no token");
    const char* none = nullptr;
    BasePlatformException empty(none, none);
    EXPECT_EQ(empty.getName(), "");
    EXPECT_EQ(empty.getMessage(), "");
}

TEST_F(PlatformExceptionTest, EachSubclassHasItsErrorName) {
    EXPECT_EQ(TypeMismatchException("m").getName(), "TypeMismatchError");
    EXPECT_EQ(InvalidValuesException("m").getName(), "InvalidValuesError");
    EXPECT_EQ(IOException("m").getName(), "IOError");
    EXPECT_EQ(NotFoundException("m").getName(), "NotFoundError");
    EXPECT_EQ(SecurityException("m").getName(), "SecurityError");
    EXPECT_EQ(UnknownException("m").getName(), "UnknownError");
    EXPECT_EQ(ServiceNotAvailableException("m").getName(), "ServiceNotAvailableError");
    EXPECT_EQ(NotSupportedException("m").getName(), "NotSupportedError");
    EXPECT_EQ(InvalidStateException("m").getName(), "InvalidStateError");
    EXPECT_EQ(TypeMismatchException("the message").getMessage(), "the message");
}

TEST_F(PlatformExceptionTest, SubclassesAreCaughtAsTheBase) {
    try {
        throw SecurityException("denied");
    } catch (const BasePlatformException& error) {
        EXPECT_EQ(error.getName(), JSWebAPIErrorFactory::SECURITY_ERROR);
        EXPECT_EQ(error.getMessage(), "denied");
    }
}

TEST_F(PlatformExceptionTest, ReadsAThrownScriptError) {
    BasePlatformException error(m_context, evalThrowing("throw new RangeError('too far')"));
    EXPECT_EQ(error.getName(), "RangeError");
    EXPECT_EQ(error.getMessage(), "too far");
}

TEST_F(PlatformExceptionTest, ReadsAThrownPlainObject) {
    BasePlatformException error(m_context,
                                evalThrowing("throw { name: 'CustomError', message: 42 }"));
    EXPECT_EQ(error.getName(), "CustomError");
    EXPECT_EQ(error.getMessage(), "42");
    BasePlatformException nameless(m_context, evalThrowing("throw { message: 'only' }"));
    EXPECT_EQ(nameless.getName(), "UnknownError");
    EXPECT_EQ(nameless.getMessage(), "only");
}

TEST_F(PlatformExceptionTest, ReadsAThrownPrimitive) {
    BasePlatformException error(m_context, evalThrowing("throw 'plain text'"));
    EXPECT_EQ(error.getName(), "UnknownError");
    EXPECT_EQ(error.getMessage(), "plain text");
}

TEST_F(PlatformExceptionTest, SurvivesAThrownObjectWithThrowingGetters) {
    BasePlatformException error(
        m_context, evalThrowing("throw { get name() { throw 1; }, get message() { throw 2; } }"));
    EXPECT_EQ(error.getName(), "UnknownError");
    EXPECT_EQ(error.getMessage(), "");
}

TEST_F(PlatformExceptionTest, SubclassFromAScriptValueKeepsItsOwnName) {
    TypeMismatchException error(m_context, evalThrowing("throw new Error('bad value')"));
    EXPECT_EQ(error.getName(), "TypeMismatchError");
    EXPECT_EQ(error.getMessage(), "bad value");
    EXPECT_STREQ(error.what(), "TypeMismatchError: bad value");
}

}  // namespace
