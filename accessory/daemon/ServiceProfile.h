// The service profiles that an installed app declares: read from the XML
// file that the app's package metadata "AccessoryServicesLocation" names,
// relative to the app's resource folder.
#ifndef KV_ACCESSORYD_SERVICE_PROFILE_H
#define KV_ACCESSORYD_SERVICE_PROFILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

enum class ServiceLimit { Any, OneAccessory, OnePeerAgent };

struct ProfileChannel {
    std::uint16_t id = 0;
    int priority = 1;  // a write priority: 1 high, 2 medium, 3 low
};

struct ServiceProfile {
    std::string id;
    std::string name;
    std::string version = "1.0";
    bool consumer = true;
    ServiceLimit limit = ServiceLimit::Any;
    std::uint16_t timeoutSeconds = 30;
    std::vector<ProfileChannel> channels;

    const ProfileChannel* channel(std::uint32_t channelId) const;
};

// The profiles of the XML file at `path`, in document order. Throws
// std::runtime_error naming the file when it can't be read or parsed.
std::vector<ServiceProfile> readServiceProfiles(const std::string& path);

// The profile `profileId` of the installed app `appId`, or nothing when the
// app, its profile file or the profile is missing (the reason is logged).
std::optional<ServiceProfile> findAppProfile(const std::string& appId,
                                             const std::string& profileId);

}  // namespace Accessory
}  // namespace Kv

#endif
