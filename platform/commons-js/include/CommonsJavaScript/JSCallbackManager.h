// The script callbacks of one pending request (or one listener): a success
// and an error callback, the context to call them in and the object that
// stands as `this`. It travels as the private data of a request event and
// is called back on the main loop when the answer arrives.
//
// Everything the manager holds (both callbacks and the `this` object) is
// protected from the garbage collector while held, and unprotected when it
// is replaced or when the manager dies. The manager keeps the global context
// of the context it was given, so it stays valid after the script call that
// made it returned; the manager must not outlive that global context.
//
// A callback that throws is logged at error level and handed to the host of
// the context as an uncaught exception (ScriptExceptionHost); the call
// returns normally: nothing a callback does escapes the manager.
#ifndef KV_PLATFORM_COMMONS_JS_JS_CALLBACK_MANAGER_H
#define KV_PLATFORM_COMMONS_JS_JS_CALLBACK_MANAGER_H

#include <Commons/IEvent.h>
#include <CommonsJavaScript/ScriptCallback.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

class JSCallbackManager;
typedef DPL::SharedPtr<JSCallbackManager> JSCallbackManagerPtr;

class JSCallbackManager : public WrtDeviceApis::Commons::IEventPrivateData {
public:
    // A manager for `context` holding the given callbacks. A script null (or
    // undefined) callback is accepted only when its accept flag is set;
    // otherwise InvalidArgumentException is thrown. A value that is not a
    // function is not stored (the slot stays empty).
    static JSCallbackManagerPtr createObject(JSContextRef context, JSValueRef onSuccess = nullptr,
                                             JSValueRef onError = nullptr,
                                             bool acceptJSNullAsOnSuccess = true,
                                             bool acceptJSNullAsOnError = true);

    JSCallbackManager(JSContextRef context, JSValueRef onSuccess, JSValueRef onError);
    ~JSCallbackManager() override;
    JSCallbackManager(const JSCallbackManager&) = delete;
    JSCallbackManager& operator=(const JSCallbackManager&) = delete;

    // Replace a callback. A null pointer or any value that is not a function
    // empties the slot; a non-function other than null/undefined is logged.
    void setOnSuccess(JSValueRef onSuccess);
    JSValueRef getOnSuccess() const;
    void setOnError(JSValueRef onError);
    JSValueRef getOnError() const;

    // Replaces the context; the global context of `context` is kept.
    void setContext(JSContextRef context);
    JSContextRef getContext() const;

    // The object passed as `this` to the callbacks (null: the global object).
    void setObject(JSObjectRef object);
    JSObjectRef getObject() const;

    // Call the success or error callback with no, one or `count` arguments.
    // An empty slot does nothing.
    void callOnSuccess();
    void callOnSuccess(JSValueRef argument);
    void callOnSuccess(JSValueRef arguments[], unsigned count);
    void callOnError();
    void callOnError(JSValueRef argument);
    void callOnError(JSValueRef arguments[], unsigned count);

private:
    // The function that `value` holds, or null when it holds none.
    JSObjectRef functionOf(JSValueRef value, const char* role) const;
    void makeCallback(const ProtectedObject& callback, const JSValueRef arguments[], unsigned count,
                      const char* role) const;

    JSGlobalContextRef m_context;
    ProtectedObject m_onSuccess;
    ProtectedObject m_onError;
    ProtectedObject m_object;
};

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
