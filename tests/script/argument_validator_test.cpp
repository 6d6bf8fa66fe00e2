#include "ScriptContext.h"

#include <ArgumentValidator.h>
#include <PlatformException.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace DeviceAPI::Common;

namespace {

class ArgumentValidatorTest : public KvTest::ScriptTest {
protected:
    // A validator over the elements of the script array `script` (kept in a
    // global so the collector leaves them alone).
    ArgumentValidator with(const std::string& script) {
        eval("globalThis.args = " + script);
        JSObjectRef array = evalObject("args");
        m_argv.clear();
        int length = static_cast<int>(JSValueToNumber(m_context, eval("args.length"), nullptr));
        for (int i = 0; i < length; ++i) {
            m_argv.push_back(JSObjectGetPropertyAtIndex(m_context, array, i, nullptr));
        }
        return ArgumentValidator(m_context, length, m_argv.data());
    }

    // The message of the TypeMismatchException that `call` throws.
    template <class Call>
    std::string mismatch(Call call) {
        try {
            call();
        } catch (const TypeMismatchException& error) {
            EXPECT_EQ(error.getName(), "TypeMismatchError");
            return error.getMessage();
        }
        ADD_FAILURE() << "no TypeMismatchException";
        return {};
    }

    std::vector<JSValueRef> m_argv;
};

TEST_F(ArgumentValidatorTest, OrdinalsNameThePositions) {
    EXPECT_EQ(ArgumentValidator::ordinal(0), "1st");
    EXPECT_EQ(ArgumentValidator::ordinal(1), "2nd");
    EXPECT_EQ(ArgumentValidator::ordinal(2), "3rd");
    EXPECT_EQ(ArgumentValidator::ordinal(3), "4th");
    EXPECT_EQ(ArgumentValidator::ordinal(10), "11th");
    EXPECT_EQ(ArgumentValidator::ordinal(11), "12th");
    EXPECT_EQ(ArgumentValidator::ordinal(20), "21st");
    EXPECT_EQ(ArgumentValidator::ordinal(111), "112th");
}

TEST_F(ArgumentValidatorTest, FunctionsAreTakenAndOthersRefused) {
    ArgumentValidator validator = with("[function f() {}, 5, null]");
    EXPECT_EQ(validator.toFunction(0), m_argv[0]);
    EXPECT_EQ(mismatch([&] { validator.toFunction(1); }),
              "2nd argument must be a function (got a number)");
    EXPECT_EQ(mismatch([&] { validator.toFunction(1, true); }),
              "2nd argument must be a function (got a number)");
    EXPECT_EQ(mismatch([&] { validator.toFunction(2); }),
              "3rd argument must be a function (got null)");
    EXPECT_EQ(validator.toFunction(2, true), nullptr);
    EXPECT_EQ(mismatch([&] { validator.toFunction(3); }),
              "4th argument must be a function (got undefined)");
    EXPECT_EQ(validator.toFunction(3, true), nullptr);
}

TEST_F(ArgumentValidatorTest, ObjectsAreTakenAndPrimitivesRefused) {
    ArgumentValidator validator = with("[{}, 'text', undefined, () => 1]");
    EXPECT_EQ(validator.toObject(0), m_argv[0]);
    EXPECT_EQ(validator.toObject(3), m_argv[3]);
    EXPECT_EQ(mismatch([&] { validator.toObject(1); }),
              "2nd argument must be an object (got a string)");
    EXPECT_EQ(mismatch([&] { validator.toObject(1, true); }),
              "2nd argument must be an object (got a string)");
    EXPECT_EQ(mismatch([&] { validator.toObject(2); }),
              "3rd argument must be an object (got undefined)");
    EXPECT_EQ(validator.toObject(2, true), nullptr);
    EXPECT_EQ(validator.toObject(9, true), nullptr);
}

TEST_F(ArgumentValidatorTest, ObjectsOfAClassAreToldFromOtherObjects) {
    JSClassDefinition definition = kJSClassDefinitionEmpty;
    definition.className = "Peer";
    JSClassRef peerClass = JSClassCreate(&definition);
    setGlobal("peer", JSObjectMake(m_context, peerClass, nullptr));
    ArgumentValidator validator = with("[peer, {}, null]");
    EXPECT_EQ(validator.toObject(0, peerClass), m_argv[0]);
    EXPECT_EQ(mismatch([&] { validator.toObject(1, peerClass); }),
              "2nd argument must be an object of the expected class (got an object)");
    EXPECT_EQ(mismatch([&] { validator.toObject(2, peerClass); }),
              "3rd argument must be an object of the expected class (got null)");
    EXPECT_EQ(validator.toObject(2, peerClass, true), nullptr);
    EXPECT_EQ(mismatch([&] { validator.toObject(1, peerClass, true); }),
              "2nd argument must be an object of the expected class (got an object)");
    JSClassRelease(peerClass);
}

TEST_F(ArgumentValidatorTest, StringsAreConvertedFromAnyValue) {
    ArgumentValidator validator =
        with("['text', 12, true, { toString() { return 'obj'; } }, null]");
    EXPECT_EQ(validator.toString(0), "text");
    EXPECT_EQ(validator.toString(1), "12");
    EXPECT_EQ(validator.toString(2), "true");
    EXPECT_EQ(validator.toString(3), "obj");
    EXPECT_EQ(mismatch([&] { validator.toString(4); }), "5th argument must be a string (got null)");
    EXPECT_EQ(validator.toString(4, true, "fallback"), "fallback");
    EXPECT_EQ(validator.toString(5, true), "");
    EXPECT_EQ(mismatch([&] { validator.toString(5); }),
              "6th argument must be a string (got undefined)");
}

TEST_F(ArgumentValidatorTest, StringsThatCannotBeMadeAreRefused) {
    ArgumentValidator validator = with("[Symbol('s'), { toString() { throw new Error('x'); } }]");
    EXPECT_EQ(mismatch([&] { validator.toString(0); }),
              "1st argument must be a string (got a symbol)");
    EXPECT_EQ(mismatch([&] { validator.toString(1, true); }),
              "2nd argument must be a string (got an object)");
}

TEST_F(ArgumentValidatorTest, NumbersMustBeFinite) {
    ArgumentValidator validator = with("[2.5, '7', 'seven', NaN, Infinity, null, false]");
    EXPECT_DOUBLE_EQ(validator.toNumber(0), 2.5);
    EXPECT_DOUBLE_EQ(validator.toNumber(1), 7.0);
    EXPECT_EQ(mismatch([&] { validator.toNumber(2); }),
              "3rd argument must be a finite number (got a string)");
    EXPECT_EQ(mismatch([&] { validator.toNumber(3, true); }),
              "4th argument must be a finite number (got a number)");
    EXPECT_EQ(mismatch([&] { validator.toNumber(4); }),
              "5th argument must be a finite number (got a number)");
    EXPECT_DOUBLE_EQ(validator.toNumber(5, true, 1.5), 1.5);
    EXPECT_EQ(mismatch([&] { validator.toNumber(5); }),
              "6th argument must be a finite number (got null)");
    EXPECT_DOUBLE_EQ(validator.toNumber(6), 0.0);
}

TEST_F(ArgumentValidatorTest, LongsAreTruncatedAndWrapped) {
    ArgumentValidator validator = with("[-3.9, 2147483648, '12', {}, undefined]");
    EXPECT_EQ(validator.toLong(0), -3);
    EXPECT_EQ(validator.toLong(1), -2147483648L);
    EXPECT_EQ(validator.toLong(2), 12);
    EXPECT_EQ(mismatch([&] { validator.toLong(3); }),
              "4th argument must be an integer (got an object)");
    EXPECT_EQ(validator.toLong(4, true, 99), 99);
    EXPECT_EQ(mismatch([&] { validator.toLong(4); }),
              "5th argument must be an integer (got undefined)");
}

TEST_F(ArgumentValidatorTest, UnsignedLongsWrapNegativeNumbers) {
    ArgumentValidator validator = with("[4294967295, -1, 'x', null]");
    EXPECT_EQ(validator.toULong(0), 4294967295UL);
    EXPECT_EQ(validator.toULong(1), 4294967295UL);
    EXPECT_EQ(mismatch([&] { validator.toULong(2); }),
              "3rd argument must be an unsigned integer (got a string)");
    EXPECT_EQ(validator.toULong(3, true, 5), 5UL);
    EXPECT_EQ(mismatch([&] { validator.toULong(3); }),
              "4th argument must be an unsigned integer (got null)");
}

TEST_F(ArgumentValidatorTest, NumbersAreReadOnce) {
    ArgumentValidator validator =
        with("[{ valueOf() { globalThis.reads = (globalThis.reads || 0) + 1; return 4; } }]");
    EXPECT_EQ(validator.toLong(0), 4);
    EXPECT_EQ(validator.toULong(0), 4UL);
    EXPECT_EQ(text(eval("reads")), "2");
}

TEST_F(ArgumentValidatorTest, BooleansFollowScriptTruthiness) {
    ArgumentValidator validator = with("[true, 0, 'x', null]");
    EXPECT_TRUE(validator.toBool(0));
    EXPECT_FALSE(validator.toBool(1));
    EXPECT_TRUE(validator.toBool(2));
    EXPECT_TRUE(validator.toBool(3, true, true));
    EXPECT_EQ(mismatch([&] { validator.toBool(3); }), "4th argument must be a boolean (got null)");
    EXPECT_EQ(mismatch([&] { validator.toBool(4); }),
              "5th argument must be a boolean (got undefined)");
}

TEST_F(ArgumentValidatorTest, TellsOmittedAndNullArguments) {
    ArgumentValidator validator = with("[null, undefined, 0]");
    EXPECT_FALSE(validator.isOmitted(0));
    EXPECT_TRUE(validator.isNull(0));
    EXPECT_TRUE(validator.isOmitted(1));
    EXPECT_FALSE(validator.isNull(1));
    EXPECT_FALSE(validator.isOmitted(2));
    EXPECT_FALSE(validator.isNull(2));
    EXPECT_TRUE(validator.isOmitted(3));
    EXPECT_TRUE(validator.isOmitted(-1));
    EXPECT_TRUE(JSValueIsUndefined(m_context, validator.getArgument(7)));
}

TEST_F(ArgumentValidatorTest, NoArgumentsAtAll) {
    ArgumentValidator validator(m_context, 0, nullptr);
    EXPECT_TRUE(validator.isOmitted(0));
    EXPECT_EQ(mismatch([&] { validator.toFunction(0); }),
              "1st argument must be a function (got undefined)");
    ArgumentValidator inconsistent(m_context, 3, nullptr);
    EXPECT_TRUE(inconsistent.isOmitted(0));
}

}  // namespace
