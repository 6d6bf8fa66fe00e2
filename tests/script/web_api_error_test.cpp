#include "ScriptContext.h"

#include <JSWebAPIError.h>
#include <JSWebAPIErrorFactory.h>
#include <PlatformException.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>

using namespace DeviceAPI::Common;

namespace {

class WebAPIErrorTest : public KvTest::ScriptTest {
protected:
    // Evaluates `script` with `error` as the global `e`.
    std::string about(JSObjectRef error, const std::string& script) {
        setGlobal("e", error);
        return text(eval(script));
    }
};

TEST_F(WebAPIErrorTest, FactoryNamesAreTheWebAPIErrorNames) {
    EXPECT_EQ(JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR, "TypeMismatchError");
    EXPECT_EQ(JSWebAPIErrorFactory::INVALID_VALUES_ERROR, "InvalidValuesError");
    EXPECT_EQ(JSWebAPIErrorFactory::SECURITY_ERROR, "SecurityError");
    EXPECT_EQ(JSWebAPIErrorFactory::IO_ERROR, "IOError");
    EXPECT_EQ(JSWebAPIErrorFactory::UNKNOWN_ERROR, "UnknownError");
    EXPECT_EQ(JSWebAPIErrorFactory::NOT_FOUND_ERROR, "NotFoundError");
    EXPECT_EQ(JSWebAPIErrorFactory::NOT_SUPPORTED_ERROR, "NotSupportedError");
    EXPECT_EQ(JSWebAPIErrorFactory::INVALID_STATE_ERROR, "InvalidStateError");
    EXPECT_EQ(JSWebAPIErrorFactory::SERVICE_NOT_AVAILABLE_ERROR, "ServiceNotAvailableError");
}

TEST_F(WebAPIErrorTest, ErrorObjectsShowNameMessageAndCode) {
    JSObjectRef error =
        JSWebAPIErrorFactory::makeErrorObject(m_context, "TypeMismatchError", "Wrong object");
    EXPECT_EQ(about(error, "e.name"), "TypeMismatchError");
    EXPECT_EQ(about(error, "e.message"), "Wrong object");
    EXPECT_EQ(about(error, "e.code"), "17");
    EXPECT_EQ(about(error, "typeof e.code"), "number");
    EXPECT_EQ(about(error, "e.toString()"), "TypeMismatchError: Wrong object");
    EXPECT_EQ(about(error, "String(e)"), "TypeMismatchError: Wrong object");
    EXPECT_EQ(about(error, "'' + e"), "TypeMismatchError: Wrong object");
}

TEST_F(WebAPIErrorTest, CodesAreTheDomExceptionNumbers) {
    const std::pair<std::string, int> expected[] = {
        {"NotFoundError", 8},
        {"NotSupportedError", 9},
        {"InvalidStateError", 11},
        {"TypeMismatchError", 17},
        {"SecurityError", 18},
        {"NetworkError", 19},
        {"AbortError", 20},
        {"QuotaExceededError", 22},
        {"TimeoutError", 23},
        {"InvalidValuesError", 0},
        {"IOError", 0},
        {"UnknownError", 0},
        {"ServiceNotAvailableError", 0},
        {"TokenNotGeneratedError", 0},
        {"", 0},
    };
    for (const auto& [name, code] : expected) {
        SCOPED_TRACE(name);
        EXPECT_EQ(JSWebAPIError::convertToErrorCode(name), code);
        JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, name, "m");
        EXPECT_EQ(about(error, "e.code"), std::to_string(code));
        EXPECT_EQ(about(error, "e.name"), name);
    }
}

TEST_F(WebAPIErrorTest, CustomNamesKeepTheirName) {
    JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, "TokenNotGeneratedError",
                                                              "Token is not generated");
    EXPECT_EQ(about(error, "e.toString()"), "TokenNotGeneratedError: Token is not generated");
    EXPECT_EQ(about(error, "e.code"), "0");
}

TEST_F(WebAPIErrorTest, AnEmptyMessageShowsTheNameAlone) {
    JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, "NotFoundError");
    EXPECT_EQ(about(error, "e.message"), "");
    EXPECT_EQ(about(error, "e.toString()"), "NotFoundError");
}

TEST_F(WebAPIErrorTest, PropertiesAreReadOnlyAndStay) {
    JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, "IOError", "disk");
    eval("e = undefined");
    setGlobal("e", error);
    eval(
        "e.name = 'Other'; e.message = 'changed'; e.code = 99;"
        "delete e.name; delete e.message; delete e.code;");
    EXPECT_EQ(about(error, "e.name + '|' + e.message + '|' + e.code"), "IOError|disk|0");
}

TEST_F(WebAPIErrorTest, ErrorObjectsInheritFromErrorPrototype) {
    JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, "SecurityError", "no");
    EXPECT_EQ(about(error, "e instanceof Error"), "true");
    EXPECT_EQ(about(error, "Error.prototype.isPrototypeOf(e)"), "true");
    EXPECT_EQ(about(error, "Object.prototype.toString.call(e)"), "[object WebAPIError]");
    EXPECT_EQ(about(error, "Object.keys(JSON.parse(JSON.stringify(e))).sort().join()"),
              "code,message,name");
}

TEST_F(WebAPIErrorTest, ErrorObjectsAreToldApartFromScriptErrors) {
    JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, "SecurityError", "no");
    EXPECT_TRUE(JSWebAPIError::isObjectOfClass(m_context, error));
    EXPECT_FALSE(JSWebAPIError::isObjectOfClass(m_context, eval("new Error('x')")));
    EXPECT_FALSE(JSWebAPIError::isObjectOfClass(m_context, eval("({ name: 'SecurityError' })")));
    EXPECT_FALSE(JSWebAPIError::isObjectOfClass(m_context, nullptr));
}

TEST_F(WebAPIErrorTest, ToStringOnAForeignObjectDoesNotCrash) {
    JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, "IOError", "x");
    EXPECT_EQ(about(error, "e.toString.call({})"), "WebAPIError");
}

TEST_F(WebAPIErrorTest, AReplacedGlobalErrorStillGivesAnErrorObject) {
    eval("Error = 5");
    JSObjectRef error = JSWebAPIErrorFactory::makeErrorObject(m_context, "IOError", "x");
    EXPECT_EQ(about(error, "e.toString()"), "IOError: x");
}

TEST_F(WebAPIErrorTest, MadeFromAPlatformException) {
    JSObjectRef error =
        JSWebAPIErrorFactory::makeErrorObject(m_context, InvalidValuesException("out of range"));
    EXPECT_EQ(about(error, "e.toString()"), "InvalidValuesError: out of range");
}

TEST_F(WebAPIErrorTest, PostExceptionStoresTheErrorForTheScriptToThrow) {
    JSValueRef exception = nullptr;
    JSObjectRef error = JSWebAPIErrorFactory::postException(
        m_context, &exception, JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error");
    EXPECT_EQ(exception, error);
    EXPECT_EQ(about(error, "e.toString()"), "UnknownError: Internal error");

    JSValueRef second = nullptr;
    JSWebAPIErrorFactory::postException(m_context, &second, NotFoundException("gone"));
    setGlobal("e", second);
    EXPECT_EQ(text(eval("e.name + ' ' + e.code")), "NotFoundError 8");

    EXPECT_NE(JSWebAPIErrorFactory::postException(m_context, nullptr, "AbortError"), nullptr);
}

// A native script function that fails the way device API methods do.
JSValueRef failingMethod(JSContextRef context, JSObjectRef, JSObjectRef, size_t, const JSValueRef[],
                         JSValueRef* exception) {
    return JSWebAPIErrorFactory::postException(context, exception,
                                               JSWebAPIErrorFactory::SECURITY_ERROR,
                                               "The application does not have the privilege");
}

TEST_F(WebAPIErrorTest, PostedErrorsAreCaughtInScript) {
    JSStringRef name = JSStringCreateWithUTF8CString("guarded");
    setGlobal("guarded", JSObjectMakeFunctionWithCallback(m_context, name, failingMethod));
    JSStringRelease(name);
    EXPECT_EQ(text(eval("(function () { try { guarded(); return 'no error'; }"
                        " catch (e) { return e.name + '/' + e.code + '/' + (e instanceof Error)"
                        " + '/' + e.message; } })()")),
              "SecurityError/18/true/The application does not have the privilege");
}

}  // namespace
