// The private data of a KvSocket script object and the script side of the
// socket's listeners: data received is delivered to the data callback as
// (channelId, data), a lost connection to the status callback as its
// KvSocketStatusErrorCode string. Each listener's callback sits in the first
// slot of its JSCallbacksManager.
//
// Once the connection is lost nothing more arrives, so the controller then
// releases both listeners: the socket's script object, which their callbacks
// held, can be collected when the application drops it.
#ifndef KVP_KV_SOCKET_CONTROLLER_H
#define KVP_KV_SOCKET_CONTROLLER_H

#include "KvListenerBinding.h"
#include "KvSocket.h"

#include <Commons/EventListener.h>
#include <CommonsJavaScript/PrivateObject.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

typedef DPL::SharedPtr<KvSocket> KvSocketPtr;

class KvSocketController
    : public WrtDeviceApis::Commons::EventListener<EventKvSocketDataReceiveListener>,
      public WrtDeviceApis::Commons::EventListener<EventKvSocketSocketStatusListener>,
      public WrtDeviceApis::CommonsJavaScript::PrivateObject<
          KvSocketPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership> {
public:
    typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<
        KvSocketPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership>
        PrivateBase;

    // Keeps the global context of `context`.
    KvSocketController(JSContextRef context, const KvSocketPtr& socket);
    ~KvSocketController() override;

    void onAnswerReceived(const DPL::SharedPtr<EventKvSocketDataReceiveListener>& event) override;
    void onAnswerReceived(const DPL::SharedPtr<EventKvSocketSocketStatusListener>& event) override;

    KvListenerBinding<EventKvSocketDataReceiveListener>& dataReceiveBinding() {
        return m_dataReceive;
    }
    KvListenerBinding<EventKvSocketSocketStatusListener>& socketStatusBinding() {
        return m_socketStatus;
    }

private:
    KvListenerBinding<EventKvSocketDataReceiveListener> m_dataReceive;
    KvListenerBinding<EventKvSocketSocketStatusListener> m_socketStatus;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
