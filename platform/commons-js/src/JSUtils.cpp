#include <CommonsJavaScript/JSUtils.h>

#include <Commons/Exception.h>

#include <vector>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

using Commons::ConversionException;

JSStringPtr JSUtils::makeJSString(const std::string& text) {
    return JSStringPtr(JSStringCreateWithUTF8CString(text.c_str()));
}

std::string JSUtils::toString(JSStringRef string) {
    if (string == nullptr) {
        return {};
    }
    std::vector<char> buffer(JSStringGetMaximumUTF8CStringSize(string));
    size_t written = JSStringGetUTF8CString(string, buffer.data(), buffer.size());
    // The count includes the terminating zero.
    return std::string(buffer.data(), written > 0 ? written - 1 : 0);
}

JSValueRef JSUtils::getJSProperty(JSContextRef context, JSObjectRef object,
                                  const std::string& name) {
    if (object == nullptr) {
        ThrowMsg(ConversionException, "Can not read property '" << name << "' of null");
    }
    JSStringPtr propertyName = makeJSString(name);
    if (!JSObjectHasProperty(context, object, propertyName.get())) {
        return nullptr;
    }
    JSValueRef exception = nullptr;
    JSValueRef value = JSObjectGetProperty(context, object, propertyName.get(), &exception);
    if (exception != nullptr) {
        ThrowMsg(ConversionException, "Reading property '"
                                          << name
                                          << "' failed: " << describeException(context, exception));
    }
    return value;
}

void JSUtils::setProperty(JSContextRef context, JSObjectRef object, const std::string& name,
                          JSValueRef value, JSPropertyAttributes attributes) {
    if (object == nullptr) {
        ThrowMsg(ConversionException, "Can not set property '" << name << "' of null");
    }
    JSStringPtr propertyName = makeJSString(name);
    JSValueRef exception = nullptr;
    JSObjectSetProperty(context, object, propertyName.get(),
                        value != nullptr ? value : JSValueMakeUndefined(context), attributes,
                        &exception);
    if (exception != nullptr) {
        ThrowMsg(ConversionException, "Setting property '"
                                          << name
                                          << "' failed: " << describeException(context, exception));
    }
}

bool JSUtils::hasProperty(JSContextRef context, JSObjectRef object, const std::string& name) {
    if (object == nullptr) {
        return false;
    }
    JSStringPtr propertyName = makeJSString(name);
    return JSObjectHasProperty(context, object, propertyName.get());
}

std::string JSUtils::describeException(JSContextRef context, JSValueRef exception) {
    if (exception == nullptr) {
        return "no exception";
    }
    JSValueRef nested = nullptr;
    JSStringPtr text(JSValueToStringCopy(context, exception, &nested));
    if (nested != nullptr || !text) {
        return "an exception that cannot be shown as text";
    }
    return toString(text.get());
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
