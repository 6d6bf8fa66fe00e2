#include <ArgumentValidator.h>

#include <PlatformException.h>

#include <Commons/Exception.h>
#include <CommonsJavaScript/Converter.h>
#include <CommonsJavaScript/Validator.h>

#include <cmath>

namespace DeviceAPI {
namespace Common {

using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::CommonsJavaScript::Converter;
using WrtDeviceApis::CommonsJavaScript::Validator;

ArgumentValidator::ArgumentValidator(JSContextRef context, int argc, const JSValueRef* argv)
    : m_context(context), m_argc(argv != nullptr && argc > 0 ? argc : 0), m_argv(argv) {}

ArgumentValidator::~ArgumentValidator() = default;

std::string ArgumentValidator::ordinal(int index) {
    int position = index + 1;
    const char* suffix = "th";
    if (position % 100 < 11 || position % 100 > 13) {
        switch (position % 10) {
            case 1:
                suffix = "st";
                break;
            case 2:
                suffix = "nd";
                break;
            case 3:
                suffix = "rd";
                break;
            default:
                break;
        }
    }
    return std::to_string(position) + suffix;
}

JSValueRef ArgumentValidator::getArgument(int index) const {
    if (index < 0 || index >= m_argc || m_argv[index] == nullptr) {
        return JSValueMakeUndefined(m_context);
    }
    return m_argv[index];
}

bool ArgumentValidator::isOmitted(int index) const {
    return JSValueIsUndefined(m_context, getArgument(index));
}

bool ArgumentValidator::isNull(int index) const {
    return JSValueIsNull(m_context, getArgument(index));
}

std::string ArgumentValidator::describe(int index) const {
    // A missing argument is undefined to the script, and is named so.
    if (index < 0 || index >= m_argc) {
        return "undefined";
    }
    JSValueRef value = getArgument(index);
    switch (JSValueGetType(m_context, value)) {
        case kJSTypeUndefined:
            return "undefined";
        case kJSTypeNull:
            return "null";
        case kJSTypeBoolean:
            return "a boolean";
        case kJSTypeNumber:
            return "a number";
        case kJSTypeString:
            return "a string";
        case kJSTypeSymbol:
            return "a symbol";
        case kJSTypeBigInt:
            return "a bigint";
        case kJSTypeObject:
            return Validator(m_context).isCallback(value) ? "a function" : "an object";
    }
    return "an unknown value";
}

void ArgumentValidator::throwWrongType(int index, const char* expected) const {
    std::string message =
        ordinal(index) + " argument must be " + expected + " (got " + describe(index) + ")";
    throw TypeMismatchException(message.c_str());
}

bool ArgumentValidator::isAbsent(int index, bool nullable, const char* expected) const {
    if (!Validator(m_context).isNullOrUndefined(getArgument(index))) {
        return false;
    }
    if (!nullable) {
        throwWrongType(index, expected);
    }
    return true;
}

JSObjectRef ArgumentValidator::toObject(int index, bool nullable) const {
    const char* expected = "an object";
    if (isAbsent(index, nullable, expected)) {
        return nullptr;
    }
    JSValueRef value = getArgument(index);
    if (!JSValueIsObject(m_context, value)) {
        throwWrongType(index, expected);
    }
    return JSValueToObject(m_context, value, nullptr);
}

JSObjectRef ArgumentValidator::toObject(int index, JSClassRef expectedClass, bool nullable) const {
    const char* expected = "an object of the expected class";
    if (isAbsent(index, nullable, expected)) {
        return nullptr;
    }
    if (!Validator(m_context).isObjectOfClass(getArgument(index), expectedClass)) {
        throwWrongType(index, expected);
    }
    return JSValueToObject(m_context, getArgument(index), nullptr);
}

JSObjectRef ArgumentValidator::toFunction(int index, bool nullable) const {
    const char* expected = "a function";
    if (isAbsent(index, nullable, expected)) {
        return nullptr;
    }
    if (!Validator(m_context).isCallback(getArgument(index))) {
        throwWrongType(index, expected);
    }
    return JSValueToObject(m_context, getArgument(index), nullptr);
}

std::string ArgumentValidator::toString(int index, bool nullable,
                                        const std::string& defaultValue) const {
    const char* expected = "a string";
    if (isAbsent(index, nullable, expected)) {
        return defaultValue;
    }
    try {
        return Converter(m_context).toString(getArgument(index));
    } catch (const ConversionException&) {
        throwWrongType(index, expected);
    }
}

double ArgumentValidator::toFiniteNumber(int index, const char* expected) const {
    double number = 0;
    try {
        number = Converter(m_context).toDouble(getArgument(index));
    } catch (const ConversionException&) {
        throwWrongType(index, expected);
    }
    if (!std::isfinite(number)) {
        throwWrongType(index, expected);
    }
    return number;
}

double ArgumentValidator::toNumber(int index, bool nullable, double defaultValue) const {
    const char* expected = "a finite number";
    if (isAbsent(index, nullable, expected)) {
        return defaultValue;
    }
    return toFiniteNumber(index, expected);
}

long ArgumentValidator::toLong(int index, bool nullable, long defaultValue) const {
    const char* expected = "an integer";
    if (isAbsent(index, nullable, expected)) {
        return defaultValue;
    }
    // The number is read once, so a valueOf() with side effects runs once.
    double number = toFiniteNumber(index, expected);
    return Converter(m_context).toLong(JSValueMakeNumber(m_context, number));
}

unsigned long ArgumentValidator::toULong(int index, bool nullable,
                                         unsigned long defaultValue) const {
    const char* expected = "an unsigned integer";
    if (isAbsent(index, nullable, expected)) {
        return defaultValue;
    }
    // The number is read once, so a valueOf() with side effects runs once.
    double number = toFiniteNumber(index, expected);
    return Converter(m_context).toULong(JSValueMakeNumber(m_context, number));
}

bool ArgumentValidator::toBool(int index, bool nullable, bool defaultValue) const {
    if (isAbsent(index, nullable, "a boolean")) {
        return defaultValue;
    }
    return Converter(m_context).toBool(getArgument(index));
}

}  // namespace Common
}  // namespace DeviceAPI
