#include "JSCallbacksManager.h"

#include <CommonsJavaScript/JSUtils.h>
#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <Logger.h>

#include <memory>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::CommonsJavaScript::JSUtils;
using WrtDeviceApis::CommonsJavaScript::ScriptExceptionHost;

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

JSCallbacksManager::~JSCallbacksManager() {
    if (m_context == nullptr) {
        return;
    }
    for (JSObjectRef callback : m_callbacks) {
        if (callback != nullptr) {
            JSValueUnprotect(m_context, callback);
        }
    }
    if (m_object != nullptr) {
        JSValueUnprotect(m_context, m_object);
    }
}

void JSCallbacksManager::setSlot(JSObjectRef& slot, JSValueRef value) {
    if (value == nullptr || m_context == nullptr) {
        return;
    }
    if (slot != nullptr) {
        JSValueUnprotect(m_context, slot);
    }
    slot = JSValueToObject(m_context, value, nullptr);
    if (slot != nullptr) {
        JSValueProtect(m_context, slot);
    }
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
    if (m_callbacks[slot] != nullptr) {
        makeCallback(m_context, m_object, m_callbacks[slot], count, arguments);
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
    if (!ScriptExceptionHost::scriptRuns(context)) {
        LoggerD("the app is ending: callback not called");
        return;
    }
    JSValueRef exception = nullptr;
    JSObjectCallAsFunction(context, callback, object, count, count > 0 ? arguments : nullptr,
                           &exception);
    if (exception != nullptr) {
        if (ScriptExceptionHost::scriptRuns(context)) {
            LoggerE("callback threw: " << JSUtils::describeException(context, exception));
        } else {
            LoggerI("the callback ended the app");  // runtime.exit unwinding it
        }
        ScriptExceptionHost::reportUncaught(context, exception);
    }
}

}  // namespace KVP
}  // namespace DeviceAPI
