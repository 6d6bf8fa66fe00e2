// Small helpers over JavaScriptCore's C interface: an owning string handle,
// conversion of script values to text, and property and function setters.
#ifndef KV_RUNTIME_JS_VALUES_H
#define KV_RUNTIME_JS_VALUES_H

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace Kv {
namespace Runtime {

// Owns one reference of a JSStringRef.
class JsString {
public:
    explicit JsString(const char* utf8);
    explicit JsString(const std::string& utf8);
    ~JsString();
    JsString(const JsString&) = delete;
    JsString& operator=(const JsString&) = delete;

    // Takes over a reference returned by a "Copy" or "Create" function.
    static JsString adopt(JSStringRef string);

    JSStringRef get() const { return m_string; }
    std::string str() const;

private:
    struct Adopt {};
    JsString(JSStringRef string, Adopt) : m_string(string) {}

    JSStringRef m_string;
};

// The UTF-8 text of a JSStringRef.
std::string toStdString(JSStringRef string);

// String(value), or `fallback` when the conversion itself throws.
std::string toStdString(JSContextRef context, JSValueRef value,
                        const std::string& fallback = "<unprintable value>");

// Sets `object[name] = value` with the given attributes; returns false when a
// setter threw.
bool setProperty(JSContextRef context, JSObjectRef object, const char* name, JSValueRef value,
                 JSPropertyAttributes attributes = kJSPropertyAttributeNone);

// Reads `object[name]`; undefined when it is missing or a getter threw.
JSValueRef getProperty(JSContextRef context, JSObjectRef object, const char* name);

// Sets a native function as `object[name]`, read-only and not deletable.
void setFunction(JSContextRef context, JSObjectRef object, const char* name,
                 JSObjectCallAsFunctionCallback callback);

// A new script Error (or TypeError, RangeError, ...) object with `message`.
JSObjectRef makeError(JSContextRef context, const std::string& message,
                      const char* constructorName = "Error");

}  // namespace Runtime
}  // namespace Kv

#endif
