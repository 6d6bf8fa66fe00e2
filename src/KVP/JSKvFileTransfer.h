// The script class "KvFileTransfer": the file transfers of one agent, with
// sending a file to a peer agent, receiving, rejecting and cancelling
// transfers, the default folder of received files and the listeners for sent
// and received files. Its private data is a KvFileTransferController.
#ifndef KVP_JS_KV_FILE_TRANSFER_H
#define KVP_JS_KV_FILE_TRANSFER_H

#include "KvFileTransfer.h"

#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

#include <cstddef>

namespace DeviceAPI {
namespace KVP {

typedef DPL::SharedPtr<KvFileTransfer> KvFileTransferPtr;

class JSKvFileTransfer {
public:
    static const JSClassDefinition* getClassInfo();
    static JSClassRef getClassRef();
    // A new script object whose private data is a new controller of
    // `fileTransfer`.
    static JSObjectRef createJSObject(JSContextRef context, const KvFileTransferPtr& fileTransfer);

private:
    static void finalize(JSObjectRef object);

    static JSValueRef sendFile(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                               size_t argumentCount, const JSValueRef arguments[],
                               JSValueRef* exception);
    static JSValueRef setFileSendListener(JSContextRef context, JSObjectRef function,
                                          JSObjectRef thisObject, size_t argumentCount,
                                          const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef setFileReceiveListener(JSContextRef context, JSObjectRef function,
                                             JSObjectRef thisObject, size_t argumentCount,
                                             const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef receiveFile(JSContextRef context, JSObjectRef function,
                                  JSObjectRef thisObject, size_t argumentCount,
                                  const JSValueRef arguments[], JSValueRef* exception);
    static JSValueRef cancelFile(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                                 size_t argumentCount, const JSValueRef arguments[],
                                 JSValueRef* exception);
    static JSValueRef rejectFile(JSContextRef context, JSObjectRef function, JSObjectRef thisObject,
                                 size_t argumentCount, const JSValueRef arguments[],
                                 JSValueRef* exception);

    static const JSClassDefinition m_classInfo;
    static const JSStaticValue m_properties[];
    static const JSStaticFunction m_functions[];
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
