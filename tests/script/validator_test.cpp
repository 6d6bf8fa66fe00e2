#include "ScriptContext.h"

#include <CommonsJavaScript/Validator.h>

#include <gtest/gtest.h>

using WrtDeviceApis::CommonsJavaScript::Validator;

namespace {

using ValidatorTest = KvTest::ScriptTest;

TEST_F(ValidatorTest, OnlyFunctionsAreCallbacks) {
    Validator validator(m_context);
    EXPECT_TRUE(validator.isCallback(eval("(function () {})")));
    EXPECT_TRUE(validator.isCallback(eval("(() => 1)")));
    EXPECT_TRUE(validator.isCallback(eval("Math.max")));
    for (const char* script : {"({})", "[]", "'f'", "1", "null", "undefined"}) {
        SCOPED_TRACE(script);
        EXPECT_FALSE(validator.isCallback(eval(script)));
    }
    EXPECT_FALSE(validator.isCallback(nullptr));
}

TEST_F(ValidatorTest, NullUndefinedAndMissingValuesAreNullOrUndefined) {
    Validator validator(m_context);
    EXPECT_TRUE(validator.isNullOrUndefined(eval("null")));
    EXPECT_TRUE(validator.isNullOrUndefined(eval("undefined")));
    EXPECT_TRUE(validator.isNullOrUndefined(nullptr));
    for (const char* script : {"0", "''", "false", "({})", "NaN"}) {
        SCOPED_TRACE(script);
        EXPECT_FALSE(validator.isNullOrUndefined(eval(script)));
    }
}

TEST_F(ValidatorTest, TellsObjectsArraysAndDates) {
    Validator validator(m_context);
    EXPECT_TRUE(validator.isObject(eval("({})")));
    EXPECT_FALSE(validator.isObject(eval("'s'")));
    EXPECT_TRUE(validator.isArray(eval("[1]")));
    EXPECT_FALSE(validator.isArray(eval("({ length: 0 })")));
    EXPECT_TRUE(validator.isDate(eval("new Date()")));
    EXPECT_FALSE(validator.isDate(eval("Date.now()")));
}

TEST_F(ValidatorTest, TellsObjectsOfAClass) {
    JSClassDefinition definition = kJSClassDefinitionEmpty;
    definition.className = "Probe";
    JSClassRef probeClass = JSClassCreate(&definition);
    Validator validator(m_context);
    EXPECT_TRUE(
        validator.isObjectOfClass(JSObjectMake(m_context, probeClass, nullptr), probeClass));
    EXPECT_FALSE(validator.isObjectOfClass(eval("({})"), probeClass));
    EXPECT_FALSE(validator.isObjectOfClass(eval("({})"), nullptr));
    JSClassRelease(probeClass);
}

TEST_F(ValidatorTest, InstanceOfStoresWhatTheScriptThrows) {
    JSValueRef exception = nullptr;
    Validator validator(m_context, &exception);
    JSObjectRef arrayConstructor = evalObject("Array");
    EXPECT_TRUE(validator.isInstanceOf(eval("[]"), arrayConstructor));
    EXPECT_FALSE(validator.isInstanceOf(eval("({})"), arrayConstructor));
    EXPECT_EQ(exception, nullptr);

    // A constructor whose `prototype` cannot be read.
    JSObjectRef throwing = evalObject(
        "new Proxy(function () {}, { get(target, key) {"
        "  if (key === 'prototype') { throw new Error('refused'); } return target[key]; } })");
    EXPECT_FALSE(validator.isInstanceOf(eval("({})"), throwing));
    ASSERT_NE(exception, nullptr);
    EXPECT_EQ(text(exception), "Error: refused");
}

}  // namespace
