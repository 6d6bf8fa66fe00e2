// A scripted stand-in for the accessory service's client library. It records
// every call with its arguments, answers with programmed results, and lets a
// test deliver any notification through the tables the code under test
// registered.
#ifndef KV_TESTS_KVP_CLIENT_DOUBLE_H
#define KV_TESTS_KVP_CLIENT_DOUBLE_H

#include <kvp-client-stub-api.h>

#include <map>
#include <string>
#include <vector>

namespace KvpDouble {

struct Call {
    std::string function;
    std::vector<std::string> args;
};

// Forgets every call, result, table and peer accessory; the device reads as
// detached.
void reset();

std::vector<Call> calls();
std::vector<Call> callsTo(const std::string& function);
size_t count(const std::string& function);
// The names of the calls, in order, leaving out those in `ignored`.
std::vector<std::string> callNames(const std::vector<std::string>& ignored = {});

// The result a function gives from now on (0 unless set).
void setResult(const std::string& function, int result);
// A result given once, before the standing one; queued results go first in order.
void queueResult(const std::string& function, int result);
void setConnected(int connected);
void setPeerAccessory(unsigned int accessoryId, const kvp_peer_accessory_t& accessory);

bool notificationsRegistered();
const kvp_notifications_t& notifications();
const kvp_ft_notifications_t& ftNotifications();

// A peer record that owns its texts.
class Peer {
public:
    Peer(unsigned int peerAgentId, std::string peerId, std::string profileId,
         std::string appName = "Peer app", std::string profileVersion = "2.0",
         std::string deviceName = "Peer device", unsigned int accessoryId = 1);
    Peer(const Peer& other);
    Peer& operator=(const Peer&) = delete;

    const kvp_peer_agent_t* get() const { return &m_record; }

private:
    void bind();

    std::string m_texts[5];
    kvp_peer_agent_t m_record{};
};

}  // namespace KvpDouble

#endif
