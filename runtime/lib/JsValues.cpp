#include <kv-runtime/JsValues.h>

#include <vector>

namespace Kv {
namespace Runtime {

JsString::JsString(const char* utf8) : m_string(JSStringCreateWithUTF8CString(utf8)) {}

JsString::JsString(const std::string& utf8) : JsString(utf8.c_str()) {}

JsString::~JsString() {
    if (m_string) {
        JSStringRelease(m_string);
    }
}

JsString JsString::adopt(JSStringRef string) { return JsString(string, Adopt{}); }

std::string JsString::str() const { return toStdString(m_string); }

std::string toStdString(JSStringRef string) {
    if (!string) {
        return {};
    }
    std::vector<char> buffer(JSStringGetMaximumUTF8CStringSize(string));
    const size_t written = JSStringGetUTF8CString(string, buffer.data(), buffer.size());
    // `written` counts the terminating zero.
    return std::string(buffer.data(), written > 0 ? written - 1 : 0);
}

std::string toStdString(JSContextRef context, JSValueRef value, const std::string& fallback) {
    JSValueRef exception = nullptr;
    JSStringRef string = JSValueToStringCopy(context, value, &exception);
    if (!string || exception) {
        if (string) {
            JSStringRelease(string);
        }
        return fallback;
    }
    return JsString::adopt(string).str();
}

bool setProperty(JSContextRef context, JSObjectRef object, const char* name, JSValueRef value,
                 JSPropertyAttributes attributes) {
    JSValueRef exception = nullptr;
    JSObjectSetProperty(context, object, JsString(name).get(), value, attributes, &exception);
    return exception == nullptr;
}

JSValueRef getProperty(JSContextRef context, JSObjectRef object, const char* name) {
    JSValueRef exception = nullptr;
    JSValueRef value = JSObjectGetProperty(context, object, JsString(name).get(), &exception);
    return exception || !value ? JSValueMakeUndefined(context) : value;
}

void setFunction(JSContextRef context, JSObjectRef object, const char* name,
                 JSObjectCallAsFunctionCallback callback) {
    JsString functionName(name);
    JSObjectRef function = JSObjectMakeFunctionWithCallback(context, functionName.get(), callback);
    JSObjectSetProperty(context, object, functionName.get(), function,
                        kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete, nullptr);
}

JSObjectRef makeError(JSContextRef context, const std::string& message,
                      const char* constructorName) {
    JSObjectRef global = JSContextGetGlobalObject(context);
    JSValueRef constructor = getProperty(context, global, constructorName);
    JSValueRef argument = JSValueMakeString(context, JsString(message).get());
    if (JSValueIsObject(context, constructor)) {
        JSObjectRef constructorObject = JSValueToObject(context, constructor, nullptr);
        JSObjectRef error =
            JSObjectCallAsConstructor(context, constructorObject, 1, &argument, nullptr);
        if (error) {
            return error;
        }
    }
    return JSObjectMakeError(context, 1, &argument, nullptr);
}

}  // namespace Runtime
}  // namespace Kv
