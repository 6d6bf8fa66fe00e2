#include "JSCallbacksManager.h"

#include <Logger.h>

#include <memory>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::CommonsJavaScript::callScriptCallback;

JSCallbacksManagerPtr JSCallbacksManager::createObject(JSContextRef context, JSValueRef first,
                                                       JSValueRef second, JSValueRef third,
                                                       JSValueRef fourth) {
    return std::make_shared<JSCallbacksManager>(context, first, second, third, fourth);
}

JSCallbacksManager::JSCallbacksManager(JSContextRef context, JSValueRef first, JSValueRef second,
                                       JSValueRef third, JSValueRef fourth)
    : m_context(context != nullptr ? JSContextGetGlobalContext(context) : nullptr) {
    setFirstCallback(first);
    setSecondCallback(second);
    setThirdCallback(third);
    setFourthCallback(fourth);
}

JSCallbacksManager::~JSCallbacksManager() = default;

void JSCallbacksManager::setSlot(ProtectedObject& slot, JSValueRef value) {
    if (value == nullptr || m_context == nullptr) {
        return;
    }
    slot.reset(m_context, JSValueToObject(m_context, value, nullptr));
}

void JSCallbacksManager::setFirstCallback(JSValueRef callback) {
    setSlot(m_callbacks[0], callback);
}

void JSCallbacksManager::setSecondCallback(JSValueRef callback) {
    setSlot(m_callbacks[1], callback);
}

void JSCallbacksManager::setThirdCallback(JSValueRef callback) {
    setSlot(m_callbacks[2], callback);
}

void JSCallbacksManager::setFourthCallback(JSValueRef callback) {
    setSlot(m_callbacks[3], callback);
}

void JSCallbacksManager::setObject(JSValueRef object) { setSlot(m_object, object); }

void JSCallbacksManager::callSlot(size_t slot, size_t count, const JSValueRef arguments[]) {
    if (m_callbacks[slot].get() != nullptr) {
        makeCallback(m_context, m_object.get(), m_callbacks[slot].get(), count, arguments);
    }
}

void JSCallbacksManager::callFirstCallback(size_t count, const JSValueRef arguments[]) {
    callSlot(0, count, arguments);
}

void JSCallbacksManager::callFirstCallback(JSValueRef argument) { callSlot(0, 1, &argument); }

void JSCallbacksManager::callSecondCallback(size_t count, const JSValueRef arguments[]) {
    callSlot(1, count, arguments);
}

void JSCallbacksManager::callSecondCallback(JSValueRef argument) { callSlot(1, 1, &argument); }

void JSCallbacksManager::callThirdCallback(size_t count, const JSValueRef arguments[]) {
    callSlot(2, count, arguments);
}

void JSCallbacksManager::callThirdCallback(JSValueRef argument) { callSlot(2, 1, &argument); }

void JSCallbacksManager::callFourthCallback(size_t count, const JSValueRef arguments[]) {
    callSlot(3, count, arguments);
}

void JSCallbacksManager::callFourthCallback(JSValueRef argument) { callSlot(3, 1, &argument); }

void JSCallbacksManager::makeCallback(JSContextRef context, JSObjectRef object,
                                      JSObjectRef callback, size_t count,
                                      const JSValueRef arguments[]) {
    if (callback == nullptr) {
        LoggerE("callback is NULL");
        return;
    }
    if (!JSObjectIsFunction(context, callback)) {
        LoggerW("callback is not a function");
        return;
    }
    callScriptCallback(context, callback, object, count, arguments, "callback");
}

}  // namespace KVP
}  // namespace DeviceAPI
