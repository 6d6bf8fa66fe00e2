// The service profiles that an installed app declares: read from the XML
// file that the app's package metadata "AccessoryServicesLocation" names,
// relative to the app's resource folder, by the same reader (and so by the
// same rules) as the plug-in in the app's process reads it.
//
// An app's file is parsed once and its profiles kept for as long as the file
// is unchanged, so registering many agents of one app costs one parse.
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

// The profile `profileId` of the installed app `appId`, or nothing when the
// app, its profile file or the profile is missing (the reason is logged).
// A file that breaks off gives the profiles closed before the break, as it
// does to the plug-in. The app's file is parsed only when this process has
// not parsed it before or when it has changed since (another path, size,
// modification time or inode, as a reinstall gives).
std::optional<ServiceProfile> findAppProfile(const std::string& appId,
                                             const std::string& profileId);

// How many profile files this process has parsed so far: one for each app
// whose profiles were looked up, and one more each time an app's file changed.
std::uint64_t profileFileParses();

}  // namespace Accessory
}  // namespace Kv

#endif
