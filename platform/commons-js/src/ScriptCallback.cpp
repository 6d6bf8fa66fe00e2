#include <CommonsJavaScript/JSUtils.h>
#include <CommonsJavaScript/ScriptCallback.h>
#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <Logger.h>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

void ProtectedObject::reset(JSGlobalContextRef context, JSObjectRef object) {
    if (object == m_object && context == m_context) {
        return;
    }
    if (context != nullptr && object != nullptr) {
        JSValueProtect(context, object);
    }
    if (m_context != nullptr && m_object != nullptr) {
        JSValueUnprotect(m_context, m_object);
    }
    m_context = context;
    m_object = object;
}

void callScriptCallback(JSContextRef context, JSObjectRef callback, JSObjectRef thisObject,
                        size_t count, const JSValueRef arguments[], const std::string& who) {
    if (!ScriptExceptionHost::scriptRuns(context)) {
        LoggerD("the app is ending: " << who << " not called");
        return;
    }
    JSValueRef exception = nullptr;
    JSObjectCallAsFunction(context, callback, thisObject, count, count > 0 ? arguments : nullptr,
                           &exception);
    if (exception == nullptr) {
        return;
    }
    if (ScriptExceptionHost::scriptRuns(context)) {
        LoggerE(who << " threw: " << JSUtils::describeException(context, exception));
    } else {
        LoggerI(who << " ended the app");  // runtime.exit unwinding it
    }
    ScriptExceptionHost::reportUncaught(context, exception);
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
