// The trace events of several devices merged into one timeline in the
// trace-event JSON format that trace viewers open: a process per device,
// and in it a track for the link, one per app and one per connection; spans
// for connections and file transfers, a short slice for each message sent
// and delivered, with a flow arrow from each send to its delivery on the
// other device; the rest as instants.
#ifndef KV_ACCESSORY_TRACE_TIMELINE_H
#define KV_ACCESSORY_TRACE_TIMELINE_H

#include <kv-accessory/Codec.h>

#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

struct TimelineSummary {
    std::size_t devices = 0;
    std::size_t connections = 0;
    std::size_t transfers = 0;
    std::size_t messages = 0;  // sends paired with their delivery
    std::size_t unpaired = 0;  // sends or deliveries whose other end is not in the traces
};

// The timeline of `events` (of any devices, in any order), as one JSON
// document; `summary`, when given, counts what it holds.
std::string timelineJson(std::vector<wire::TraceEvent> events, TimelineSummary* summary = nullptr);

}  // namespace Accessory
}  // namespace Kv

#endif
