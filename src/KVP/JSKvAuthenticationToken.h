// The script class "KvAuthenticationToken": the result of a successful
// authentication of a peer agent, read-only.
#ifndef KVP_JS_KV_AUTHENTICATION_TOKEN_H
#define KVP_JS_KV_AUTHENTICATION_TOKEN_H

#include "KvAuthenticationToken.h"

#include <CommonsJavaScript/PrivateObject.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<
    KvAuthenticationTokenPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership>
    JSKvAuthenticationTokenPriv;

class JSKvAuthenticationToken {
public:
    static const JSClassDefinition* getClassInfo();
    static JSClassRef getClassRef();
    // A new script object holding `token` (which must not be null).
    static JSObjectRef createJSObject(JSContextRef context, const KvAuthenticationTokenPtr& token);

private:
    static void finalize(JSObjectRef object);

    static const JSClassDefinition m_classInfo;
    static const JSStaticValue m_properties[];
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
