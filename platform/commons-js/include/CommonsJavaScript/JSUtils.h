// Small helpers over JavaScriptCore's C interface for the script classes:
// owned script strings, string conversion and property access by name.
#ifndef KV_PLATFORM_COMMONS_JS_JS_UTILS_H
#define KV_PLATFORM_COMMONS_JS_JS_UTILS_H

#include <JavaScriptCore/JavaScript.h>

#include <memory>
#include <string>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

// Releases a script string when its owner goes.
struct JSStringReleaser {
    void operator()(JSStringRef string) const {
        if (string != nullptr) {
            JSStringRelease(string);
        }
    }
};
using JSStringPtr = std::unique_ptr<OpaqueJSString, JSStringReleaser>;

class JSUtils {
public:
    JSUtils() = delete;

    // A new script string holding `text` (UTF-8), released with its owner.
    static JSStringPtr makeJSString(const std::string& text);

    // The UTF-8 text of a script string; the empty string for null.
    static std::string toString(JSStringRef string);

    // The value of `object[name]`, or null when the object (or its prototype
    // chain) has no such property. Throws ConversionException when reading
    // the property throws in script or `object` is null.
    static JSValueRef getJSProperty(JSContextRef context, JSObjectRef object,
                                    const std::string& name);

    // Sets `object[name]` to `value` with the given attributes. Throws
    // ConversionException when the script engine refuses or `object` is null.
    static void setProperty(JSContextRef context, JSObjectRef object, const std::string& name,
                            JSValueRef value,
                            JSPropertyAttributes attributes = kJSPropertyAttributeNone);

    // True when `object` or its prototype chain has a property `name`.
    static bool hasProperty(JSContextRef context, JSObjectRef object, const std::string& name);

    // A readable form of a thrown script value for log lines: its string
    // conversion, or a fixed text when even that fails. Never throws.
    static std::string describeException(JSContextRef context, JSValueRef exception);
};

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
