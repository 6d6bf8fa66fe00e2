// The script class "KvSocket": one service connection to a peer agent, with
// sending (plain and secure) on the agent's channels, closing, the connection
// state and the listeners for received data and for the connection's loss.
// Its private data is a KvSocketController.
#ifndef KVP_JS_KV_SOCKET_H
#define KVP_JS_KV_SOCKET_H

#include "KvSocket.h"

#include <dpl/shared_ptr.h>
#include <kvp-client-stub-api.h>

#include <JavaScriptCore/JavaScript.h>

#include <cstddef>

namespace DeviceAPI {
namespace KVP {

typedef DPL::SharedPtr<KvSocket> KvSocketPtr;

class JSKvSocket {
public:
    // The largest data string, in bytes, that one send may carry: the
    // accessory service's own bound, so what a peer agent reports as its
    // maxAllowedDataSize is exactly what a send may carry.
    static constexpr size_t MAX_DATA_SIZE = KVP_MAX_DATA_SIZE;

    static const JSClassDefinition* getClassInfo();
    static JSClassRef getClassRef();
    // A new script object whose private data is a new controller of `socket`.
    static JSObjectRef createJSObject(JSContextRef context, const KvSocketPtr& socket);

private:
    static void finalize(JSObjectRef object);

    static JSValueRef close(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                            size_t argumentCount, const JSValueRef arguments[],
                            JSValueRef* exception);
    static JSValueRef isConnected(JSContextRef context, JSObjectRef function,
                                  JSObjectRef thisObject, size_t argumentCount,
                                  const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef sendData(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                               size_t argumentCount, const JSValueRef arguments[],
                               JSValueRef* exception);
    static JSValueRef sendSecureData(JSContextRef context, JSObjectRef function,
                                     JSObjectRef thisObject, size_t argumentCount,
                                     const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef setDataReceiveListener(JSContextRef context, JSObjectRef function,
                                             JSObjectRef thisObject, size_t argumentCount,
                                             const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef setSocketStatusListener(JSContextRef context, JSObjectRef function,
                                              JSObjectRef thisObject, size_t argumentCount,
                                              const JSValueRef arguments[], JSValueRef* exception);

    static const JSClassDefinition m_classInfo;
    static const JSStaticValue m_properties[];
    static const JSStaticFunction m_functions[];
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
