#include <CommonsJavaScript/Converter.h>

#include <CommonsJavaScript/JSUtils.h>

#include <Commons/Exception.h>

#include <cmath>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

using Commons::ConversionException;

namespace {

void requireValue(JSValueRef value) {
    if (value == nullptr) {
        ThrowMsg(ConversionException, "No value to convert");
    }
}

}  // namespace

Converter::Converter(JSContextRef context) : m_context(context) {}

Converter::~Converter() = default;

JSValueRef Converter::toJSValueRef(const std::string& value) {
    JSStringPtr string = JSUtils::makeJSString(value);
    return JSValueMakeString(m_context, string.get());
}

JSValueRef Converter::toJSValueRef(const char* value) {
    if (value == nullptr) {
        return JSValueMakeNull(m_context);
    }
    return toJSValueRef(std::string(value));
}

JSValueRef Converter::toJSValueRef(bool value) { return JSValueMakeBoolean(m_context, value); }

JSValueRef Converter::toJSValueRef(int value) { return JSValueMakeNumber(m_context, value); }

JSValueRef Converter::toJSValueRef(unsigned int value) {
    return JSValueMakeNumber(m_context, value);
}

JSValueRef Converter::toJSValueRef(long value) {
    return JSValueMakeNumber(m_context, static_cast<double>(value));
}

JSValueRef Converter::toJSValueRef(unsigned long value) {
    return JSValueMakeNumber(m_context, static_cast<double>(value));
}

JSValueRef Converter::toJSValueRef(double value) { return JSValueMakeNumber(m_context, value); }

JSValueRef Converter::toJSValueRef(const std::vector<std::string>& values) {
    std::vector<JSValueRef> elements;
    elements.reserve(values.size());
    for (const std::string& value : values) {
        elements.push_back(toJSValueRef(value));
    }
    return toJSArray(elements);
}

template <class Number>
JSValueRef Converter::numbersToJSArray(const std::vector<Number>& values) {
    std::vector<JSValueRef> elements;
    elements.reserve(values.size());
    for (Number value : values) {
        elements.push_back(toJSValueRef(value));
    }
    return toJSArray(elements);
}

JSValueRef Converter::toJSValueRef(const std::vector<int>& values) {
    return numbersToJSArray(values);
}

JSValueRef Converter::toJSValueRef(const std::vector<long>& values) {
    return numbersToJSArray(values);
}

JSValueRef Converter::toJSValueRef(const std::vector<double>& values) {
    return numbersToJSArray(values);
}

JSObjectRef Converter::toJSArray(const std::vector<JSValueRef>& values) {
    JSValueRef exception = nullptr;
    JSObjectRef array = JSObjectMakeArray(m_context, values.size(),
                                          values.empty() ? nullptr : values.data(), &exception);
    if (exception != nullptr || array == nullptr) {
        ThrowMsg(ConversionException, "Can not create array object: " << JSUtils::describeException(
                                          m_context, exception));
    }
    return array;
}

std::string Converter::toString(JSValueRef value) {
    requireValue(value);
    JSValueRef exception = nullptr;
    JSStringPtr string(JSValueToStringCopy(m_context, value, &exception));
    if (exception != nullptr || !string) {
        ThrowMsg(ConversionException, "Can not convert to a string: " << JSUtils::describeException(
                                          m_context, exception));
    }
    return JSUtils::toString(string.get());
}

double Converter::toDouble(JSValueRef value) {
    requireValue(value);
    JSValueRef exception = nullptr;
    double number = JSValueToNumber(m_context, value, &exception);
    if (exception != nullptr) {
        ThrowMsg(ConversionException, "Can not convert to a number: " << JSUtils::describeException(
                                          m_context, exception));
    }
    return number;
}

uint32_t Converter::toUInt32Bits(JSValueRef value) {
    double number = toDouble(value);
    if (!std::isfinite(number)) {
        ThrowMsg(ConversionException, "Can not convert " << number << " to an integer");
    }
    // Truncate, then wrap into [0, 2^32) exactly as the script's ">>> 0" does.
    double wrapped = std::fmod(std::trunc(number), 4294967296.0);
    if (wrapped < 0) {
        wrapped += 4294967296.0;
    }
    return static_cast<uint32_t>(wrapped);
}

int Converter::toInt(JSValueRef value) { return static_cast<int32_t>(toUInt32Bits(value)); }

long Converter::toLong(JSValueRef value) { return static_cast<int32_t>(toUInt32Bits(value)); }

unsigned long Converter::toULong(JSValueRef value) { return toUInt32Bits(value); }

bool Converter::toBool(JSValueRef value) {
    requireValue(value);
    return JSValueToBoolean(m_context, value);
}

JSObjectRef Converter::toJSObjectRef(JSValueRef value) {
    requireValue(value);
    if (!JSValueIsObject(m_context, value)) {
        ThrowMsg(ConversionException, "Not an object");
    }
    JSValueRef exception = nullptr;
    JSObjectRef object = JSValueToObject(m_context, value, &exception);
    if (exception != nullptr || object == nullptr) {
        ThrowMsg(ConversionException, "Not an object");
    }
    return object;
}

std::vector<std::string> Converter::toVectorOfStrings(JSValueRef value) {
    requireValue(value);
    if (!JSValueIsArray(m_context, value)) {
        ThrowMsg(ConversionException, "Not an array");
    }
    JSObjectRef array = toJSObjectRef(value);
    unsigned long length = toULong(JSUtils::getJSProperty(m_context, array, "length"));
    std::vector<std::string> result;
    for (unsigned index = 0; index < length; ++index) {
        JSValueRef exception = nullptr;
        JSValueRef element = JSObjectGetPropertyAtIndex(m_context, array, index, &exception);
        if (exception != nullptr) {
            ThrowMsg(ConversionException, "Can not read array element "
                                              << index << ": "
                                              << JSUtils::describeException(m_context, exception));
        }
        result.push_back(toString(element));
    }
    return result;
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
