// Where an app's service-profile file lies: the rule that the plug-in, the
// accessory daemon and the app installer all follow.
//
// An app names its file with the package metadata key kProfileLocationKey in
// its config.xml; when the key appears more than once, the last entry
// counts. The location is relative to the app's root folder (its installed
// resource folder) and is taken as written: the path is the root, a slash
// and the location, so a location that starts with "/" gives a doubled
// slash, which the file system accepts.
#ifndef KV_ACCESSORY_PROFILE_LOCATION_H
#define KV_ACCESSORY_PROFILE_LOCATION_H

#include <string>
#include <utility>
#include <vector>

namespace Kv {
namespace Accessory {

inline constexpr char kProfileLocationKey[] = "AccessoryServicesLocation";

// The location that `metadata` (key and value pairs in document order) gives:
// the value of its last entry with the key, or "" when it has none.
inline std::string profileLocation(
    const std::vector<std::pair<std::string, std::string>>& metadata) {
    std::string location;
    for (const auto& [key, value] : metadata) {
        if (key == kProfileLocationKey) {
            location = value;
        }
    }
    return location;
}

// The path of the profile file at `location` in the app whose root folder is
// `appRoot`.
inline std::string profilePathIn(const std::string& appRoot, const std::string& location) {
    return appRoot + "/" + location;
}

}  // namespace Accessory
}  // namespace Kv

#endif
