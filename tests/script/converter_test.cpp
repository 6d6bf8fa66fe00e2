#include "ScriptContext.h"

#include <Commons/Exception.h>
#include <CommonsJavaScript/Converter.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::CommonsJavaScript::Converter;

namespace {

class ConverterTest : public KvTest::ScriptTest {
protected:
    // True when `script`, evaluated with `value` as the global `v`, is true.
    bool check(JSValueRef value, const std::string& script) {
        setGlobal("v", value);
        return JSValueToBoolean(m_context, eval(script));
    }
};

TEST_F(ConverterTest, NativeStringsBecomeScriptStrings) {
    Converter converter(m_context);
    EXPECT_TRUE(check(converter.toJSValueRef(std::string("héllo")), "v === 'h\\u00e9llo'"));
    EXPECT_TRUE(check(converter.toJSValueRef("plain"), "v === 'plain'"));
    EXPECT_TRUE(check(converter.toJSValueRef(std::string()), "v === ''"));
}

TEST_F(ConverterTest, NullCStringBecomesScriptNull) {
    Converter converter(m_context);
    const char* nothing = nullptr;
    EXPECT_TRUE(check(converter.toJSValueRef(nothing), "v === null"));
}

TEST_F(ConverterTest, NativeNumbersAndBooleansBecomeScriptPrimitives) {
    Converter converter(m_context);
    EXPECT_TRUE(check(converter.toJSValueRef(true), "v === true"));
    EXPECT_TRUE(check(converter.toJSValueRef(false), "v === false"));
    EXPECT_TRUE(check(converter.toJSValueRef(-42), "v === -42"));
    EXPECT_TRUE(check(converter.toJSValueRef(7u), "v === 7"));
    EXPECT_TRUE(check(converter.toJSValueRef(-3000000000L), "v === -3000000000"));
    EXPECT_TRUE(check(converter.toJSValueRef(4000000000UL), "v === 4000000000"));
    EXPECT_TRUE(check(converter.toJSValueRef(2.5), "v === 2.5"));
}

TEST_F(ConverterTest, NativeVectorsBecomeScriptArrays) {
    Converter converter(m_context);
    EXPECT_TRUE(check(converter.toJSValueRef(std::vector<std::string>{"a", "b"}),
                      "Array.isArray(v) && v.length === 2 && v[0] === 'a' && v[1] === 'b'"));
    EXPECT_TRUE(check(converter.toJSValueRef(std::vector<std::string>{}),
                      "Array.isArray(v) && v.length === 0"));
    EXPECT_TRUE(check(converter.toJSValueRef(std::vector<int>{1, 2, 3}),
                      "Array.isArray(v) && v.join() === '1,2,3'"));
    EXPECT_TRUE(check(converter.toJSValueRef(std::vector<long>{-1}), "v[0] === -1"));
    EXPECT_TRUE(check(converter.toJSValueRef(std::vector<double>{0.5}), "v[0] === 0.5"));
}

TEST_F(ConverterTest, ScriptValuesBecomeStrings) {
    Converter converter(m_context);
    EXPECT_EQ(converter.toString(eval("'h\\u00e9llo'")), "héllo");
    EXPECT_EQ(converter.toString(eval("12.5")), "12.5");
    EXPECT_EQ(converter.toString(eval("null")), "null");
    EXPECT_EQ(converter.toString(eval("undefined")), "undefined");
    EXPECT_EQ(converter.toString(eval("({ toString() { return 'custom'; } })")), "custom");
}

TEST_F(ConverterTest, StringConversionThatThrowsRaisesConversionException) {
    Converter converter(m_context);
    JSValueRef object = eval("({ toString() { throw new Error('no text'); } })");
    EXPECT_THROW(converter.toString(object), ConversionException);
    EXPECT_THROW(converter.toString(eval("Symbol('s')")), ConversionException);
    EXPECT_THROW(converter.toString(nullptr), ConversionException);
}

TEST_F(ConverterTest, ScriptNumbersBecomeIntegersTruncatedAndWrapped) {
    Converter converter(m_context);
    EXPECT_EQ(converter.toInt(eval("3.7")), 3);
    EXPECT_EQ(converter.toInt(eval("-3.7")), -3);
    EXPECT_EQ(converter.toInt(eval("'12'")), 12);
    EXPECT_EQ(converter.toInt(eval("2147483648")), INT_MIN);
    EXPECT_EQ(converter.toInt(eval("4294967301")), 5);
    EXPECT_EQ(converter.toLong(eval("-2147483648")), -2147483648L);
    EXPECT_EQ(converter.toLong(eval("true")), 1L);
    EXPECT_EQ(converter.toULong(eval("4294967295")), 4294967295UL);
    EXPECT_EQ(converter.toULong(eval("-1")), 4294967295UL);
    EXPECT_EQ(converter.toULong(eval("null")), 0UL);
}

TEST_F(ConverterTest, NonFiniteNumbersAreNotIntegers) {
    Converter converter(m_context);
    for (const char* script : {"NaN", "Infinity", "-Infinity", "'abc'", "undefined", "({})"}) {
        SCOPED_TRACE(script);
        EXPECT_THROW(converter.toInt(eval(script)), ConversionException);
        EXPECT_THROW(converter.toLong(eval(script)), ConversionException);
        EXPECT_THROW(converter.toULong(eval(script)), ConversionException);
    }
}

TEST_F(ConverterTest, DoublesKeepNonFiniteValues) {
    Converter converter(m_context);
    EXPECT_DOUBLE_EQ(converter.toDouble(eval("0.25")), 0.25);
    EXPECT_TRUE(std::isnan(converter.toDouble(eval("'abc'"))));
    EXPECT_TRUE(std::isinf(converter.toDouble(eval("-Infinity"))));
    EXPECT_THROW(converter.toDouble(eval("({ valueOf() { throw 1; } })")), ConversionException);
    EXPECT_THROW(converter.toDouble(eval("Symbol()")), ConversionException);
}

TEST_F(ConverterTest, BooleansFollowScriptTruthiness) {
    Converter converter(m_context);
    EXPECT_TRUE(converter.toBool(eval("'x'")));
    EXPECT_TRUE(converter.toBool(eval("({})")));
    EXPECT_FALSE(converter.toBool(eval("0")));
    EXPECT_FALSE(converter.toBool(eval("''")));
    EXPECT_FALSE(converter.toBool(eval("null")));
}

TEST_F(ConverterTest, ObjectsConvertOnlyFromObjects) {
    Converter converter(m_context);
    JSValueRef object = eval("globalThis.o = { a: 1 }");
    EXPECT_EQ(converter.toJSObjectRef(object), JSValueToObject(m_context, global("o"), nullptr));
    EXPECT_NE(converter.toJSObjectRef(eval("(function () {})")), nullptr);
    for (const char* script : {"1", "'text'", "null", "undefined", "true"}) {
        SCOPED_TRACE(script);
        EXPECT_THROW(converter.toJSObjectRef(eval(script)), ConversionException);
    }
}

TEST_F(ConverterTest, ArraysBecomeVectorsOfStrings) {
    Converter converter(m_context);
    EXPECT_EQ(converter.toVectorOfStrings(eval("['a', 2, null]")),
              (std::vector<std::string>{"a", "2", "null"}));
    EXPECT_TRUE(converter.toVectorOfStrings(eval("[]")).empty());
    EXPECT_THROW(converter.toVectorOfStrings(eval("'abc'")), ConversionException);
    EXPECT_THROW(converter.toVectorOfStrings(eval("({ length: 1, 0: 'a' })")), ConversionException);
    EXPECT_THROW(converter.toVectorOfStrings(eval("[{ toString() { throw 0; } }]")),
                 ConversionException);
    EXPECT_THROW(
        converter.toVectorOfStrings(eval("Object.defineProperty([1], 0, { get() { throw 0; } })")),
        ConversionException);
}

}  // namespace
