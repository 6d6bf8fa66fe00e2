// The script class "KvPeerAccessory": the remote accessory device of a peer
// agent, read-only.
#ifndef KVP_JS_KV_PEER_ACCESSORY_H
#define KVP_JS_KV_PEER_ACCESSORY_H

#include "KvPeerAccessory.h"

#include <CommonsJavaScript/PrivateObject.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<
    KvPeerAccessoryPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership>
    JSKvPeerAccessoryPriv;

class JSKvPeerAccessory {
public:
    static const JSClassDefinition* getClassInfo();
    static JSClassRef getClassRef();
    // A new script object holding `accessory` (which must not be null).
    static JSObjectRef createJSObject(JSContextRef context, const KvPeerAccessoryPtr& accessory);

private:
    static void finalize(JSObjectRef object);

    static const JSClassDefinition m_classInfo;
    static const JSStaticValue m_properties[];
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
