#include "ScriptContext.h"

#include <Commons/Exception.h>
#include <CommonsJavaScript/JSUtils.h>

#include <gtest/gtest.h>

using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::CommonsJavaScript::JSStringPtr;
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

// Every width of UTF-8, against what the engine itself makes of the same
// script text.
TEST_F(JSUtilsTest, ConvertsEveryWidthOfUtf8BothWays) {
    const std::string text =
        "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
    JSValueRef engine = eval("'a\\x7F\\x80\\u07FF\\u0800\\uFFFD\\u{1F600}\\u{10FFFF}'");
    JSStringPtr engineString(JSValueToStringCopy(m_context, engine, nullptr));
    EXPECT_EQ(JSUtils::toString(engineString.get()), text);
    auto ours = JSUtils::makeJSString(text);
    EXPECT_TRUE(JSStringIsEqual(ours.get(), engineString.get()));
    EXPECT_EQ(JSStringGetLength(ours.get()), 10u);
}

TEST_F(JSUtilsTest, AgreesWithTheEngineWhereverTheNonAsciiCharactersFall) {
    // ASCII runs of every length around the word-sized steps of the fast
    // path, each followed by a character of another width.
    for (int run = 0; run < 20; ++run) {
        const std::string script =
            "(function (n) { var s = ''; var tails = ['\\u00e9', '\\u20ac', '\\u{1F600}', 'z'];"
            " for (var i = 0; i < 4; ++i) { s += 'a'.repeat(n + i) + tails[i]; } return s; })(" +
            std::to_string(run) + ")";
        JSStringPtr engineString(JSValueToStringCopy(m_context, eval(script), nullptr));
        std::string expected(JSStringGetMaximumUTF8CStringSize(engineString.get()), '\0');
        expected.resize(
            JSStringGetUTF8CString(engineString.get(), expected.data(), expected.size()) - 1);
        EXPECT_EQ(JSUtils::toString(engineString.get()), expected) << run;
        EXPECT_TRUE(JSStringIsEqual(JSUtils::makeJSString(expected).get(), engineString.get()))
            << run;
    }
}

TEST_F(JSUtilsTest, MalformedTextBecomesTheReplacementCharacter) {
    const std::string replacement = "\xEF\xBF\xBD";
    // A lone surrogate of a script string.
    JSStringPtr lone(JSValueToStringCopy(m_context, eval("'x\\uD800y\\uDC00'"), nullptr));
    EXPECT_EQ(JSUtils::toString(lone.get()), "x" + replacement + "y" + replacement);
    // Broken, overlong and out-of-range UTF-8.
    for (const std::string& broken :
         {std::string("\xC0\xAF"), std::string("\xE0\x80"), std::string("\xED\xA0\x80"),
          std::string("\xF5\x80\x80\x80"), std::string("\x80")}) {
        const std::string back = JSUtils::toString(JSUtils::makeJSString(broken).get());
        EXPECT_NE(back.find(replacement), std::string::npos) << back;
        EXPECT_EQ(back.find(broken), std::string::npos);
    }
}

TEST_F(JSUtilsTest, AZeroInTheTextIsKept) {
    const std::string text("ab\0cd", 5);
    EXPECT_EQ(JSUtils::toString(JSUtils::makeJSString(text).get()), text);
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
