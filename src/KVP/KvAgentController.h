// The private data of a KvAgent script object and the script side of the
// agent's answers: it delivers the peer agent search and service connection
// listener events to the script's listener objects and answers
// authentication requests through their success and error callbacks.
//
// Slots of the listener callbacks (filled by JSKvAgent):
//   peer agent search      1 onpeeragentfound(peerAgent)
//                          2 onpeeragentupdated(peerAgent, "AVAILABLE" | "UNAVAILABLE")
//                          3 onerror(KvPeerAgentFindErrorCode string)
//   service connection     1 onrequest(peerAgent)
//                          2 onconnect(socket)
//                          3 onerror(KvServiceConnectionErrorCode string)
// An authentication request carries a JSCallbackManager: success(peerAgent,
// token), error(WebAPIError).
#ifndef KVP_KV_AGENT_CONTROLLER_H
#define KVP_KV_AGENT_CONTROLLER_H

#include "JSCallbacksManager.h"
#include "KvAgent.h"

#include <dpl/shared_ptr.h>
#include "KvListenerBinding.h"

#include <Commons/EventListener.h>
#include <Commons/EventReceiver.h>
#include <CommonsJavaScript/PrivateObject.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

#include <memory>
#include <vector>

namespace DeviceAPI {
namespace KVP {

typedef DPL::SharedPtr<KvAgent> KvAgentPtr;

// The bases stand in the order that the agent's own design gives for this
// class: the two listeners first, then the authentication answer receiver,
// then the private-object base. The other controllers put their answer
// receivers before their listeners; where the general rule and the agent's
// explicit list differ, the agent's list, being the more specific, wins.
class KvAgentController
    : public WrtDeviceApis::Commons::EventListener<EventKvAgentServiceConnectionListener>,
      public WrtDeviceApis::Commons::EventListener<EventKvAgentPeerAgentFindListener>,
      public WrtDeviceApis::Commons::EventAnswerReceiver<EventKvAgentAuthenticatePeerAgent>,
      public WrtDeviceApis::CommonsJavaScript::PrivateObject<
          KvAgentPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership> {
public:
    typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<
        KvAgentPtr, WrtDeviceApis::CommonsJavaScript::NoOwnership>
        PrivateBase;

    // Keeps the global context of `context`.
    KvAgentController(JSContextRef context, const KvAgentPtr& agent);
    ~KvAgentController() override;

    void onAnswerReceived(
        const DPL::SharedPtr<EventKvAgentServiceConnectionListener>& event) override;
    void onAnswerReceived(const DPL::SharedPtr<EventKvAgentPeerAgentFindListener>& event) override;

    KvListenerBinding<EventKvAgentServiceConnectionListener>& serviceConnectionBinding() {
        return m_serviceConnection;
    }
    KvListenerBinding<EventKvAgentPeerAgentFindListener>& peerAgentFindBinding() {
        return m_peerAgentFind;
    }

    // Remembers an authentication request that waits for the service's
    // answer; its callbacks are dropped if the controller goes first, which
    // happens only when the script context goes (the callbacks hold the
    // agent's script object as `this`).
    void watchAuthentication(const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event);

    // Calls the script back with the outcome of an answered authentication.
    // It needs no controller, so that an outcome known when the request is
    // made can be delivered on a later turn of the main loop.
    static void answerAuthentication(
        const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event);

protected:
    void OnAnswerReceived(const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event) override;

private:
    void onPeerAgentFindFound(JSCallbacksManager& callbacks, const EventInfoPeerAgentFind& info);
    void onPeerAgentFindUpdated(JSCallbacksManager& callbacks, const EventInfoPeerAgentFind& info);
    void onPeerAgentFindError(JSCallbacksManager& callbacks, const EventInfoPeerAgentFind& info);
    void onServiceConnectionRequest(JSCallbacksManager& callbacks,
                                    const EventInfoServiceConnection& info);
    void onServiceConnectionConnect(JSCallbacksManager& callbacks,
                                    const EventInfoServiceConnection& info);
    void onServiceConnectionError(JSCallbacksManager& callbacks,
                                  const EventInfoServiceConnection& info);

    std::vector<std::weak_ptr<EventKvAgentAuthenticatePeerAgent>> m_pendingAuthentications;
    KvListenerBinding<EventKvAgentServiceConnectionListener> m_serviceConnection;
    KvListenerBinding<EventKvAgentPeerAgentFindListener> m_peerAgentFind;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
