#include "LinkShaper.h"

#include <algorithm>

namespace Kv {
namespace Accessory {

LinkShaper::LinkShaper(const LinkProfile& profile)
    : m_bandwidth(profile.bandwidth),
      m_latency(profile.latency),
      m_jitter(profile.jitter),
      m_random(std::random_device{}()) {}

LinkShaper::Clock::time_point LinkShaper::serialize(std::size_t bytes, Clock::time_point now) {
    const Clock::time_point start = std::max(now, m_freeAt);
    m_freeAt = start + transmissionTime(bytes);
    m_lastArrival = std::max(m_freeAt + latencySample(), m_lastArrival);
    return m_lastArrival;
}

LinkShaper::Clock::duration LinkShaper::transmissionTime(std::size_t bytes) const {
    if (m_bandwidth == 0) {
        return Clock::duration::zero();
    }
    const auto nanoseconds = static_cast<std::int64_t>(static_cast<double>(bytes) * 1e9 /
                                                       static_cast<double>(m_bandwidth));
    return std::chrono::duration_cast<Clock::duration>(std::chrono::nanoseconds(nanoseconds));
}

LinkShaper::Clock::duration LinkShaper::latencySample() {
    if (m_jitter.count() == 0) {
        return m_latency;
    }
    std::uniform_int_distribution<Clock::rep> spread(-m_jitter.count(), m_jitter.count());
    return std::max(Clock::duration::zero(), m_latency + Clock::duration(spread(m_random)));
}

}  // namespace Accessory
}  // namespace Kv
