// When each frame written to a shaped link may leave: frames take their turn
// on a link of the profile's bandwidth, one after the other, and then travel
// for the profile's latency (give or take its jitter) before the other end
// has them. Frames never overtake each other.
//
// The writer hands a frame over when the link is free (freeAt()), and writes
// it out at the time serialize() gives; the delay until then is the link's.
#ifndef KV_ACCESSORYD_LINK_SHAPER_H
#define KV_ACCESSORYD_LINK_SHAPER_H

#include <kv-accessory/LinkProfiles.h>

#include <chrono>
#include <random>

namespace Kv {
namespace Accessory {

class LinkShaper {
public:
    using Clock = std::chrono::steady_clock;

    explicit LinkShaper(const LinkProfile& profile);

    // When the link has sent what it was handed and can take the next frame.
    Clock::time_point freeAt() const { return m_freeAt; }
    // Puts a frame of `bytes` on the link at `now` (no earlier than freeAt())
    // and returns when it arrives at the other end.
    Clock::time_point serialize(std::size_t bytes, Clock::time_point now);

private:
    Clock::duration transmissionTime(std::size_t bytes) const;
    Clock::duration latencySample();

    std::uint64_t m_bandwidth;
    Clock::duration m_latency;
    Clock::duration m_jitter;
    std::minstd_rand m_random;
    Clock::time_point m_freeAt;
    Clock::time_point m_lastArrival;
};

}  // namespace Accessory
}  // namespace Kv

#endif
