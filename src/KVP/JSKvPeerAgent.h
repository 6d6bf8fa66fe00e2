// The script class "KvPeerAgent": a remote service agent, read-only, with
// `equals` to tell whether two objects stand for the same remote agent.
#ifndef KVP_JS_KV_PEER_AGENT_H
#define KVP_JS_KV_PEER_AGENT_H

#include "KvPeerAgent.h"

#include <CommonsJavaScript/PrivateObject.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<
    KvPeerAgentPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership>
    JSKvPeerAgentPriv;

class JSKvPeerAgent {
public:
    static const JSClassDefinition* getClassInfo();
    static JSClassRef getClassRef();
    // A new script object holding `peerAgent` (which must not be null).
    static JSObjectRef createJSObject(JSContextRef context, const KvPeerAgentPtr& peerAgent);

private:
    static void finalize(JSObjectRef object);

    // True when the argument, another KvPeerAgent, has the same peer id.
    static JSValueRef equals(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                             size_t argumentCount, const JSValueRef arguments[],
                             JSValueRef* exception);

    static const JSClassDefinition m_classInfo;
    static const JSStaticValue m_properties[];
    static const JSStaticFunction m_functions[];
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
