// The kinds of link an emulated pair of devices can have. A pair is started
// with one profile; each daemon shapes what it writes to the link by it (the
// link's bandwidth, and a one-way latency with jitter), reports its transport
// to the apps (device status, peer accessory) and bounds what one send may
// carry. The figures are typical of such links, not of any one device.
#ifndef KV_ACCESSORY_LINK_PROFILES_H
#define KV_ACCESSORY_LINK_PROFILES_H

#include <kv-accessory/Codec.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

struct LinkProfile {
    std::string name;
    wire::TransportType transport = wire::TRANSPORT_WIFI;
    wire::DeviceType deviceType = wire::DEVICE_TYPE_WIFI;
    // Bytes per second each way; 0 for no bound (the link runs as fast as
    // the machine, with no added latency).
    std::uint64_t bandwidth = 0;
    std::chrono::microseconds latency{0};  // one way
    std::chrono::microseconds jitter{0};   // each frame's latency is latency ± up to this
    std::uint32_t maxDataSize = static_cast<std::uint32_t>(kMaxDataSize);  // of one send

    bool shaped() const { return bandwidth != 0 || latency.count() != 0; }
    // What one channel of a connection may hold queued for the link (about a
    // second of the link's bandwidth); a send beyond it is refused until the
    // channel has drained to half. No bound on an unshaped link.
    std::size_t channelQueueBytes() const;
    // The pieces a file is sent in, and how much of it the sender keeps
    // queued on the link: small enough that other traffic is not held up
    // behind a file for long on a slow link.
    std::size_t fileChunkBytes() const;
    std::size_t fileBacklogBytes() const;
};

// The profile used when none is named.
inline constexpr const char* kDefaultLinkProfile = "unlimited";

// Every profile, in the order the tools list them.
const std::vector<LinkProfile>& linkProfiles();
// The profile of that name, or null.
const LinkProfile* findLinkProfile(const std::string& name);
// The names of all profiles, separated by "|", for usage texts.
std::string linkProfileNames();

}  // namespace Accessory
}  // namespace Kv

#endif
