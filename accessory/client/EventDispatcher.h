// Turns the service's events into calls of the app's notification tables.
// The tables are kept by value; an empty slot drops its events.
#ifndef KVP_CLIENT_EVENT_DISPATCHER_H
#define KVP_CLIENT_EVENT_DISPATCHER_H

#include <kv-accessory/Codec.h>
#include <kvp-client-stub-api.h>

namespace Kv {
namespace Accessory {

class EventDispatcher {
public:
    EventDispatcher();

    void setNotifications(const kvp_notifications_t& table) { m_service = table; }
    void setFileNotifications(const kvp_ft_notifications_t& table) { m_files = table; }
    void clear();

    // Calls the callback of `event`, if the app gave one.
    void deliver(const wire::Event& event) const;

private:
    void deliverConnection(const wire::Event& event) const;
    void deliverPeer(const wire::Event& event) const;
    void deliverFile(const wire::Event& event) const;

    kvp_notifications_t m_service;
    kvp_ft_notifications_t m_files;
};

// A peer record of the wire as the C record, valid while the holder lives.
class PeerRecordHolder {
public:
    explicit PeerRecordHolder(const wire::PeerAgent& peer);
    PeerRecordHolder(const PeerRecordHolder&) = delete;
    PeerRecordHolder& operator=(const PeerRecordHolder&) = delete;
    const kvp_peer_agent_t* get() const { return &m_record; }

private:
    wire::PeerAgent m_peer;
    kvp_peer_agent_t m_record;
};

// The wire form of an app's peer record; null texts become empty ones.
wire::PeerAgent toWirePeer(const kvp_peer_agent_t& peer);

}  // namespace Accessory
}  // namespace Kv

#endif
