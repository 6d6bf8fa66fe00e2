// The bridge's peer, connection, data and authentication operations, and the
// routing of the library's notifications about them.
#include "KvAgent.h"
#include "KvClientCall.h"
#include "KvIdleCallback.h"
#include "KvProxy.h"
#include "KvSocket.h"

#include <Logger.h>

#include <cstring>
#include <memory>
#include <string>

namespace DeviceAPI {
namespace KVP {

namespace {

void postFindError(const KvAgentPtr& agent, int code) {
    KvIdleCallback<KvAgent>::post(agent,
                                  [code](KvAgent& target) { target.onFindPeerAgentError(code); });
}

void postConnectionError(const KvAgentPtr& agent, int code) {
    KvIdleCallback<KvAgent>::post(agent, [code](KvAgent& target) { target.onError(code); });
}

// The connection error code of a failed connection status.
int connectionErrorOf(int status) {
    switch (status) {
        case KVP_CONNECTION_ALREADY_EXISTS:
            return KV_CONNECTION_ALREADY_EXIST;
        case KVP_CONNECTION_DEVICE_UNREACHABLE:
            return KV_CONNECTION_DEVICE_UNREACHABLE;
        case KVP_CONNECTION_INVALID_PEER_AGENT:
            return KV_CONNECTION_INVALID_PEERAGENT;
        case KVP_CONNECTION_NETWORK_ERROR:
            return KV_CONNECTION_NETWORK_ERROR;
        case KVP_CONNECTION_NO_RESPONSE:
            return KV_CONNECTION_PEERAGENT_NO_RESPONSE;
        case KVP_CONNECTION_REJECTED:
            return KV_CONNECTION_PEERAGENT_REJECTED;
        default:
            LoggerW("Connection Failed with wrong status : " << status);
            return KV_CONNECTION_PEERAGENT_REJECTED;
    }
}

}  // namespace

KvPeerAgentPtr KvProxy::getPeerAgent(const kvp_peer_agent_t* peer) {
    auto wrapper = std::make_shared<PeerAgentWrapper>(peer, false);
    const auto known = peerAgents.find(wrapper);
    if (known != peerAgents.end()) {
        return known->second;
    }
    KvPeerAgentPtr peerAgent = makePeerAgent(wrapper);
    peerAgents[wrapper] = peerAgent;
    return peerAgent;
}

// A new peer agent for the record, with what the service tells of its device.
KvPeerAgentPtr KvProxy::makePeerAgent(const PeerAgentWrapperPtr& wrapper) {
    const kvp_peer_agent_t* record = wrapper->getPeerAgent();
    kvp_peer_accessory_t accessory{};
    const unsigned int accessoryId = record != nullptr ? record->accessoryId : 0;
    const int result = KvClientCall::call("getPeerAccessory", [accessoryId, &accessory] {
        return getPeerAccessory(accessoryId, &accessory);
    });
    KvClientCall::isKnownResult("getPeerAccessory", result);
    if (result != KVP_SUCCESS) {
        accessory = kvp_peer_accessory_t{};
    }
    accessory.deviceAddress[sizeof accessory.deviceAddress - 1] = '\0';
    accessory.productId[sizeof accessory.productId - 1] = '\0';
    accessory.vendorId[sizeof accessory.vendorId - 1] = '\0';
    auto peerAccessory = std::make_shared<KvPeerAccessory>(
        accessory.deviceAddress, record != nullptr ? record->deviceName : "", accessory.productId,
        accessory.transportType, accessory.vendorId);
    return std::make_shared<KvPeerAgent>(wrapper, peerAccessory, accessory.maxAllowedDataSize);
}

void KvProxy::findPeerAgent(const KvAgentPtr& agent) {
    LoggerI("called");
    const unsigned int agentId = agent->getAgentId();
    const int result =
        KvClientCall::call("findPeerAgent", [agentId] { return ::findPeerAgent(agentId); });
    if (result != KVP_SUCCESS) {
        KvClientCall::isKnownResult("findPeerAgent", result);
        postFindError(agent, KV_FIND_DEVICE_NOT_CONNECTED);
    }
}

void KvProxy::OnPeerAgent(unsigned long agentId, const kvp_peer_agent_t* peer, int status) {
    if (status > KVP_SEARCH_ENDED) {
        LoggerW("onPeerAgent gives wrong status code : " << status);
    }
    if (status >= KVP_SEARCH_NO_DEVICE && status <= KVP_SEARCH_TIMED_OUT) {
        LoggerI("Failed to find PeerAgent");
        const KvAgentPtr agent = findAgent(agentId);
        if (agent == nullptr) {
            LoggerE("localAgentId:" << agentId << " is not exist.");
            return;
        }
        agent->onFindPeerAgentError(status == KVP_SEARCH_NO_DEVICE ? KV_FIND_DEVICE_NOT_CONNECTED
                                                                   : KV_FIND_PEER_NOT_FOUND);
        return;
    }
    if (status != KVP_SEARCH_FOUND) {
        return;
    }
    LoggerI("PeerAgents are found.");
    const KvPeerAgentPtr peerAgent = getPeerAgent(peer);
    const KvAgentPtr agent = findAgent(agentId);
    if (agent == nullptr) {
        LoggerE("localAgentId:" << agentId << " is not exist.");
        return;
    }
    agent->onFindPeerAgentFound(peerAgent);
}

void KvProxy::OnPeerAgentIndication(unsigned long agentId, const kvp_peer_agent_t* peer,
                                    int status) {
    const KvAgentPtr agent = findAgent(agentId);
    if (agent == nullptr) {
        return;
    }
    const KvPeerAgentPtr peerAgent = getPeerAgent(peer);
    if (status != KVP_PEER_AVAILABLE && status != KVP_PEER_GONE) {
        LoggerW("Status changed to wrong state.");
        return;
    }
    agent->onFindPeerAgentUpdated(peerAgent, status == KVP_PEER_AVAILABLE);
}

void KvProxy::requestServiceConnection(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent) {
    LoggerI("called");
    for (const SoftResetingService& record : softResetingServices) {
        if (record.peerAgentId != peerAgent->getPeerAgentId()) {
            continue;
        }
        LoggerI("softReset is not completed");
        SoftResetingService deferred = record;
        deferred.agent = agent;
        deferred.peerAgent = peerAgent;
        softResetingServices.erase(record);
        softResetingServices.insert(deferred);
        return;
    }
    requestServiceConnectionPriv(agent, peerAgent);
}

void KvProxy::requestServiceConnectionPriv(const KvAgentPtr& agent,
                                           const KvPeerAgentPtr& peerAgent) {
    LoggerI("called");
    if (hasOpenConnectionTo(peerAgent)) {
        postConnectionError(agent, KV_CONNECTION_ALREADY_EXIST);
        return;
    }
    const unsigned int agentId = agent->getAgentId();
    const kvp_peer_agent_t* record = peerAgent->getRecord();
    const int result = KvClientCall::call("createServiceConnection", [agentId, record] {
        return createServiceConnection(agentId, record);
    });
    KvClientCall::isKnownResult("createServiceConnection", result);
    if (result == KVP_ERROR_GENERAL) {
        postConnectionError(agent, KV_CONNECTION_DEVICE_UNREACHABLE);
    }
}

bool KvProxy::hasOpenConnectionTo(const KvPeerAgentPtr& peerAgent) const {
    const auto pending = pendingConnections.find(peerAgent->getPeerAgentId());
    return pending != pendingConnections.end() && sockets.count(pending->second) != 0;
}

KvSocketPtr KvProxy::openSocket(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent,
                                unsigned long connectionId) {
    auto socket = std::make_shared<KvSocket>();
    socket->setKvAgent(agent);
    socket->setPeerAgent(peerAgent);
    socket->setConnectionId(connectionId);
    pendingConnections[peerAgent->getPeerAgentId()] = connectionId;
    sockets[connectionId] = socket;
    return socket;
}

void KvProxy::OnServiceCreateConfirm(unsigned long agentId, unsigned long connectionId,
                                     const kvp_peer_agent_t* peer, int status) {
    const KvAgentPtr agent = findAgent(agentId);
    if (agent == nullptr) {
        return;
    }
    if (status != KVP_CONNECTION_MADE) {
        agent->onError(connectionErrorOf(status));
        return;
    }
    const KvPeerAgentPtr peerAgent = getPeerAgent(peer);
    agent->onConnect(openSocket(agent, peerAgent, connectionId));
}

void KvProxy::OnServiceConnectionIndication(unsigned long agentId, unsigned long connectionId,
                                            const kvp_peer_agent_t* peer) {
    const KvAgentPtr agent = findAgent(agentId);
    if (agent == nullptr) {
        return;
    }
    const KvPeerAgentPtr peerAgent = getPeerAgent(peer);
    indicatedConnectionId = connectionId;
    agent->onRequest(peerAgent);
    indicatedConnectionId = 0;
}

// Answers the connection indication being delivered with the library
// function `answer`; false, with nothing sent, when none is being delivered.
bool KvProxy::answerIndication(const char* name, IndicationAnswer answer, const KvAgentPtr& agent,
                               const KvPeerAgentPtr& peerAgent, int& result) {
    LoggerI("called");
    if (indicatedConnectionId == 0) {
        return false;
    }
    const unsigned int agentId = agent->getAgentId();
    const unsigned long connectionId = indicatedConnectionId;
    const kvp_peer_agent_t* record = peerAgent->getRecord();
    result = KvClientCall::call(name, [=] { return answer(agentId, connectionId, record); });
    return true;
}

void KvProxy::acceptServiceConnection(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent) {
    const unsigned long connectionId = indicatedConnectionId;
    int result = 0;
    if (!answerIndication("acceptServiceConnection", ::acceptServiceConnection, agent, peerAgent,
                          result)) {
        return;
    }
    if (result != KVP_SUCCESS) {
        LoggerE("acceptServiceConnection returns failure");
        KvClientCall::isKnownResult("acceptServiceConnection", result);
        postConnectionError(agent, KV_CONNECTION_DEVICE_UNREACHABLE);
        return;
    }
    const KvSocketPtr socket = openSocket(agent, peerAgent, connectionId);
    KvIdleCallback<KvAgent>::post(agent, [socket](KvAgent& target) { target.onConnect(socket); });
}

void KvProxy::rejectServiceConnection(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent) {
    int result = 0;
    if (answerIndication("rejectServiceConnection", ::rejectServiceConnection, agent, peerAgent,
                         result)) {
        KvClientCall::isKnownResult("rejectServiceConnection", result);
    }
}

void KvProxy::authenticatePeerAgent(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent) {
    LoggerI("called");
    const unsigned int agentId = agent->getAgentId();
    const kvp_peer_agent_t* record = peerAgent->getRecord();
    const int result = KvClientCall::call("authenticatePeerAgent", [agentId, record] {
        return ::authenticatePeerAgent(agentId, record);
    });
    KvClientCall::isKnownResult("authenticatePeerAgent", result);
    if (result != KVP_SUCCESS) {
        KvIdleCallback<KvAgent>::post(
            agent, [peerAgent](KvAgent& target) { target.onAuthenticateError(peerAgent, 0); });
    }
}

void KvProxy::OnAuthenticateIndication(unsigned long agentId, const kvp_peer_agent_t* peer,
                                       const char* token, int status) {
    const KvAgentPtr agent = findAgent(agentId);
    if (agent == nullptr) {
        return;
    }
    if (peer == nullptr) {
        LoggerE("peerAgent is NULL");
        return;
    }
    const KvPeerAgentPtr peerAgent = getPeerAgent(peer);
    if (token == nullptr || status != KVP_AUTHENTICATED) {
        LoggerE("Failed to authenticate");
        agent->onAuthenticateError(peerAgent, 0);
        return;
    }
    LoggerI("Succeeded to authenticate");
    agent->onAuthenticateResponse(peerAgent, token);
}

int KvProxy::sendData(const KvSocketPtr& socket, uint16_t channelId, const std::string& data) {
    return sendDataWith("sendData", socket, channelId, data, ::sendData);
}

int KvProxy::sendSecureData(const KvSocketPtr& socket, uint16_t channelId,
                            const std::string& data) {
    return sendDataWith("sendSecureData", socket, channelId, data, ::sendSecureData);
}

int KvProxy::sendDataWith(const char* name, const KvSocketPtr& socket, uint16_t channelId,
                          const std::string& data,
                          int (*send)(unsigned int, unsigned short, unsigned int, const char*)) {
    LoggerI("called");
    const unsigned long connectionId = socket->getConnectionId();
    const int result = KvClientCall::call(name, [&] {
        return send(connectionId, channelId, static_cast<unsigned int>(data.size()), data.data());
    });
    if (result > KvClientCall::kHighestSendResult) {
        LoggerE("Wrong result");
    }
    return result;
}

// The text ends at the copy's first zero byte, within its length.
void KvProxy::OnDataIndication(unsigned long connectionId, unsigned short channelId,
                               unsigned int length, const char* text) {
    const auto found = sockets.find(connectionId);
    if (found == sockets.end()) {
        return;
    }
    found->second->onReceive(
        channelId, text != nullptr ? std::string(text, strnlen(text, length)) : std::string());
}

bool KvProxy::terminateServiceConnection(const KvSocketPtr& socket) {
    LoggerI("called");
    const unsigned long connectionId = socket->getConnectionId();
    if (sockets.count(connectionId) == 0) {
        return true;
    }
    const int result = KvClientCall::call("terminateServiceConnection", [connectionId] {
        return ::terminateServiceConnection(connectionId);
    });
    KvClientCall::isKnownResult("terminateServiceConnection", result);
    return result == KVP_SUCCESS;
}

void KvProxy::OnServiceTerminationIndication(unsigned long connectionId, int reason) {
    for (const SoftResetingService& record : softResetingServices) {
        if (record.connectionId != connectionId) {
            continue;
        }
        // Taken out of the record before it is erased.
        const auto agent = record.agent;
        const auto peerAgent = record.peerAgent;
        softResetingServices.erase(record);
        if (agent != nullptr && peerAgent != nullptr) {
            LoggerI("serviceConnectionRequest set while softReset");
            requestServiceConnectionPriv(agent, peerAgent);
        }
        break;
    }
    const auto found = sockets.find(connectionId);
    if (found == sockets.end()) {
        return;
    }
    forgetPendingConnection(connectionId);
    if (reason < KVP_TERMINATION_CLOSED || reason > KVP_TERMINATION_UNKNOWN) {
        LoggerW("on error with wrong error code : " << reason);
        reason = KVP_TERMINATION_UNKNOWN;
    }
    const KvSocketPtr socket = found->second;
    socket->onConnectionLost(reason);
}

void KvProxy::forgetPendingConnection(unsigned long connectionId) {
    for (auto entry = pendingConnections.begin(); entry != pendingConnections.end(); ++entry) {
        if (entry->second == connectionId) {
            pendingConnections.erase(entry);
            return;
        }
    }
}

void KvProxy::OnDeviceStatus(int deviceType, int status) {
    if (deviceType != KVP_DEVICE_TYPE_BT && deviceType != KVP_DEVICE_TYPE_BLE &&
        deviceType != KVP_DEVICE_TYPE_USB && deviceType != KVP_DEVICE_TYPE_WIFI) {
        LoggerW("Device status changed wrong device type");
    }
    if (status == KVP_DEVICE_ATTACHED) {
        onConnected();
    } else if (status == KVP_DEVICE_DETACHED) {
        onDisconnected();
    } else {
        LoggerW("Status changed to wrong state.");
    }
}

void KvProxy::OnError(unsigned long /*value*/, int errorCode) {
    if (errorCode > 1) {
        LoggerW("on error with wrong error code : " << errorCode);
    }
    onDisconnected();
}

}  // namespace KVP
}  // namespace DeviceAPI
