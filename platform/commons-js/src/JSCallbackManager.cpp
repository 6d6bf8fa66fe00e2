#include <CommonsJavaScript/JSCallbackManager.h>

#include <CommonsJavaScript/JSUtils.h>
#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <CommonsJavaScript/Validator.h>

#include <Commons/Exception.h>
#include <Logger.h>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

using Commons::InvalidArgumentException;

namespace {

JSGlobalContextRef globalOf(JSContextRef context) {
    return context != nullptr ? JSContextGetGlobalContext(context) : nullptr;
}

void requireAcceptable(JSContextRef context, JSValueRef callback, bool acceptNull,
                       const char* role) {
    if (!acceptNull && callback != nullptr && Validator(context).isNullOrUndefined(callback)) {
        ThrowMsg(InvalidArgumentException, "The " << role << " callback must not be null");
    }
}

}  // namespace

JSCallbackManagerPtr JSCallbackManager::createObject(JSContextRef context, JSValueRef onSuccess,
                                                     JSValueRef onError,
                                                     bool acceptJSNullAsOnSuccess,
                                                     bool acceptJSNullAsOnError) {
    requireAcceptable(context, onSuccess, acceptJSNullAsOnSuccess, "success");
    requireAcceptable(context, onError, acceptJSNullAsOnError, "error");
    return JSCallbackManagerPtr(new JSCallbackManager(context, onSuccess, onError));
}

JSCallbackManager::JSCallbackManager(JSContextRef context, JSValueRef onSuccess, JSValueRef onError)
    : m_context(globalOf(context)) {
    setOnSuccess(onSuccess);
    setOnError(onError);
}

JSCallbackManager::~JSCallbackManager() {
    replace(m_onSuccess, nullptr);
    replace(m_onError, nullptr);
    replace(m_object, nullptr);
}

void JSCallbackManager::replace(JSObjectRef& slot, JSObjectRef value) {
    if (slot == value) {
        return;
    }
    if (m_context != nullptr && value != nullptr) {
        JSValueProtect(m_context, value);
    }
    if (m_context != nullptr && slot != nullptr) {
        JSValueUnprotect(m_context, slot);
    }
    slot = value;
}

JSObjectRef JSCallbackManager::functionOf(JSValueRef value, const char* role) const {
    Validator validator(m_context);
    if (m_context == nullptr || validator.isNullOrUndefined(value)) {
        return nullptr;
    }
    if (!validator.isCallback(value)) {
        LoggerW("The " << role << " callback is not a function; it is not kept");
        return nullptr;
    }
    return JSValueToObject(m_context, value, nullptr);
}

void JSCallbackManager::setOnSuccess(JSValueRef onSuccess) {
    replace(m_onSuccess, functionOf(onSuccess, "success"));
}

JSValueRef JSCallbackManager::getOnSuccess() const { return m_onSuccess; }

void JSCallbackManager::setOnError(JSValueRef onError) {
    replace(m_onError, functionOf(onError, "error"));
}

JSValueRef JSCallbackManager::getOnError() const { return m_onError; }

void JSCallbackManager::setContext(JSContextRef context) {
    JSGlobalContextRef global = globalOf(context);
    if (global == m_context) {
        return;
    }
    // The held values belong to the old context's heap: move each protection.
    JSObjectRef onSuccess = m_onSuccess;
    JSObjectRef onError = m_onError;
    JSObjectRef object = m_object;
    replace(m_onSuccess, nullptr);
    replace(m_onError, nullptr);
    replace(m_object, nullptr);
    m_context = global;
    replace(m_onSuccess, onSuccess);
    replace(m_onError, onError);
    replace(m_object, object);
}

JSContextRef JSCallbackManager::getContext() const { return m_context; }

void JSCallbackManager::setObject(JSObjectRef object) { replace(m_object, object); }

JSObjectRef JSCallbackManager::getObject() const { return m_object; }

void JSCallbackManager::callOnSuccess() { makeCallback(m_onSuccess, nullptr, 0, "success"); }

void JSCallbackManager::callOnSuccess(JSValueRef argument) {
    makeCallback(m_onSuccess, &argument, 1, "success");
}

void JSCallbackManager::callOnSuccess(JSValueRef arguments[], unsigned count) {
    makeCallback(m_onSuccess, arguments, count, "success");
}

void JSCallbackManager::callOnError() { makeCallback(m_onError, nullptr, 0, "error"); }

void JSCallbackManager::callOnError(JSValueRef argument) {
    makeCallback(m_onError, &argument, 1, "error");
}

void JSCallbackManager::callOnError(JSValueRef arguments[], unsigned count) {
    makeCallback(m_onError, arguments, count, "error");
}

void JSCallbackManager::makeCallback(JSObjectRef callback, const JSValueRef arguments[],
                                     unsigned count, const char* role) const {
    if (callback == nullptr || m_context == nullptr) {
        LoggerI("No " << role << " callback to call");
        return;
    }
    if (!ScriptExceptionHost::scriptRuns(m_context)) {
        LoggerD("The app is ending: no " << role << " callback");
        return;
    }
    JSValueRef exception = nullptr;
    JSObjectCallAsFunction(m_context, callback, m_object, count, count > 0 ? arguments : nullptr,
                           &exception);
    if (exception != nullptr) {
        if (ScriptExceptionHost::scriptRuns(m_context)) {
            LoggerE("The " << role << " callback threw: "
                           << JSUtils::describeException(m_context, exception));
        } else {
            LoggerI("The " << role << " callback ended the app");  // runtime.exit unwinding it
        }
        ScriptExceptionHost::reportUncaught(m_context, exception);
    }
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
