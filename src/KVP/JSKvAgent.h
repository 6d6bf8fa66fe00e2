// The script class "KvAgent": one local service agent of the application,
// with its id, name, role and channel ids, the listeners for peer agent
// searches and service connections, and the requests that connect to,
// accept, reject and authenticate peer agents. Its private data is a
// KvAgentController.
#ifndef KVP_JS_KV_AGENT_H
#define KVP_JS_KV_AGENT_H

#include "KvAgent.h"

#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

#include <cstddef>

namespace DeviceAPI {
namespace KVP {

typedef DPL::SharedPtr<KvAgent> KvAgentPtr;

class JSKvAgent {
public:
    static const JSClassDefinition* getClassInfo();
    static JSClassRef getClassRef();
    // A new script object whose private data is a new controller of `agent`.
    static JSObjectRef createJSObject(JSContextRef context, const KvAgentPtr& agent);

private:
    static void finalize(JSObjectRef object);

    static JSValueRef requestServiceConnection(JSContextRef context, JSObjectRef function,
                                               JSObjectRef thisObject, size_t argumentCount,
                                               const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef setServiceConnectionListener(JSContextRef context, JSObjectRef function,
                                                   JSObjectRef thisObject, size_t argumentCount,
                                                   const JSValueRef arguments[],
                                                   JSValueRef* exception);
    static JSValueRef acceptServiceConnectionRequest(JSContextRef context, JSObjectRef function,
                                                     JSObjectRef thisObject, size_t argumentCount,
                                                     const JSValueRef arguments[],
                                                     JSValueRef* exception);
    static JSValueRef rejectServiceConnectionRequest(JSContextRef context, JSObjectRef function,
                                                     JSObjectRef thisObject, size_t argumentCount,
                                                     const JSValueRef arguments[],
                                                     JSValueRef* exception);
    static JSValueRef findPeerAgents(JSContextRef context, JSObjectRef function,
                                     JSObjectRef thisObject, size_t argumentCount,
                                     const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef setPeerAgentFindListener(JSContextRef context, JSObjectRef function,
                                               JSObjectRef thisObject, size_t argumentCount,
                                               const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef authenticatePeerAgent(JSContextRef context, JSObjectRef function,
                                            JSObjectRef thisObject, size_t argumentCount,
                                            const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef getKvFileTransfer(JSContextRef context, JSObjectRef function,
                                        JSObjectRef thisObject, size_t argumentCount,
                                        const JSValueRef arguments[], JSValueRef* exception);

    static const JSClassDefinition m_classInfo;
    static const JSStaticValue m_properties[];
    static const JSStaticFunction m_functions[];
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
