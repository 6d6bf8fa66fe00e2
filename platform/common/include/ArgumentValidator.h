// Reads the arguments of a script method by position and converts them to
// the type the method expects.
//
// A non-nullable argument that is missing, null or undefined, or of the
// wrong kind, throws TypeMismatchException; the message names the position
// and the expected type ("2nd argument must be a function (got a number)").
// A nullable argument that is missing, null or undefined gives null (for
// objects and functions) or the given default; a nullable argument of the
// wrong kind throws like a non-nullable one.
//
// Primitive arguments are converted as the script language converts them:
// strings with ToString, booleans with ToBoolean, numbers with ToNumber.
// A number is wrong when it is NaN or infinite (a string that is not a
// number is such a value); integers are truncated toward zero and wrapped
// to 32 bits as the script's bitwise operators do. A conversion that throws
// in script is wrong as well.
//   ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
//   JSObjectRef onSuccess = validator.toFunction(0);
//   JSObjectRef onError = validator.toFunction(1, true);
#ifndef KV_PLATFORM_COMMON_ARGUMENT_VALIDATOR_H
#define KV_PLATFORM_COMMON_ARGUMENT_VALIDATOR_H

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace DeviceAPI {
namespace Common {

class ArgumentValidator {
public:
    ArgumentValidator(JSContextRef context, int argc, const JSValueRef* argv);
    virtual ~ArgumentValidator();

    JSObjectRef toFunction(int index, bool nullable = false) const;
    JSObjectRef toObject(int index, bool nullable = false) const;
    // An object made with `expectedClass` (or a subclass of it).
    JSObjectRef toObject(int index, JSClassRef expectedClass, bool nullable = false) const;
    std::string toString(int index, bool nullable = false,
                         const std::string& defaultValue = "") const;
    long toLong(int index, bool nullable = false, long defaultValue = 0) const;
    unsigned long toULong(int index, bool nullable = false, unsigned long defaultValue = 0) const;
    double toNumber(int index, bool nullable = false, double defaultValue = 0.0) const;
    bool toBool(int index, bool nullable = false, bool defaultValue = false) const;

    // True when the argument was not passed or is undefined.
    bool isOmitted(int index) const;
    // True when the argument is script null.
    bool isNull(int index) const;

    // The raw argument: undefined when it was not passed.
    JSValueRef getArgument(int index) const;

    // "1st", "2nd", "3rd", "4th", ... for position `index` (counted from 0).
    static std::string ordinal(int index);

private:
    // True when the argument is missing, null or undefined; throws when it
    // is and the argument is not nullable.
    bool isAbsent(int index, bool nullable, const char* expected) const;
    [[noreturn]] void throwWrongType(int index, const char* expected) const;
    // A description of the argument's kind for messages ("a number").
    std::string describe(int index) const;
    double toFiniteNumber(int index, const char* expected) const;

    JSContextRef m_context;
    int m_argc;
    const JSValueRef* m_argv;
};

}  // namespace Common
}  // namespace DeviceAPI

#endif
