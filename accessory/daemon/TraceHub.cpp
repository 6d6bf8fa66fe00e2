#include "TraceHub.h"

#include <Logger.h>
#include <kv-accessory/TraceClock.h>

#include <vector>

namespace Kv {
namespace Accessory {

namespace {

// What a tracer may have waiting to be read before it is dropped.
constexpr std::size_t kTracerBacklog = std::size_t{4} * 1024 * 1024;

}  // namespace

void TraceHub::add(TracerId id, const std::shared_ptr<Channel>& channel, wire::TraceEvent first) {
    LoggerI("a tracer follows the service");
    m_tracers[id] = channel;
    send(id, *channel, std::move(first));
}

void TraceHub::emit(const wire::TraceEvent& event) {
    std::vector<std::pair<TracerId, std::shared_ptr<Channel>>> tracers(m_tracers.begin(),
                                                                       m_tracers.end());
    for (auto& [id, channel] : tracers) {
        send(id, *channel, event);
    }
}

void TraceHub::send(TracerId id, Channel& channel, wire::TraceEvent event) {
    event.set_time_us(traceClockMicros());
    event.set_device(m_deviceName);
    wire::ServiceMessage message;
    *message.mutable_event()->mutable_trace() = std::move(event);
    if (channel.queuedBytes() > kTracerBacklog || !channel.sendMessage(message)) {
        LoggerW("a tracer that does not keep up was dropped");
        m_tracers.erase(id);
        channel.close("the tracer does not keep up");
    }
}

}  // namespace Accessory
}  // namespace Kv
