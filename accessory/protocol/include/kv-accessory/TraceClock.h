// The clock of traces: microseconds since the epoch. The client library
// stamps each send with it, and every device's daemon stamps its trace
// events, so that the time from a send to its delivery can be told across
// devices (whose clocks must agree for that; on one machine they do).
#ifndef KV_ACCESSORY_TRACE_CLOCK_H
#define KV_ACCESSORY_TRACE_CLOCK_H

#include <chrono>
#include <cstdint>

namespace Kv {
namespace Accessory {

inline std::uint64_t traceClockMicros() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

}  // namespace Accessory
}  // namespace Kv

#endif
