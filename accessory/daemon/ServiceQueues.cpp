// What each channel of each connection has queued for the link. A channel
// may hold about a second of the link's bandwidth (LinkProfile): beyond it a
// send is refused, and its app is told, once the channel has drained to
// half, that there is room again. Data still queued when the link goes down
// never reached the other device; its app is told so before the detach.
#include <Logger.h>

#include "Service.h"

namespace Kv {
namespace Accessory {

std::uint64_t Service::channelTag(std::uint32_t connectionId, std::uint32_t channelId) {
    return static_cast<std::uint64_t>(connectionId) << 16 | (channelId & 0xffffu);
}

// A channel that filled up stays full until it has drained to half: a
// sender that topped it up whenever a send had left would never let its app
// hear of room.
bool Service::channelFull(std::uint32_t connectionId, std::uint32_t channelId) {
    auto found = m_channelQueues.find(channelTag(connectionId, channelId));
    if (found == m_channelQueues.end() ||
        (!found->second.full && found->second.bytes < m_profile.channelQueueBytes())) {
        return false;
    }
    found->second.refused = true;
    return true;
}

void Service::queuedOnChannel(SessionId id, std::uint64_t tag, std::size_t bytes) {
    ChannelQueue& queue = m_channelQueues[tag];
    queue.session = id;
    queue.sends.push_back(bytes);
    queue.bytes += bytes;
    if (!queue.full && queue.bytes >= m_profile.channelQueueBytes()) {
        queue.full = true;
        wire::Event event;
        event.mutable_channel_full()->set_connection_id(static_cast<std::uint32_t>(tag >> 16));
        event.mutable_channel_full()->set_channel_id(static_cast<std::uint32_t>(tag & 0xffffu));
        notify(id, event);
    }
}

void Service::onLinkWritten(std::uint64_t tag) {
    auto found = m_channelQueues.find(tag);
    if (found == m_channelQueues.end() || found->second.sends.empty()) {
        return;  // its connection has ended meanwhile
    }
    ChannelQueue& queue = found->second;
    queue.bytes -= queue.sends.front();
    queue.sends.pop_front();
    if (queue.full && queue.bytes <= m_profile.channelQueueBytes() / 2) {
        wire::Event event;
        auto* room = event.mutable_channel_room();
        room->set_connection_id(static_cast<std::uint32_t>(tag >> 16));
        room->set_channel_id(static_cast<std::uint32_t>(tag & 0xffffu));
        room->set_refused(queue.refused);
        queue.full = queue.refused = false;
        notify(queue.session, event);
    }
    if (queue.sends.empty() && !queue.full) {
        m_channelQueues.erase(found);
    }
}

void Service::forgetChannelQueues(std::uint32_t connectionId) {
    m_channelQueues.erase(m_channelQueues.lower_bound(channelTag(connectionId, 0)),
                          m_channelQueues.upper_bound(channelTag(connectionId, 0xffffu)));
}

std::vector<std::pair<SessionId, wire::Event>> Service::takeLostData() {
    std::vector<std::pair<SessionId, wire::Event>> reports;
    std::uint32_t reported = 0;
    for (const auto& [tag, queue] : m_channelQueues) {
        const auto connectionId = static_cast<std::uint32_t>(tag >> 16);
        if (queue.bytes == 0 || connectionId == reported) {
            continue;
        }
        reported = connectionId;
        LoggerW("connection " << connectionId << ": " << queue.bytes
                              << " bytes of data had not left when the link went down");
        wire::Event event;
        event.mutable_service_error()->set_value(connectionId);
        event.mutable_service_error()->set_code(wire::SERVICE_ERROR_DATA_LOST);
        reports.emplace_back(queue.session, std::move(event));
    }
    m_channelQueues.clear();
    return reports;
}

}  // namespace Accessory
}  // namespace Kv
