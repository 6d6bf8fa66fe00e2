#include "ServiceProfile.h"

#include <Logger.h>
#include <kv-accessory/ProfileLocation.h>
#include <kv-accessory/ServiceProfileReader.h>
#include <kv-device/AppRegistry.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <mutex>

namespace Kv {
namespace Accessory {

namespace {

const std::uint16_t kDefaultTimeoutSeconds = 30;

// The link's write priority (1 high, 2 medium, 3 low) of a channel's
// priority in the profile (0 high, 1 medium, 2 low).
int writePriorityOf(std::uint8_t channelPriority) {
    return std::min<int>(channelPriority, ChannelPriority::kLow) + 1;
}

ServiceLimit limitOf(std::uint8_t serviceLimit) {
    switch (serviceLimit) {
        case ProfileServiceLimit::kOneAccessory:
            return ServiceLimit::OneAccessory;
        case ProfileServiceLimit::kOnePeerAgent:
            return ServiceLimit::OnePeerAgent;
        default:
            return ServiceLimit::Any;
    }
}

ServiceProfile toServiceProfile(const ServiceProfileRecord& record) {
    ServiceProfile profile;
    profile.id = record.id;
    profile.name = record.name;
    profile.version = record.version;
    profile.consumer = record.role != ProfileRole::kProvider;
    profile.limit = limitOf(record.serviceLimit);
    // A time-out of 0 (also what a value without digits, such as "abc",
    // gives) is no usable time-out: the daemon then waits the default time.
    profile.timeoutSeconds =
        record.serviceTimeout != 0 ? record.serviceTimeout : kDefaultTimeoutSeconds;
    for (const ServiceChannelRecord& channel : record.channels) {
        profile.channels.push_back({channel.id, writePriorityOf(channel.priority)});
    }
    return profile;
}

// What tells one content of a file from another without reading it: the
// file (device and inode, which a rewrite by copy or rename changes), its
// size and its modification time.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};

    bool operator==(const FileStamp& other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

std::optional<FileStamp> stampOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return FileStamp{status.st_dev, status.st_ino, status.st_size, status.st_mtim};
}

// The profiles of one app's file as they were when the file had `stamp`.
struct CachedProfiles {
    std::string path;
    FileStamp stamp;
    std::vector<ServiceProfile> profiles;
};

// The parsed files, by app id, and the count of parses. Lookups come from
// the daemon's one thread; the lock keeps the functions safe on any thread.
std::mutex cacheLock;
std::map<std::string, CachedProfiles> cache;
std::uint64_t parses = 0;

std::vector<ServiceProfile> parseProfiles(const std::string& path) {
    const ServiceProfileFile file = readServiceProfileFile(path);
    ++parses;
    if (!file.complete && file.profiles.empty()) {
        LoggerW("cannot read the service profile file " << path);
    } else if (!file.complete) {
        LoggerW("cannot read the service profile file "
                << path << " to its end; the " << file.profiles.size()
                << " profile(s) closed before the error count");
    }
    std::vector<ServiceProfile> profiles;
    profiles.reserve(file.profiles.size());
    for (const ServiceProfileRecord& record : file.profiles) {
        profiles.push_back(toServiceProfile(record));
    }
    return profiles;
}

// The profiles of the file at `path` of the app `appId`, parsed now unless
// the cache holds them for the file as it is. Call with cacheLock held.
const std::vector<ServiceProfile>& appProfiles(const std::string& appId, const std::string& path,
                                               const FileStamp& stamp) {
    auto cached = cache.find(appId);
    if (cached != cache.end() && cached->second.path == path && cached->second.stamp == stamp) {
        return cached->second.profiles;
    }
    CachedProfiles& entry = cache[appId];
    entry = CachedProfiles{path, stamp, parseProfiles(path)};
    return entry.profiles;
}

// The path of the app's profile file, or nothing (logged) when the app or
// its declaration of the file is missing.
std::optional<std::string> profilePath(const std::string& appId) {
    const std::optional<Device::AppInfo> app = Device::findApp(appId);
    if (!app) {
        LoggerW("app " << appId << " is not installed");
        return std::nullopt;
    }
    const std::string location = profileLocation(app->metadata);
    if (location.empty()) {
        LoggerW("app " << appId << " declares no service profile file");
        return std::nullopt;
    }
    return profilePathIn(app->hostRoot, location);
}

const ServiceProfile* findProfile(const std::vector<ServiceProfile>& profiles,
                                  const std::string& profileId) {
    for (const ServiceProfile& profile : profiles) {
        if (profile.id == profileId) {
            return &profile;
        }
    }
    return nullptr;
}

}  // namespace

const ProfileChannel* ServiceProfile::channel(std::uint32_t channelId) const {
    for (const ProfileChannel& candidate : channels) {
        if (candidate.id == channelId) {
            return &candidate;
        }
    }
    return nullptr;
}

std::optional<ServiceProfile> findAppProfile(const std::string& appId,
                                             const std::string& profileId) {
    const std::optional<std::string> path = profilePath(appId);
    const std::optional<FileStamp> stamp = path ? stampOf(*path) : std::nullopt;
    std::lock_guard<std::mutex> lock(cacheLock);
    if (!stamp) {
        // An app that is gone, or whose file is, keeps nothing in the cache.
        cache.erase(appId);
        if (path) {
            LoggerW("cannot read the service profile file " << *path);
        }
        return std::nullopt;
    }
    const ServiceProfile* profile = findProfile(appProfiles(appId, *path, *stamp), profileId);
    if (profile == nullptr) {
        LoggerW("app " << appId << " declares no service profile " << profileId);
        return std::nullopt;
    }
    return *profile;
}

std::uint64_t profileFileParses() {
    std::lock_guard<std::mutex> lock(cacheLock);
    return parses;
}

}  // namespace Accessory
}  // namespace Kv
