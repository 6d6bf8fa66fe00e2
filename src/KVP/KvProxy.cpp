// The bridge's core: construction, the notification tables, agent
// registration, device attach and detach, and the soft reset.
#include "KvProxy.h"

#include "KvAgent.h"
#include "KvClientCall.h"
#include "KvConnectionDetector.h"
#include "KvFileTransfer.h"
#include "KvIdleCallback.h"
#include "KvManager.h"
#include "KvSocket.h"

#include <Logger.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

namespace DeviceAPI {
namespace KVP {

namespace {

kvp_notifications_t serviceNotifications() {
    kvp_notifications_t table;
    std::memset(&table, 0, sizeof table);
    table.onRegisterServiceAgentConfirm = kvp_OnRegisterServiceAgentConfirm;
    table.onDataIndication = kvp_OnDataIndication;
    table.onServiceConnectionIndication = kvp_OnServiceConnectionIndication;
    table.onServiceTerminationIndication = kvp_OnServiceTerminationIndication;
    table.onServiceCreateConfirm = kvp_OnServiceCreateConfirm;
    table.onPeerAgent = kvp_OnPeerAgent;
    table.onSpaceAvailable = kvp_OnSpaceAvailable;
    table.onError = kvp_OnError;
    table.onDeregisterServiceAgentConfirm = kvp_OnDeregisterServiceAgentConfirm;
    table.onDeviceStatus = kvp_OnDeviceStatus;
    table.onPeerAgentIndication = kvp_OnPeerAgentIndication;
    table.onAuthenticateIndication = kvp_OnAuthenticateIndication;
    return table;
}

kvp_ft_notifications_t fileTransferNotifications() {
    kvp_ft_notifications_t table;
    std::memset(&table, 0, sizeof table);
    table.onSendFile = kvp_OnSendFile;
    table.onSendComplete = kvp_OnSendComplete;
    table.onReceiveComplete = kvp_OnReceiveComplete;
    table.onFileProgress = kvp_OnFileProgress;
    return table;
}

void deregisterAgent(unsigned long agentId) {
    const int result = KvClientCall::call("deRegisterServiceAgent",
                                          [agentId] { return ::deRegisterServiceAgent(agentId); });
    KvClientCall::isKnownResult("deRegisterServiceAgent", result);
}

void terminateConnection(unsigned long connectionId) {
    const int result = KvClientCall::call("terminateServiceConnection", [connectionId] {
        return ::terminateServiceConnection(connectionId);
    });
    KvClientCall::isKnownResult("terminateServiceConnection", result);
}

}  // namespace

bool KvProxy::PeerAgentWrapperLess::operator()(const PeerAgentWrapperPtr& left,
                                               const PeerAgentWrapperPtr& right) const {
    const kvp_peer_agent_t* a = left != nullptr ? left->getPeerAgent() : nullptr;
    const kvp_peer_agent_t* b = right != nullptr ? right->getPeerAgent() : nullptr;
    if (a == nullptr || b == nullptr) {
        return a == nullptr && b != nullptr;
    }
    if (a->peerAgentId != b->peerAgentId) {
        return a->peerAgentId < b->peerAgentId;
    }
    return std::strcmp(a->peerId, b->peerId) < 0;
}

KvProxy::KvProxy() : agentList(std::make_shared<std::vector<KvAgentPtr>>()) {
    initialize();
    KvConnectionDetectorSingleton::Instance().registerReceiver(this);
    // Transaction ids of failed sends are drawn from rand(), seeded with the
    // time: they name a transfer and guard nothing, so a predictable
    // sequence is no weakness.
    // NOLINTNEXTLINE(bugprone-random-generator-seed)
    std::srand(static_cast<unsigned>(std::time(nullptr)));
}

// The detector was made by this constructor, so it outlives the bridge.
KvProxy::~KvProxy() { KvConnectionDetectorSingleton::Instance().unregisterReceiver(this); }

bool KvProxy::initialize() {
    connected = KvClientCall::call("isKvpConnected", [] { return isKvpConnected(); }) != 0;
    LoggerI("Currently connected : " << (connected ? 1 : 0));
    const int result = KvClientCall::call(
        "registerNotifications", [] { return registerNotifications(serviceNotifications()); });
    if (result != 0) {
        KvClientCall::isKnownResult("registerNotifications", result);
        return false;
    }
    LoggerI(">>>>>> ::registerFTNotifications()");
    registerFTNotifications(fileTransferNotifications());
    LoggerI(">>>>>> ::registerFTNotifications returns void");
    return true;
}

void KvProxy::finalize() {
    for (const auto& entry : sockets) {
        terminateConnection(entry.first);
    }
    sockets.clear();
    for (const auto& entry : agents) {
        deregisterAgent(entry.first);
    }
    agents.clear();
    pendingConnections.clear();
    KvClientCall::call("deregisterNotifications", [] { return deregisterNotifications(); });
}

void KvProxy::registerServiceAgent(const KvAgentPtr& agent, const KvAgentInitPtr& init) {
    LoggerI("called");
    registrationQueue.push(std::make_pair(agent, init));
    if (registrationQueue.size() != 1) {
        return;
    }
    if (!registerServiceAgentPriv(init)) {
        registrationQueue.pop();
        KvIdleCallback<KvAgent>::post(agent,
                                      [](KvAgent& target) { target.onRegisterServiceFailed(); });
    }
}

bool KvProxy::registerServiceAgentPriv(const KvAgentInitPtr& init) {
    const size_t length = init->id.size();
    std::unique_ptr<char[]> buffer(new char[length * 2 + 1]);
    std::memcpy(buffer.get(), init->id.c_str(), length + 1);
    const bool consumer = init->role != 0;
    const int result = KvClientCall::call("getRegisteredServiceAgent", [&buffer, consumer] {
        return getRegisteredServiceAgent(buffer.get(), consumer ? 1 : 0);
    });
    KvClientCall::isKnownResult("registerServiceAgent", result);
    return result == 0;
}

void KvProxy::OnRegisterServiceAgentConfirm(int result, unsigned long agentId) {
    KvClientCall::isKnownResult("OnRegisterServiceAgentConfirm", result);
    if (registrationQueue.empty()) {
        LoggerE("Queue size is 0");
        return;
    }
    const KvAgentPtr agent = registrationQueue.front().first;
    registrationQueue.pop();
    if (result != 0) {
        agent->onRegisterServiceFailed();
    } else {
        agents[agentId] = agent;
        KvIdleCallback<KvAgent>::post(
            agent, [agentId](KvAgent& target) { target.onRegisterServiceAgent(agentId); });
    }
    startNextRegistrations();
}

// Starts the registration at the front of the queue; an agent whose
// registration fails at once hears so directly, and the next one is tried.
void KvProxy::startNextRegistrations() {
    while (!registrationQueue.empty()) {
        LoggerI("go to next agent");
        if (registerServiceAgentPriv(registrationQueue.front().second)) {
            return;
        }
        const KvAgentPtr failed = registrationQueue.front().first;
        registrationQueue.pop();
        failed->onRegisterServiceFailed();
    }
}

void KvProxy::OnDeregisterServiceAgentConfirm() { LoggerI("called"); }

void KvProxy::setManager(const KvManagerPtr& newManager) { manager = newManager; }

KvManagerPtr KvProxy::getManager() const { return manager; }

void KvProxy::setAgentList(const KvAgentListPtr& list) { agentList = list; }

void KvProxy::onConnected() {
    if (connected) {
        return;
    }
    attachDevice();
}

void KvProxy::attachDevice() {
    finalize();
    initialize();
    const KvAgentListPtr list = agentList;
    for (const KvAgentPtr& agent : *list) {
        agent->onDeviceAttached();
    }
    if (manager != nullptr) {
        manager->onDeviceStatus(KV_TRANSPORT_BT, KV_DEVICE_ATTACHED);
    }
    connected = true;
}

void KvProxy::onDisconnected() {
    if (!connected) {
        return;
    }
    clearConnection();
    connected = false;
}

void KvProxy::clearConnection() {
    LoggerI("clearConnection");
    softResetingServices.clear();
    failFileTransfers();
    loseSockets();
    peerAgents.clear();
    detachAgents();
    if (manager != nullptr) {
        manager->onDeviceStatus(KV_TRANSPORT_BT, KV_DEVICE_DETACHED);
    }
}

// Every transfer in flight fails: a receive with code 2, a send with code 3.
void KvProxy::failFileTransfers() {
    const std::map<int, unsigned long> receives = std::move(receiveTransactions);
    receiveTransactions.clear();
    for (const auto& [transactionId, agentId] : receives) {
        const KvAgentPtr agent = findAgent(agentId);
        if (agent == nullptr) {
            LoggerE("No related KvAgent object");
        } else if (agent->getKvFileTransfer() == nullptr) {
            LoggerI("No KvFileTransfer object");
        } else {
            agent->getKvFileTransfer()->onFileReceiveError(KV_FILE_RECEIVE_PEER_CONN_LOST,
                                                           transactionId);
        }
    }
    const std::map<int, unsigned long> sends = std::move(sendTransactions);
    sendTransactions.clear();
    for (const auto& [transactionId, agentId] : sends) {
        const KvAgentPtr agent = findAgent(agentId);
        if (agent == nullptr) {
            LoggerE("No related KvAgent object");
        } else if (agent->getKvFileTransfer() == nullptr) {
            LoggerE("No KvFileTransfer object");
        } else {
            agent->getKvFileTransfer()->onFileSendError(KV_FILE_SEND_PEER_CONN_LOST, transactionId);
        }
    }
}

void KvProxy::loseSockets() {
    const std::map<unsigned long, KvSocketPtr> lost = sockets;
    sockets.clear();
    pendingConnections.clear();
    for (const auto& entry : lost) {
        entry.second->onConnectionLost(KV_SOCKET_DEVICE_DETACHED);
    }
}

void KvProxy::detachAgents() {
    const std::map<unsigned long, KvAgentPtr> detached = agents;
    agents.clear();
    for (const auto& [agentId, agent] : detached) {
        deregisterAgent(agentId);
        agent->onDeviceDetached();
    }
}

void KvProxy::softReset() {
    LoggerI("softReset");
    sendTransactions.clear();
    receiveTransactions.clear();
    const std::map<unsigned long, KvSocketPtr> open = sockets;
    sockets.clear();
    pendingConnections.clear();
    for (const auto& [connectionId, socket] : open) {
        if (!socket->isConnected()) {
            continue;
        }
        terminateConnection(connectionId);
        SoftResetingService record;
        record.connectionId = connectionId;
        const KvPeerAgentPtr peer = socket->getPeerAgent();
        record.peerAgentId = peer != nullptr ? peer->getPeerAgentId() : 0;
        softResetingServices.insert(record);
    }
    peerAgents.clear();
    const std::map<unsigned long, KvAgentPtr> registered = agents;
    for (const auto& entry : registered) {
        entry.second->onSoftReset();
    }
    if (manager != nullptr) {
        manager->onSoftReset();
    }
}

KvAgentPtr KvProxy::findAgent(unsigned long agentId) const {
    const auto found = agents.find(agentId);
    return found != agents.end() ? found->second : nullptr;
}

}  // namespace KVP
}  // namespace DeviceAPI
