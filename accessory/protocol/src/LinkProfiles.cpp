#include <kv-accessory/LinkProfiles.h>

#include <algorithm>

namespace Kv {
namespace Accessory {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::size_t kUnshapedFileChunk = std::size_t{256} * 1024;
constexpr std::size_t kUnshapedFileBacklog = std::size_t{4} * 1024 * 1024;

LinkProfile profile(const char* name, wire::TransportType transport, wire::DeviceType deviceType,
                    std::uint64_t bitsPerSecond, microseconds latency, microseconds jitter,
                    std::uint32_t maxDataSize) {
    LinkProfile made;
    made.name = name;
    made.transport = transport;
    made.deviceType = deviceType;
    made.bandwidth = bitsPerSecond / 8;
    made.latency = latency;
    made.jitter = jitter;
    made.maxDataSize = maxDataSize;
    return made;
}

}  // namespace

std::size_t LinkProfile::channelQueueBytes() const {
    if (bandwidth == 0) {
        return SIZE_MAX;
    }
    return std::max<std::size_t>(bandwidth, maxDataSize);
}

std::size_t LinkProfile::fileChunkBytes() const {
    if (bandwidth == 0) {
        return kUnshapedFileChunk;
    }
    // About 20 ms of the link.
    return std::clamp<std::size_t>(bandwidth / 50, std::size_t{4} * 1024, kUnshapedFileChunk);
}

std::size_t LinkProfile::fileBacklogBytes() const {
    if (bandwidth == 0) {
        return kUnshapedFileBacklog;
    }
    // About a quarter of a second of the link, and at least two chunks.
    return std::clamp<std::size_t>(bandwidth / 4, 2 * fileChunkBytes(), kUnshapedFileBacklog);
}

const std::vector<LinkProfile>& linkProfiles() {
    static const std::vector<LinkProfile> profiles{
        profile("unlimited", wire::TRANSPORT_WIFI, wire::DEVICE_TYPE_WIFI, 0, microseconds(0),
                microseconds(0), kMaxDataSize),
        profile("wifi", wire::TRANSPORT_WIFI, wire::DEVICE_TYPE_WIFI, 50'000'000, milliseconds(3),
                milliseconds(1), kMaxDataSize),
        profile("usb", wire::TRANSPORT_USB, wire::DEVICE_TYPE_USB, 320'000'000, milliseconds(1),
                microseconds(100), kMaxDataSize),
        profile("bt", wire::TRANSPORT_BT, wire::DEVICE_TYPE_BT, 2'000'000, milliseconds(20),
                milliseconds(5), 64 * 1024),
        profile("ble", wire::TRANSPORT_BLE, wire::DEVICE_TYPE_BLE, 800'000, milliseconds(40),
                milliseconds(10), 8 * 1024),
    };
    return profiles;
}

const LinkProfile* findLinkProfile(const std::string& name) {
    for (const LinkProfile& candidate : linkProfiles()) {
        if (candidate.name == name) {
            return &candidate;
        }
    }
    return nullptr;
}

std::string linkProfileNames() {
    std::string names;
    for (const LinkProfile& candidate : linkProfiles()) {
        names += (names.empty() ? "" : "|") + candidate.name;
    }
    return names;
}

}  // namespace Accessory
}  // namespace Kv
