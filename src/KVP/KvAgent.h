// One local service agent of the application, made from one service-profile
// entry. It registers itself with the accessory service lazily, through the
// bridge's registration queue, and its state machine decides for every request
// and notification whether to register, to search for peer agents or to
// report an error.
#ifndef KVP_KV_AGENT_H
#define KVP_KV_AGENT_H

#include "KvAgentEvents.h"
#include "KvAgentInit.h"

#include <Commons/EventReceiver.h>
#include <dpl/enable_shared_from_this.h>
#include <dpl/shared_ptr.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace DeviceAPI {
namespace KVP {

class KvAgent
    : public WrtDeviceApis::Commons::EventRequestReceiver<EventKvAgentRequestServiceConnection>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvAgentSetServiceConnectionListener>,
      public WrtDeviceApis::Commons::EventRequestReceiver<
          EventKvAgentAcceptServiceConnectionRequest>,
      public WrtDeviceApis::Commons::EventRequestReceiver<
          EventKvAgentRejectServiceConnectionRequest>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvAgentFindPeerAgents>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvAgentSetPeerAgentFindListener>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvAgentAuthenticatePeerAgent>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvAgentGetKvFileTransfer>,
      public DPL::EnableSharedFromThis<KvAgent> {
public:
    // The registration and search states.
    enum State {
        STATE_IDLE = 0,
        STATE_REGISTERING = 1,
        STATE_REGISTERING_FOR_SEARCH = 2,
        STATE_READY = 3,
        STATE_SEARCHING = 4,
        STATE_FAILED = 5,
    };

    explicit KvAgent(const KvAgentInitPtr& init);
    ~KvAgent() override;

    const KvAgentInitPtr& getAgentInit() const { return agentInit; }
    uint32_t getAgentId() const { return agentId; }
    int getState() const { return state; }
    std::string getId() const { return agentInit->id; }
    std::string getName() const { return agentInit->name; }
    int getRole() const { return agentInit->role; }
    std::vector<uint16_t> getChannelIds() const;
    // The agent's file transfer, or null until one is asked for.
    virtual KvFileTransferPtr getKvFileTransfer() const { return fileTransfer; }

    // Notifications from the bridge.
    virtual void onFindPeerAgentFound(const KvPeerAgentPtr& peerAgent);
    virtual void onFindPeerAgentUpdated(const KvPeerAgentPtr& peerAgent, bool available);
    virtual void onFindPeerAgentError(int errorCode);
    virtual void onRequest(const KvPeerAgentPtr& peerAgent);
    virtual void onConnect(const KvSocketPtr& socket);
    virtual void onError(int errorCode);
    virtual void onAuthenticateResponse(const KvPeerAgentPtr& peerAgent, const std::string& token);
    virtual void onAuthenticateError(const KvPeerAgentPtr& peerAgent, int errorCode);
    virtual void onRegisterServiceAgent(unsigned long id);
    virtual void onRegisterServiceFailed();
    virtual void onDeviceAttached();
    virtual void onDeviceDetached();
    virtual void onRequestRegisterServiceAgent();
    // Forgets the registration and returns to the idle state.
    virtual void onSoftReset();

protected:
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvAgentRequestServiceConnection>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvAgentSetServiceConnectionListener>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvAgentAcceptServiceConnectionRequest>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvAgentRejectServiceConnectionRequest>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvAgentFindPeerAgents>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvAgentSetPeerAgentFindListener>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvAgentGetKvFileTransfer>& event) override;

private:
    typedef DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent> AuthenticationPtr;

    void registerAgent();
    void reportSearchError(int errorCode);
    void reportConnectionError(int errorCode);
    void emitPeerAgentFind(const DPL::SharedPtr<EventInfoPeerAgentFind>& info);
    void emitServiceConnection(const DPL::SharedPtr<EventInfoServiceConnection>& info);
    bool isRegistered() const;
    AuthenticationPtr takePendingAuthentication(const KvPeerAgentPtr& peerAgent);
    void answerAuthentication(const AuthenticationPtr& event);

    KvAgentInitPtr agentInit;
    uint32_t agentId = 0;
    int32_t state = STATE_IDLE;
    KvAgentServiceConnectionEmitterPtr serviceConnectionEmitter;
    KvAgentPeerAgentFindEmitterPtr peerAgentFindEmitter;
    std::set<AuthenticationPtr> pendingAuthentications;
    KvFileTransferPtr fileTransfer;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
