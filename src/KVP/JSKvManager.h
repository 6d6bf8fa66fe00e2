// The script class "KvManager": the object `webapis.kv`, the only one the
// runtime installs. It hands out the application's agents and takes the
// device status listener; both methods are guarded by access control.
#ifndef KVP_JS_KV_MANAGER_H
#define KVP_JS_KV_MANAGER_H

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

class JSKvManager {
public:
    static const JSClassDefinition* getClassInfo();
    static JSClassRef getClassRef();

private:
    // Gives an object made without private data (as the runtime makes it) a
    // controller of the process's manager.
    static void initialize(JSContextRef context, JSObjectRef object);
    static void finalize(JSObjectRef object);

    // requestKvAgent(onsuccess, onerror?): the agents, through the callbacks.
    static JSValueRef requestKvAgent(JSContextRef context, JSObjectRef function,
                                     JSObjectRef thisObject, size_t argumentCount,
                                     const JSValueRef arguments[], JSValueRef* exception);
    // setDeviceStatusListener(onstatus): onstatus(transportType, status) on
    // every device attach and detach.
    static JSValueRef setDeviceStatusListener(JSContextRef context, JSObjectRef function,
                                              JSObjectRef thisObject, size_t argumentCount,
                                              const JSValueRef arguments[], JSValueRef* exception);

    static const JSClassDefinition m_classInfo;
    static const JSStaticFunction m_functions[];
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
