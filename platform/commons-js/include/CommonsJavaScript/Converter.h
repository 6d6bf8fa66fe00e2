// Conversions between native values and script values for one script
// context. Script classes make a Converter (or a subclass that adds the
// API's own types) on the stack for each conversion site.
//
// Native to script never fails for primitives. Script to native follows the
// script language's own conversions (ToString, ToNumber, ToBoolean); a value
// that cannot be converted raises WrtDeviceApis::Commons::ConversionException:
// a script exception thrown while converting (an object whose toString
// throws, a symbol), NaN or an infinity where an integer is wanted, or a
// non-object where an object is wanted. Integers are taken as the script
// language takes them for its 32-bit operators: the number is truncated
// toward zero and wrapped modulo 2^32 (so toULong(-1) is 4294967295).
#ifndef KV_PLATFORM_COMMONS_JS_CONVERTER_H
#define KV_PLATFORM_COMMONS_JS_CONVERTER_H

#include <JavaScriptCore/JavaScript.h>

#include <cstdint>
#include <string>
#include <vector>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

class Converter {
public:
    explicit Converter(JSContextRef context);
    virtual ~Converter();
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    JSValueRef toJSValueRef(const std::string& value);
    // A null pointer gives the script value null.
    JSValueRef toJSValueRef(const char* value);
    JSValueRef toJSValueRef(bool value);
    JSValueRef toJSValueRef(int value);
    JSValueRef toJSValueRef(unsigned int value);
    JSValueRef toJSValueRef(long value);
    JSValueRef toJSValueRef(unsigned long value);
    JSValueRef toJSValueRef(double value);
    // A script array of strings.
    JSValueRef toJSValueRef(const std::vector<std::string>& values);
    // A script array of numbers.
    JSValueRef toJSValueRef(const std::vector<int>& values);
    JSValueRef toJSValueRef(const std::vector<long>& values);
    JSValueRef toJSValueRef(const std::vector<double>& values);

    // A script array holding `values` in order.
    JSObjectRef toJSArray(const std::vector<JSValueRef>& values);

    std::string toString(JSValueRef value);
    int toInt(JSValueRef value);
    long toLong(JSValueRef value);
    unsigned long toULong(JSValueRef value);
    double toDouble(JSValueRef value);
    bool toBool(JSValueRef value);
    JSObjectRef toJSObjectRef(JSValueRef value);
    // The elements of a script array, each converted with toString.
    std::vector<std::string> toVectorOfStrings(JSValueRef value);

protected:
    JSContextRef m_context;

private:
    // The number truncated toward zero and wrapped modulo 2^32; throws for
    // NaN and infinities.
    uint32_t toUInt32Bits(JSValueRef value);
    template <class Number>
    JSValueRef numbersToJSArray(const std::vector<Number>& values);
};

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
