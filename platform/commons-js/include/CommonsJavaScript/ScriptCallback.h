// What every holder of script callbacks needs: a script object kept from the
// garbage collector while held, and a call of a script function on behalf of
// native code that never lets the script's exception out.
#ifndef KV_PLATFORM_COMMONS_JS_SCRIPT_CALLBACK_H
#define KV_PLATFORM_COMMONS_JS_SCRIPT_CALLBACK_H

#include <JavaScriptCore/JavaScript.h>

#include <cstddef>
#include <string>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

// One script object, protected in a global context while it is held: the
// protection moves with each new object and goes with the holder.
class ProtectedObject {
public:
    ProtectedObject() = default;
    ~ProtectedObject() { reset(nullptr, nullptr); }
    ProtectedObject(const ProtectedObject&) = delete;
    ProtectedObject& operator=(const ProtectedObject&) = delete;

    // Holds `object` (null: nothing) of `context`, which must stay the same
    // while anything is held.
    void reset(JSGlobalContextRef context, JSObjectRef object);
    JSObjectRef get() const { return m_object; }

private:
    JSGlobalContextRef m_context = nullptr;
    JSObjectRef m_object = nullptr;
};

// Calls `callback` with `thisObject` (null: the global object) unless the
// app is ending. What it throws is logged as `who` + " threw: " and handed
// to the host of the context as an uncaught exception (ScriptExceptionHost);
// a throw that is the app's runtime.exit unwinding is no error.
void callScriptCallback(JSContextRef context, JSObjectRef callback, JSObjectRef thisObject,
                        size_t count, const JSValueRef arguments[], const std::string& who);

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
