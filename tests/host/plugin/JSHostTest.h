// The script class "HostTest", installed as webapis.hosttest. Its functions
// use the platform's script layer as a device API does, so that apps run by
// the host can check that layer from script:
//   check(fn, obj, str, num, nullableFn)
//       validates its arguments (a function, an object, a string, an integer
//       and a nullable function) and returns them converted as an object
//       {fn, obj, str, num, nullableFn}; a bad argument throws the
//       validator's TypeMismatchError.
//   makeError(name, message)
//       returns a new WebAPIError with this name and message (message
//       optional).
//   guarded()
//       returns true when access control lets the app use the accessory
//       privilege, and throws the accessory API's SecurityError or
//       UnknownError otherwise.
// Every function called on an object of another class throws a
// TypeMismatchError "Wrong object".
#ifndef KV_TESTS_HOST_PLUGIN_JS_HOST_TEST_H
#define KV_TESTS_HOST_PLUGIN_JS_HOST_TEST_H

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace HostTest {

class JSHostTest {
public:
    JSHostTest() = delete;

    // The class record, made on first use and released when the plug-in is
    // unloaded.
    static JSClassRef getClassRef();

private:
    static JSValueRef check(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                            size_t argumentCount, const JSValueRef arguments[],
                            JSValueRef* exception);
    static JSValueRef makeError(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                                size_t argumentCount, const JSValueRef arguments[],
                                JSValueRef* exception);
    static JSValueRef guarded(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                              size_t argumentCount, const JSValueRef arguments[],
                              JSValueRef* exception);

    static const JSStaticFunction kFunctions[];
};

}  // namespace HostTest
}  // namespace DeviceAPI

#endif
