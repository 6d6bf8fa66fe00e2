#include "ScriptContext.h"

#include <Commons/Exception.h>
#include <CommonsJavaScript/JSUtils.h>

#include <gtest/gtest.h>

using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::CommonsJavaScript::JSUtils;

namespace {

using JSUtilsTest = KvTest::ScriptTest;

TEST_F(JSUtilsTest, ScriptStringsRoundTripUtf8) {
    auto string = JSUtils::makeJSString("gr\xC3\xBC\xC3\x9F \xE2\x9C\x93");
    EXPECT_EQ(JSStringGetLength(string.get()), 6u);
    EXPECT_EQ(JSUtils::toString(string.get()), "gr\xC3\xBC\xC3\x9F \xE2\x9C\x93");
    EXPECT_EQ(JSUtils::toString(JSUtils::makeJSString("").get()), "");
    EXPECT_EQ(JSUtils::toString(nullptr), "");
}

TEST_F(JSUtilsTest, ReadsPropertiesAndTellsMissingOnes) {
    JSObjectRef object = evalObject("({ a: 'x', u: undefined })");
    EXPECT_EQ(text(JSUtils::getJSProperty(m_context, object, "a")), "x");
    JSValueRef present = JSUtils::getJSProperty(m_context, object, "u");
    ASSERT_NE(present, nullptr);
    EXPECT_TRUE(JSValueIsUndefined(m_context, present));
    EXPECT_EQ(JSUtils::getJSProperty(m_context, object, "missing"), nullptr);
    EXPECT_NE(JSUtils::getJSProperty(m_context, object, "toString"), nullptr);
}

TEST_F(JSUtilsTest, ReadingAThrowingGetterRaisesConversionException) {
    JSObjectRef object = evalObject("({ get bad() { throw new Error('no'); } })");
    EXPECT_THROW(JSUtils::getJSProperty(m_context, object, "bad"), ConversionException);
    EXPECT_THROW(JSUtils::getJSProperty(m_context, nullptr, "a"), ConversionException);
}

TEST_F(JSUtilsTest, SetsPropertiesWithAttributes) {
    JSObjectRef object = evalObject("globalThis.o = {}");
    JSUtils::setProperty(m_context, object, "fixed", JSValueMakeNumber(m_context, 3),
                         kJSPropertyAttributeReadOnly);
    eval("o.fixed = 4");
    EXPECT_TRUE(JSValueToBoolean(m_context, eval("o.fixed === 3")));
    JSUtils::setProperty(m_context, object, "nothing", nullptr);
    EXPECT_TRUE(JSValueToBoolean(m_context, eval("'nothing' in o && o.nothing === undefined")));
}

TEST_F(JSUtilsTest, SettingThroughAThrowingSetterRaisesConversionException) {
    JSObjectRef object = evalObject("({ set bad(v) { throw new Error('no'); } })");
    EXPECT_THROW(JSUtils::setProperty(m_context, object, "bad", JSValueMakeNull(m_context)),
                 ConversionException);
    EXPECT_THROW(JSUtils::setProperty(m_context, nullptr, "a", JSValueMakeNull(m_context)),
                 ConversionException);
}

TEST_F(JSUtilsTest, HasPropertyLooksAlongThePrototypeChain) {
    JSObjectRef object = evalObject("({ own: 1 })");
    EXPECT_TRUE(JSUtils::hasProperty(m_context, object, "own"));
    EXPECT_TRUE(JSUtils::hasProperty(m_context, object, "hasOwnProperty"));
    EXPECT_FALSE(JSUtils::hasProperty(m_context, object, "other"));
    EXPECT_FALSE(JSUtils::hasProperty(m_context, nullptr, "own"));
}

TEST_F(JSUtilsTest, DescribesThrownValues) {
    EXPECT_EQ(JSUtils::describeException(m_context, evalThrowing("throw new TypeError('t')")),
              "TypeError: t");
    EXPECT_EQ(JSUtils::describeException(m_context, evalThrowing("throw 5")), "5");
    EXPECT_EQ(JSUtils::describeException(m_context, nullptr), "no exception");
    JSValueRef untellable = evalThrowing("throw { toString() { throw 1; } }");
    EXPECT_EQ(JSUtils::describeException(m_context, untellable),
              "an exception that cannot be shown as text");
}

}  // namespace
