#include "KvpClientDouble.h"

#include <algorithm>
#include <deque>
#include <mutex>

namespace KvpDouble {

namespace {

struct State {
    std::vector<Call> calls;
    std::map<std::string, int> results;
    std::map<std::string, std::deque<int>> queued;
    std::map<unsigned int, kvp_peer_accessory_t> accessories;
    int connected = 0;
    bool registered = false;
    kvp_notifications_t notifications{};
    kvp_ft_notifications_t ftNotifications{};
};

State& state() {
    static State instance;
    return instance;
}

std::string text(const char* value) { return value != nullptr ? value : "<null>"; }

std::string peerText(const kvp_peer_agent_t* peer) {
    return peer != nullptr ? std::to_string(peer->peerAgentId) : "<null>";
}

// Records the call and answers its result.
int answer(const std::string& function, std::vector<std::string> args) {
    State& s = state();
    s.calls.push_back({function, std::move(args)});
    auto queued = s.queued.find(function);
    if (queued != s.queued.end() && !queued->second.empty()) {
        const int result = queued->second.front();
        queued->second.pop_front();
        return result;
    }
    auto standing = s.results.find(function);
    return standing != s.results.end() ? standing->second : 0;
}

}  // namespace

void reset() { state() = State{}; }

std::vector<Call> calls() { return state().calls; }

std::vector<Call> callsTo(const std::string& function) {
    std::vector<Call> matching;
    for (const Call& call : state().calls) {
        if (call.function == function) {
            matching.push_back(call);
        }
    }
    return matching;
}

size_t count(const std::string& function) { return callsTo(function).size(); }

std::vector<std::string> callNames(const std::vector<std::string>& ignored) {
    std::vector<std::string> names;
    for (const Call& call : state().calls) {
        if (std::find(ignored.begin(), ignored.end(), call.function) == ignored.end()) {
            names.push_back(call.function);
        }
    }
    return names;
}

void setResult(const std::string& function, int result) { state().results[function] = result; }

void queueResult(const std::string& function, int result) {
    state().queued[function].push_back(result);
}

void setConnected(int connected) { state().connected = connected; }

void setPeerAccessory(unsigned int accessoryId, const kvp_peer_accessory_t& accessory) {
    state().accessories[accessoryId] = accessory;
}

bool notificationsRegistered() { return state().registered; }

const kvp_notifications_t& notifications() { return state().notifications; }

const kvp_ft_notifications_t& ftNotifications() { return state().ftNotifications; }

Peer::Peer(unsigned int peerAgentId, std::string peerId, std::string profileId, std::string appName,
           std::string profileVersion, std::string deviceName, unsigned int accessoryId)
    : m_texts{std::move(peerId), std::move(appName), std::move(profileId),
              std::move(profileVersion), std::move(deviceName)} {
    m_record.peerAgentId = peerAgentId;
    m_record.accessoryId = accessoryId;
    bind();
}

Peer::Peer(const Peer& other) : m_record(other.m_record) {
    std::copy(std::begin(other.m_texts), std::end(other.m_texts), std::begin(m_texts));
    bind();
}

void Peer::bind() {
    m_record.peerId = m_texts[0].data();
    m_record.appName = m_texts[1].data();
    m_record.profileId = m_texts[2].data();
    m_record.profileVersion = m_texts[3].data();
    m_record.deviceName = m_texts[4].data();
}

}  // namespace KvpDouble

using KvpDouble::answer;
using KvpDouble::peerText;
using KvpDouble::state;
using KvpDouble::text;

extern "C" {

int isKvpConnected(void) {
    answer("isKvpConnected", {});
    return state().connected;
}

int registerNotifications(kvp_notifications_t notifications) {
    const int result = answer("registerNotifications", {});
    if (result == 0) {
        state().notifications = notifications;
        state().registered = true;
    }
    return result;
}

void registerFTNotifications(kvp_ft_notifications_t notifications) {
    answer("registerFTNotifications", {});
    state().ftNotifications = notifications;
}

int deregisterNotifications(void) {
    state().registered = false;
    return answer("deregisterNotifications", {});
}

int getRegisteredServiceAgent(char* profileId, int isConsumer) {
    return answer("getRegisteredServiceAgent", {text(profileId), std::to_string(isConsumer)});
}

int deRegisterServiceAgent(unsigned int agentId) {
    return answer("deRegisterServiceAgent", {std::to_string(agentId)});
}

int findPeerAgent(unsigned int agentId) {
    return answer("findPeerAgent", {std::to_string(agentId)});
}

int createServiceConnection(unsigned int agentId, const kvp_peer_agent_t* peer) {
    return answer("createServiceConnection", {std::to_string(agentId), peerText(peer)});
}

int acceptServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* peer) {
    return answer("acceptServiceConnection",
                  {std::to_string(agentId), std::to_string(connectionId), peerText(peer)});
}

int rejectServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* peer) {
    return answer("rejectServiceConnection",
                  {std::to_string(agentId), std::to_string(connectionId), peerText(peer)});
}

int terminateServiceConnection(unsigned int connectionId) {
    return answer("terminateServiceConnection", {std::to_string(connectionId)});
}

int sendData(unsigned int connectionId, unsigned short channelId, unsigned int length,
             const char* data) {
    return answer("sendData", {std::to_string(connectionId), std::to_string(channelId),
                               std::to_string(length), std::string(data, length)});
}

int sendSecureData(unsigned int connectionId, unsigned short channelId, unsigned int length,
                   const char* data) {
    return answer("sendSecureData", {std::to_string(connectionId), std::to_string(channelId),
                                     std::to_string(length), std::string(data, length)});
}

int authenticatePeerAgent(unsigned int agentId, const kvp_peer_agent_t* peer) {
    return answer("authenticatePeerAgent", {std::to_string(agentId), peerText(peer)});
}

int pushFile(char* path, const kvp_peer_agent_t* peer, unsigned int agentId) {
    const bool terminated = path != nullptr && path[KVP_PATH_BUFFER_SIZE - 1] == '\0';
    return answer("pushFile", {text(path), peerText(peer), std::to_string(agentId),
                               terminated ? "terminated" : "unterminated"});
}

int receiveFile(int transactionId, char* path, int accept) {
    return answer("receiveFile",
                  {std::to_string(transactionId), text(path), std::to_string(accept)});
}

int cancelFile(int transactionId) { return answer("cancelFile", {std::to_string(transactionId)}); }

int getPeerAccessory(unsigned int accessoryId, kvp_peer_accessory_t* accessory) {
    const int result = answer("getPeerAccessory", {std::to_string(accessoryId)});
    auto found = state().accessories.find(accessoryId);
    if (result != 0 || accessory == nullptr || found == state().accessories.end()) {
        return result != 0 ? result : KVP_ERROR_INVALID;
    }
    *accessory = found->second;
    return 0;
}

}  // extern "C"
