#include <CommonsJavaScript/Validator.h>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

Validator::Validator(JSContextRef context, JSValueRef* exception)
    : m_context(context), m_exception(exception) {}

Validator::~Validator() = default;

bool Validator::isCallback(JSValueRef value) const {
    if (!isObject(value)) {
        return false;
    }
    JSObjectRef object = JSValueToObject(m_context, value, nullptr);
    return object != nullptr && JSObjectIsFunction(m_context, object);
}

bool Validator::isNullOrUndefined(JSValueRef value) const {
    return value == nullptr || JSValueIsNull(m_context, value) ||
           JSValueIsUndefined(m_context, value);
}

bool Validator::isObject(JSValueRef value) const {
    return value != nullptr && JSValueIsObject(m_context, value);
}

bool Validator::isArray(JSValueRef value) const {
    return value != nullptr && JSValueIsArray(m_context, value);
}

bool Validator::isDate(JSValueRef value) const {
    return value != nullptr && JSValueIsDate(m_context, value);
}

bool Validator::isObjectOfClass(JSValueRef value, JSClassRef jsClass) const {
    return value != nullptr && jsClass != nullptr &&
           JSValueIsObjectOfClass(m_context, value, jsClass);
}

bool Validator::isInstanceOf(JSValueRef value, JSObjectRef constructor) const {
    if (value == nullptr || constructor == nullptr) {
        return false;
    }
    JSValueRef thrown = nullptr;
    bool result = JSValueIsInstanceOfConstructor(m_context, value, constructor, &thrown);
    if (thrown != nullptr) {
        if (m_exception != nullptr) {
            *m_exception = thrown;
        }
        return false;
    }
    return result;
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
