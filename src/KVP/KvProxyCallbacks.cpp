// The functions of the service notification table that the client library
// calls: each logs, hands the notification to the proxy's handler (routed in
// KvProxyRouting.cpp) and never lets an exception out into the library. The
// file-transfer table's functions live with the file-transfer bridge.
#include "KvProxy.h"

#include <Logger.h>

#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <string>

namespace DeviceAPI {
namespace KVP {

namespace {

// Every function below runs its handler through the proxy's routing.
const auto route = &KvProxy::routeNotification;

const char* printable(const char* text) { return text != nullptr ? text : "<NULL>"; }

// Logs a peer record's texts and hands the handler a copy of it.
std::shared_ptr<kvp_peer_agent_t> copyPeer(const kvp_peer_agent_t* peer) {
    if (peer == nullptr) {
        return nullptr;
    }
    LoggerI("peer agent " << peer->peerAgentId << " : " << printable(peer->peerId) << ", "
                          << printable(peer->appName) << ", " << printable(peer->profileId) << ", "
                          << printable(peer->profileVersion) << ", "
                          << printable(peer->deviceName));
    return std::shared_ptr<kvp_peer_agent_t>(PeerAgentWrapper::duplicate(peer),
                                             PeerAgentWrapper::release);
}

}  // namespace

void KvProxy::routeNotification(const char* handler, const std::function<void(KvProxy&)>& call) {
    LoggerI("<<<<<< " << handler);
    try {
        call(KvProxySingleton::Instance());
    } catch (const std::exception& exception) {
        LoggerE(handler << " failed: " << exception.what());
    }
    LoggerI("<<<<<< done");
}

void kvp_OnRegisterServiceAgentConfirm(int result, unsigned int agentId) {
    route("OnRegisterServiceAgentConfirm",
          [=](KvProxy& proxy) { proxy.OnRegisterServiceAgentConfirm(result, agentId); });
}

void kvp_OnDataIndication(unsigned int connectionId, unsigned short channelId, unsigned int length,
                          const char* data) {
    route("OnDataIndication", [=](KvProxy& proxy) {
        std::unique_ptr<char[]> text(new char[length + 1]);
        if (length > 0 && data != nullptr) {
            std::memcpy(text.get(), data, length);
        }
        text[length] = '\0';
        proxy.OnDataIndication(connectionId, channelId, length, text.get());
    });
}

void kvp_OnServiceConnectionIndication(unsigned int agentId, unsigned int connectionId,
                                       const kvp_peer_agent_t* peer) {
    route("OnServiceConnectionIndication", [=](KvProxy& proxy) {
        proxy.OnServiceConnectionIndication(agentId, connectionId, copyPeer(peer).get());
    });
}

void kvp_OnServiceTerminationIndication(unsigned int connectionId, int reason) {
    route("OnServiceTerminationIndication",
          [=](KvProxy& proxy) { proxy.OnServiceTerminationIndication(connectionId, reason); });
}

void kvp_OnServiceCreateConfirm(unsigned int agentId, unsigned int connectionId,
                                const kvp_peer_agent_t* peer, int status) {
    route("OnServiceCreateConfirm", [=](KvProxy& proxy) {
        proxy.OnServiceCreateConfirm(agentId, connectionId, copyPeer(peer).get(), status);
    });
}

void kvp_OnPeerAgent(unsigned int agentId, const kvp_peer_agent_t* peer, int status) {
    route("OnPeerAgent",
          [=](KvProxy& proxy) { proxy.OnPeerAgent(agentId, copyPeer(peer).get(), status); });
}

void kvp_OnSpaceAvailable(unsigned int /*connectionId*/, unsigned short /*channelId*/) {
    LoggerI("<<<<<< OnSpaceAvailable");
}

void kvp_OnError(unsigned int value, int errorCode) {
    route("OnError", [=](KvProxy& proxy) { proxy.OnError(value, errorCode); });
}

void kvp_OnDeregisterServiceAgentConfirm(int /*result*/, unsigned int /*agentId*/) {
    route("OnDeregisterServiceAgentConfirm",
          [](KvProxy& proxy) { proxy.OnDeregisterServiceAgentConfirm(); });
}

void kvp_OnDeviceStatus(int deviceType, int status) {
    route("OnDeviceStatus", [=](KvProxy& proxy) { proxy.OnDeviceStatus(deviceType, status); });
}

void kvp_OnPeerAgentIndication(unsigned int agentId, const kvp_peer_agent_t* peer, int status) {
    route("OnPeerAgentIndication", [=](KvProxy& proxy) {
        proxy.OnPeerAgentIndication(agentId, copyPeer(peer).get(), status);
    });
}

void kvp_OnAuthenticateIndication(unsigned int agentId, const kvp_peer_agent_t* peer,
                                  const char* token, int status) {
    route("OnAuthenticateIndication", [=](KvProxy& proxy) {
        proxy.OnAuthenticateIndication(agentId, copyPeer(peer).get(), token, status);
    });
}

}  // namespace KVP
}  // namespace DeviceAPI
