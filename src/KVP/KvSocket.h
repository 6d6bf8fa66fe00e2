// One open service connection between a local agent and a remote peer agent.
// Made by the bridge when a connection is established; closed by the script
// or lost when the peer or the device goes.
#ifndef KVP_KV_SOCKET_H
#define KVP_KV_SOCKET_H

#include "KvPeerAgent.h"
#include "KvSocketEvents.h"

#include <Commons/EventReceiver.h>
#include <dpl/enable_shared_from_this.h>
#include <dpl/shared_ptr.h>

#include <cstdint>
#include <string>

namespace DeviceAPI {
namespace KVP {

class KvAgent;
typedef DPL::SharedPtr<KvAgent> KvAgentPtr;

class KvSocket
    : public WrtDeviceApis::Commons::EventRequestReceiver<EventKvSocketClose>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvSocketIsConnected>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvSocketSendData>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvSocketSendSecureData>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvSocketSetDataReceiveListener>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvSocketSetSocketStatusListener>,
      public DPL::EnableSharedFromThis<KvSocket> {
public:
    KvSocket();
    ~KvSocket() override;

    virtual KvAgentPtr getKvAgent() const { return agent; }
    virtual void setKvAgent(const KvAgentPtr& owner) { agent = owner; }
    virtual KvPeerAgentPtr getPeerAgent() const { return peerAgent; }
    virtual void setPeerAgent(const KvPeerAgentPtr& peer) { peerAgent = peer; }
    virtual unsigned long getConnectionId() const { return connectionId; }
    // Also marks the socket connected.
    virtual void setConnectionId(unsigned long id);

    // Notifications from the bridge.
    virtual void onReceive(unsigned long channelId, std::string data);
    virtual void onConnectionLost(int reason);
    virtual bool isConnected() const { return connected; }

protected:
    void OnRequestReceived(const DPL::SharedPtr<EventKvSocketClose>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvSocketIsConnected>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvSocketSendData>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvSocketSendSecureData>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvSocketSetDataReceiveListener>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvSocketSetSocketStatusListener>& event) override;

private:
    // The outcome code of sending `data` on `channelId` with `send`.
    template <class Event>
    void send(const DPL::SharedPtr<Event>& event, bool secure);
    bool hasChannel(uint16_t channelId) const;

    KvAgentPtr agent;
    KvPeerAgentPtr peerAgent;
    unsigned long connectionId = 0;
    KvSocketDataReceiveEmitterPtr dataReceiveEmitter;
    KvSocketStatusEmitterPtr socketStatusEmitter;
    bool connected = false;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
