// The private data of a KvFileTransfer script object and the script side of
// its two listeners. Each callback gets the transfer id and one more value.
//
// Slots of the listener callbacks (filled by JSKvFileTransfer):
//   file send      1 onprogress(id, progress)
//                  2 oncomplete(id, fileUri)
//                  3 onerror(id, KvFileSendErrorCode string)
//   file receive   1 onreceive(id, fileName)
//                  2 onprogress(id, progress)
//                  3 oncomplete(id, fileUri)
//                  4 onerror(id, KvFileReceiveErrorCode string)
#ifndef KVP_KV_FILE_TRANSFER_CONTROLLER_H
#define KVP_KV_FILE_TRANSFER_CONTROLLER_H

#include "JSCallbacksManager.h"
#include "KvFileTransfer.h"
#include "KvListenerBinding.h"

#include <Commons/EventListener.h>
#include <CommonsJavaScript/PrivateObject.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

typedef DPL::SharedPtr<KvFileTransfer> KvFileTransferPtr;

class KvFileTransferController
    : public WrtDeviceApis::Commons::EventListener<EventKvFileTransferFileSendListener>,
      public WrtDeviceApis::Commons::EventListener<EventKvFileTransferFileReceiveListener>,
      public WrtDeviceApis::CommonsJavaScript::PrivateObject<
          KvFileTransferPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership> {
public:
    typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<
        KvFileTransferPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership>
        PrivateBase;

    // Keeps the global context of `context`.
    KvFileTransferController(JSContextRef context, const KvFileTransferPtr& fileTransfer);
    ~KvFileTransferController() override;

    void onAnswerReceived(
        const DPL::SharedPtr<EventKvFileTransferFileSendListener>& event) override;
    void onAnswerReceived(
        const DPL::SharedPtr<EventKvFileTransferFileReceiveListener>& event) override;

    KvListenerBinding<EventKvFileTransferFileSendListener>& fileSendBinding() { return m_fileSend; }
    KvListenerBinding<EventKvFileTransferFileReceiveListener>& fileReceiveBinding() {
        return m_fileReceive;
    }

private:
    void onFileSendProgress(JSCallbacksManager& callbacks, const EventInfoFileSend& info);
    void onFileSendComplete(JSCallbacksManager& callbacks, const EventInfoFileSend& info);
    void onFileSendError(JSCallbacksManager& callbacks, const EventInfoFileSend& info);
    void onFileReceiveReceive(JSCallbacksManager& callbacks, const EventInfoFileReceive& info);
    void onFileReceiveProgress(JSCallbacksManager& callbacks, const EventInfoFileReceive& info);
    void onFileReceiveComplete(JSCallbacksManager& callbacks, const EventInfoFileReceive& info);
    void onFileReceiveError(JSCallbacksManager& callbacks, const EventInfoFileReceive& info);

    KvListenerBinding<EventKvFileTransferFileSendListener> m_fileSend;
    KvListenerBinding<EventKvFileTransferFileReceiveListener> m_fileReceive;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
