#include <CommonsJavaScript/JSCallbackManager.h>

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

JSCallbackManager::~JSCallbackManager() = default;

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
    m_onSuccess.reset(m_context, functionOf(onSuccess, "success"));
}

JSValueRef JSCallbackManager::getOnSuccess() const { return m_onSuccess.get(); }

void JSCallbackManager::setOnError(JSValueRef onError) {
    m_onError.reset(m_context, functionOf(onError, "error"));
}

JSValueRef JSCallbackManager::getOnError() const { return m_onError.get(); }

// The held values belong to the old context's heap: each protection moves.
void JSCallbackManager::setContext(JSContextRef context) {
    m_context = globalOf(context);
    m_onSuccess.reset(m_context, m_onSuccess.get());
    m_onError.reset(m_context, m_onError.get());
    m_object.reset(m_context, m_object.get());
}

JSContextRef JSCallbackManager::getContext() const { return m_context; }

void JSCallbackManager::setObject(JSObjectRef object) { m_object.reset(m_context, object); }

JSObjectRef JSCallbackManager::getObject() const { return m_object.get(); }

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

void JSCallbackManager::makeCallback(const ProtectedObject& callback, const JSValueRef arguments[],
                                     unsigned count, const char* role) const {
    if (callback.get() == nullptr || m_context == nullptr) {
        LoggerI("No " << role << " callback to call");
        return;
    }
    callScriptCallback(m_context, callback.get(), m_object.get(), count, arguments,
                       std::string("The ") + role + " callback");
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
