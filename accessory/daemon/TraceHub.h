// The tools that follow a daemon live (kv-accessory trace): each gets every
// trace event on its session. Nothing is made for nobody: callers build an
// event only while active(). A tracer that can't keep up is dropped, so that
// a slow reader never holds up the apps or the link.
#ifndef KV_ACCESSORYD_TRACE_HUB_H
#define KV_ACCESSORYD_TRACE_HUB_H

#include <kv-accessory/Codec.h>

#include <asio.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "FramedChannel.h"

namespace Kv {
namespace Accessory {

class TraceHub {
public:
    using Channel = FramedChannel<asio::local::stream_protocol::socket>;
    using TracerId = std::uint64_t;

    explicit TraceHub(std::string deviceName) : m_deviceName(std::move(deviceName)) {}

    bool active() const { return !m_tracers.empty(); }

    // `first` goes to this tracer alone, before anything else it gets.
    void add(TracerId id, const std::shared_ptr<Channel>& channel, wire::TraceEvent first);
    void remove(TracerId id) { m_tracers.erase(id); }

    // Stamps the event with the time and the device and sends it to every
    // tracer.
    void emit(const wire::TraceEvent& event);

private:
    void send(TracerId id, Channel& channel, wire::TraceEvent event);

    std::string m_deviceName;
    std::map<TracerId, std::shared_ptr<Channel>> m_tracers;
};

}  // namespace Accessory
}  // namespace Kv

#endif
