// The script callbacks of one listener (or one pending request): four
// callback slots, the script context to call them in and the object that
// stands as `this` when they are called. It travels as the private data of
// listener emitters and request events, held through DPL::SharedPtr.
//
// Every object held is protected from the garbage collector while held and
// unprotected when it is replaced or when the manager goes. The manager keeps
// the global context of the context it is given; it must not outlive that
// context (the plug-in drops listeners at widget stop, before the runtime
// releases the context).
//
// Which slot holds which callback is agreed between the script method that
// fills the slots and the controller that calls them.
#ifndef KVP_JS_CALLBACKS_MANAGER_H
#define KVP_JS_CALLBACKS_MANAGER_H

#include <Commons/IEvent.h>
#include <CommonsJavaScript/ScriptCallback.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

#include <cstddef>

namespace DeviceAPI {
namespace KVP {

class JSCallbacksManager;
typedef DPL::SharedPtr<JSCallbacksManager> JSCallbacksManagerPtr;

class JSCallbacksManager : public WrtDeviceApis::Commons::IEventPrivateData {
public:
    // A manager for `context` whose slots hold the given callbacks in order.
    static JSCallbacksManagerPtr createObject(JSContextRef context, JSValueRef first = nullptr,
                                              JSValueRef second = nullptr,
                                              JSValueRef third = nullptr,
                                              JSValueRef fourth = nullptr);

    JSCallbacksManager(JSContextRef context, JSValueRef first = nullptr,
                       JSValueRef second = nullptr, JSValueRef third = nullptr,
                       JSValueRef fourth = nullptr);
    ~JSCallbacksManager() override;
    JSCallbacksManager(const JSCallbacksManager&) = delete;
    JSCallbacksManager& operator=(const JSCallbacksManager&) = delete;

    // Setters: a null pointer leaves the slot as it was; any other value is
    // converted to an object and kept (a script null or a value that cannot
    // be made an object empties the slot).
    void setFirstCallback(JSValueRef callback);
    void setSecondCallback(JSValueRef callback);
    void setThirdCallback(JSValueRef callback);
    void setFourthCallback(JSValueRef callback);
    void setObject(JSValueRef object);

    JSObjectRef getFirstCallback() const { return m_callbacks[0].get(); }
    JSObjectRef getSecondCallback() const { return m_callbacks[1].get(); }
    JSObjectRef getThirdCallback() const { return m_callbacks[2].get(); }
    JSObjectRef getFourthCallback() const { return m_callbacks[3].get(); }
    JSObjectRef getObject() const { return m_object.get(); }
    JSContextRef getContext() const { return m_context; }

    // Calls a slot with `count` arguments or with one value; an empty slot
    // does nothing.
    void callFirstCallback(size_t count, const JSValueRef arguments[]);
    void callFirstCallback(JSValueRef argument);
    void callSecondCallback(size_t count, const JSValueRef arguments[]);
    void callSecondCallback(JSValueRef argument);
    void callThirdCallback(size_t count, const JSValueRef arguments[]);
    void callThirdCallback(JSValueRef argument);
    void callFourthCallback(size_t count, const JSValueRef arguments[]);
    void callFourthCallback(JSValueRef argument);

    // Calls `callback` with `object` as `this`: a null callback is logged as
    // "callback is NULL"; anything but a function is not called. What the
    // callback throws is logged as "callback threw: " and handed to the host
    // of the context as an uncaught exception (ScriptExceptionHost); it
    // never reaches the caller.
    static void makeCallback(JSContextRef context, JSObjectRef object, JSObjectRef callback,
                             size_t count, const JSValueRef arguments[]);

private:
    static constexpr size_t SLOTS = 4;

    using ProtectedObject = WrtDeviceApis::CommonsJavaScript::ProtectedObject;

    void setSlot(ProtectedObject& slot, JSValueRef value);
    void callSlot(size_t slot, size_t count, const JSValueRef arguments[]);

    JSGlobalContextRef m_context;
    ProtectedObject m_callbacks[SLOTS];
    ProtectedObject m_object;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
