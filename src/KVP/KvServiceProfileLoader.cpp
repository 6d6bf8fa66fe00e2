#include "KvServiceProfileLoader.h"

#include <Logger.h>
#include <app_manager.h>
#include <pkgmgr-info.h>
#include <unistd.h>

#include <kv-accessory/ProfileLocation.h>
#include <kv-accessory/ServiceProfileReader.h>
#include <libxml/parser.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <vector>

namespace DeviceAPI {
namespace KVP {

namespace {

using namespace Kv::Accessory;

const char* const kAppsRoot = "/opt/usr/apps/";
const char* const kPackageWebFolder = "/res/wgt";

// The plug-in's enumerations are numbered as the profile reader numbers its
// records, so that a record's values convert one to one.
static_assert(KV_ROLE_PROVIDER == ProfileRole::kProvider &&
              KV_ROLE_CONSUMER == ProfileRole::kConsumer);
static_assert(KV_SERVICE_LIMIT_ANY == ProfileServiceLimit::kAny &&
              KV_SERVICE_LIMIT_ONE_ACCESSORY == ProfileServiceLimit::kOneAccessory &&
              KV_SERVICE_LIMIT_ONE_PEERAGENT == ProfileServiceLimit::kOnePeerAgent);
static_assert(KV_TRANSPORT_BT == ProfileTransport::kBt &&
              KV_TRANSPORT_BLE == ProfileTransport::kBle &&
              KV_TRANSPORT_USB == ProfileTransport::kUsb &&
              KV_TRANSPORT_WIFI == ProfileTransport::kWifi);
static_assert(KV_DATA_RATE_HIGH == ChannelDataRate::kHigh &&
              KV_DATA_RATE_LOW == ChannelDataRate::kLow);
static_assert(KV_PRIORITY_HIGH == ChannelPriority::kHigh &&
              KV_PRIORITY_MEDIUM == ChannelPriority::kMedium &&
              KV_PRIORITY_LOW == ChannelPriority::kLow);
static_assert(KV_RELIABILITY_ENABLE == ChannelReliability::kEnable &&
              KV_RELIABILITY_DISABLE == ChannelReliability::kDisable);

KvChannel toChannel(const ServiceChannelRecord& record) {
    KvChannel channel;
    channel.id = record.id;
    channel.dataRate = static_cast<KvDataRate>(record.dataRate);
    channel.priority = static_cast<KvPriority>(record.priority);
    channel.reliability = static_cast<KvReliability>(record.reliability);
    return channel;
}

// The profile's version is of no use to the plug-in and is left out.
KvAgentInitPtr toAgentInit(const ServiceProfileRecord& record) {
    KvAgentInitPtr init(new KvAgentInit());
    init->id = record.id;
    init->name = record.name;
    init->role = static_cast<KvRole>(record.role);
    init->serviceLimit = static_cast<KvServiceLimit>(record.serviceLimit);
    for (const ServiceChannelRecord& channel : record.channels) {
        init->channels.push_back(toChannel(channel));
    }
    for (std::uint8_t transport : record.transports) {
        init->transportTypes.push_back(static_cast<KvTransportType>(transport));
    }
    init->serviceTimeout = record.serviceTimeout;
    return init;
}

// Appends a record of each profile to `list`; running out of memory is
// logged and ends the list there.
void appendAgentInits(KvAgentInitList& list, const std::vector<ServiceProfileRecord>& records) {
    try {
        for (const ServiceProfileRecord& record : records) {
            list.push_back(toAgentInit(record));
        }
    } catch (const std::exception& error) {
        LoggerE("Failed to store a service profile: " << error.what());
    }
}

// Package metadata callback: keeps the value of the location key in the
// string that `userData` points to. It always returns 0 so that the walk
// goes over every entry and the last entry with the key wins.
int collectLocation(const char* key, const char* value, void* userData) {
    if (key == nullptr || value == nullptr || std::strcmp(key, kProfileLocationKey) != 0) {
        return 0;
    }
    try {
        *static_cast<std::string*>(userData) = value;
    } catch (const std::exception& error) {
        LoggerE("Failed to keep the profile location: " << error.what());
    }
    return 0;
}

}  // namespace

KvServiceProfileLoader::KvServiceProfileLoader()
    : agentInits(new KvAgentInitList()), loaded(false) {}

KvServiceProfileLoader::~KvServiceProfileLoader() = default;

KvAgentInitListPtr KvServiceProfileLoader::getKvAgentInits() {
    if (loaded) {
        return agentInits;
    }
    // Set first, so that a loader never tries a second time, whatever fails.
    loaded = true;
    const std::string path = getServiceProfilePath();
    if (path.empty()) {
        LoggerE("xmlPath is wrong!");
        return KvAgentInitListPtr(new KvAgentInitList());
    }
    agentInits = parseXML(path);
    return agentInits;
}

std::string KvServiceProfileLoader::getAppId() {
    std::string& cachedAppId = AppIdCacheSingleton::Instance().appId;
    if (!cachedAppId.empty()) {
        return cachedAppId;
    }
    char* appId = nullptr;
    if (app_manager_get_app_id(getpid(), &appId) != 0) {
        LoggerE("Fail to get appid");
        return std::string();
    }
    cachedAppId = appId != nullptr ? appId : "";
    std::free(appId);
    return cachedAppId;
}

std::string KvServiceProfileLoader::getPackageFromAppId(const std::string& appId) {
    app_info_h appInfo = nullptr;
    if (app_manager_get_app_info(appId.c_str(), &appInfo) < 0) {
        LoggerE("Fail to get appinfo");
        return std::string();
    }
    std::string package;
    char* packageText = nullptr;
    if (app_info_get_package(appInfo, &packageText) < 0) {
        LoggerE("Fail to get pkgName");
    } else if (packageText != nullptr) {
        package = packageText;
        std::free(packageText);
    }
    if (app_info_destroy(appInfo) < 0) {
        LoggerE("Fail to destroy appinfo");
        return std::string();
    }
    return package;
}

std::string KvServiceProfileLoader::getServiceProfileLocation() {
    const std::string appId = getAppId();
    if (appId.empty()) {
        return std::string();
    }
    pkgmgrinfo_appinfo_h handle = nullptr;
    if (pkgmgrinfo_appinfo_get_appinfo(appId.c_str(), &handle) != 0) {
        return std::string();
    }
    std::string location;
    pkgmgrinfo_appinfo_foreach_metadata(handle, collectLocation, &location);
    pkgmgrinfo_appinfo_destroy_appinfo(handle);
    return location;
}

std::string KvServiceProfileLoader::getServiceProfilePath() {
    const std::string location = getServiceProfileLocation();
    if (location.empty()) {
        return std::string();
    }
    // Nothing is normalised: an empty package or a location that starts with
    // "/" gives a doubled slash, which the file system accepts.
    return profilePathIn(kAppsRoot + getPackageFromAppId(getAppId()) + kPackageWebFolder, location);
}

KvAgentInitListPtr KvServiceProfileLoader::parseXML(const std::string& path) {
    KvAgentInitListPtr profiles(new KvAgentInitList());
    xmlInitParser();
    const ServiceProfileFile file = readServiceProfileFile(path);
    appendAgentInits(*profiles, file.profiles);
    if (!file.complete) {
        // The profiles closed before the error are kept, and the parser's
        // global state is left as it is after a failed parse.
        LoggerE("Failed to open xml file.");
        return profiles;
    }
    xmlCleanupParser();
    return profiles;
}

}  // namespace KVP
}  // namespace DeviceAPI
