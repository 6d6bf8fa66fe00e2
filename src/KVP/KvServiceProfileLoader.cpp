#include "KvServiceProfileLoader.h"

#include <Logger.h>
#include <app_manager.h>
#include <pkgmgr-info.h>
#include <unistd.h>

#include <libxml/parser.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <sstream>
#include <string_view>

namespace DeviceAPI {
namespace KVP {

namespace {

const char* const kLocationMetadataKey = "AccessoryServicesLocation";
const char* const kAppsRoot = "/opt/usr/apps/";
const char* const kPackageWebFolder = "/res/wgt";

// The application id of this process, shared by every loader once found.
std::string cachedAppId;

// The state of one parse: the list being filled and the profile whose
// element is open (null outside one).
struct ServiceProfileParseData {
    KvAgentInitListPtr result;
    KvAgentInitPtr current;
};

// One word of an attribute value and the enumerator it stands for.
template <typename Enum>
struct Word {
    std::string_view text;
    Enum value;
};

const Word<KvServiceLimit> kServiceLimits[] = {
    {"any", KV_SERVICE_LIMIT_ANY},
    {"one_accessory", KV_SERVICE_LIMIT_ONE_ACCESSORY},
    {"one_peeragent", KV_SERVICE_LIMIT_ONE_PEERAGENT},
};
const Word<KvDataRate> kDataRates[] = {{"high", KV_DATA_RATE_HIGH}, {"low", KV_DATA_RATE_LOW}};
const Word<KvPriority> kPriorities[] = {
    {"high", KV_PRIORITY_HIGH}, {"medium", KV_PRIORITY_MEDIUM}, {"low", KV_PRIORITY_LOW}};
const Word<KvReliability> kReliabilities[] = {{"enable", KV_RELIABILITY_ENABLE},
                                              {"disable", KV_RELIABILITY_DISABLE}};
const Word<KvTransportType> kTransports[] = {
    {"transport_wifi", KV_TRANSPORT_WIFI},
    {"transport_bt", KV_TRANSPORT_BT},
    {"transport_ble", KV_TRANSPORT_BLE},
    {"transport_usb", KV_TRANSPORT_USB},
};

// Sets `field` to the enumerator of `text` when the table lists the word;
// returns whether it did. An unknown word leaves the field as it was.
template <typename Enum, std::size_t N>
bool setFromWord(const Word<Enum> (&words)[N], const std::string& text, Enum& field) {
    for (const Word<Enum>& word : words) {
        if (word.text == text) {
            field = word.value;
            return true;
        }
    }
    return false;
}

std::string lowerCase(const char* text) {
    std::string lowered(text);
    for (char& c : lowered) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return lowered;
}

// Reads an unsigned 16-bit decimal the way stream extraction does: leading
// white space is skipped, reading stops at the first non-digit, a text
// without digits gives 0, and a value above 65535 is clamped to 65535.
std::uint16_t readNumber(const char* text) {
    std::uint16_t number = 0;
    std::istringstream stream(text);
    stream >> number;
    return number;
}

// Calls `handle(name, value)` for each attribute of a SAX1 attribute array
// (alternating names and values, null-terminated; null when there are none).
template <typename Handler>
void forEachAttribute(const xmlChar** attributes, Handler handle) {
    if (attributes == nullptr) {
        return;
    }
    for (const xmlChar** at = attributes; at[0] != nullptr; at += 2) {
        const char* value = at[1] != nullptr ? reinterpret_cast<const char*>(at[1]) : "";
        handle(std::string_view(reinterpret_cast<const char*>(at[0])), value);
    }
}

void readProfileAttribute(KvAgentInit& profile, std::string_view name, const char* value) {
    if (name == "role") {
        profile.role = lowerCase(value) == "provider" ? KV_ROLE_PROVIDER : KV_ROLE_CONSUMER;
    } else if (name == "name") {
        profile.name = value;
    } else if (name == "id") {
        profile.id = value;
    } else if (name == "serviceLimit") {
        profile.serviceLimit = KV_SERVICE_LIMIT_ANY;
        setFromWord(kServiceLimits, lowerCase(value), profile.serviceLimit);
    } else if (name == "serviceTimeout") {
        profile.serviceTimeout = readNumber(value);
    }
}

void readChannelAttribute(KvChannel& channel, std::string_view name, const char* value) {
    if (name == "id") {
        channel.id = readNumber(value);
    } else if (name == "dataRate") {
        setFromWord(kDataRates, lowerCase(value), channel.dataRate);
    } else if (name == "priority") {
        setFromWord(kPriorities, lowerCase(value), channel.priority);
    } else if (name == "reliability") {
        setFromWord(kReliabilities, lowerCase(value), channel.reliability);
    }
}

// A new profile replaces one that is still open, which is then dropped.
void startServiceProfile(ServiceProfileParseData& data, const xmlChar** attributes) {
    data.current = KvAgentInitPtr(new KvAgentInit());
    KvAgentInit& profile = *data.current;
    forEachAttribute(attributes, [&profile](std::string_view name, const char* value) {
        readProfileAttribute(profile, name, value);
    });
}

void startServiceChannel(ServiceProfileParseData& data, const xmlChar** attributes) {
    if (!data.current || attributes == nullptr) {
        return;
    }
    KvChannel channel;
    forEachAttribute(attributes, [&channel](std::string_view name, const char* value) {
        readChannelAttribute(channel, name, value);
    });
    if (channel.id != 0) {
        data.current->channels.push_back(channel);
    }
}

void startTransport(ServiceProfileParseData& data, const xmlChar** attributes) {
    if (!data.current || attributes == nullptr) {
        return;
    }
    std::vector<KvTransportType>& transports = data.current->transportTypes;
    forEachAttribute(attributes, [&transports](std::string_view name, const char* value) {
        KvTransportType type = KV_TRANSPORT_BT;
        if (name == "type" && setFromWord(kTransports, lowerCase(value), type)) {
            transports.push_back(type);
        }
    });
}

// SAX start-element callback. It is called from the C parser, so nothing may
// leave it as an exception.
void onStartElement(void* userData, const xmlChar* name, const xmlChar** attributes) {
    auto& data = *static_cast<ServiceProfileParseData*>(userData);
    const std::string_view element(reinterpret_cast<const char*>(name));
    try {
        if (element == "serviceProfile") {
            startServiceProfile(data, attributes);
        } else if (element == "serviceChannel") {
            startServiceChannel(data, attributes);
        } else if (element == "transport") {
            startTransport(data, attributes);
        }
    } catch (const std::exception& error) {
        LoggerE("Failed to read the element " << element << ": " << error.what());
    }
}

// SAX end-element callback: the closing tag of a profile stores it.
void onEndElement(void* userData, const xmlChar* name) {
    auto& data = *static_cast<ServiceProfileParseData*>(userData);
    if (!data.current || std::strcmp(reinterpret_cast<const char*>(name), "serviceProfile") != 0) {
        return;
    }
    try {
        data.result->push_back(data.current);
    } catch (const std::exception& error) {
        LoggerE("Failed to store a service profile: " << error.what());
    }
    data.current.reset();
}

// Package metadata callback: keeps the value of the location key in the
// string that `userData` points to. It always returns 0 so that the walk
// goes over every entry and the last entry with the key wins.
int collectLocation(const char* key, const char* value, void* userData) {
    if (key == nullptr || value == nullptr || std::strcmp(key, kLocationMetadataKey) != 0) {
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

void KvServiceProfileLoader::resetAppIdCacheForTesting() { cachedAppId.clear(); }

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
        LoggerE("Fail to get destory appinfo");
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
    return kAppsRoot + getPackageFromAppId(getAppId()) + kPackageWebFolder + "/" + location;
}

KvAgentInitListPtr KvServiceProfileLoader::parseXML(const std::string& path) {
    KvAgentInitListPtr profiles(new KvAgentInitList());
    xmlInitParser();

    // Only the SAX1 element callbacks: text, comments and everything else of
    // the file are skipped.
    xmlSAXHandler handler;
    std::memset(&handler, 0, sizeof(handler));
    handler.startElement = onStartElement;
    handler.endElement = onEndElement;
    ServiceProfileParseData data{profiles, KvAgentInitPtr()};

    if (xmlSAXUserParseFile(&handler, &data, path.c_str()) != 0) {
        // The profiles closed before the error are kept.
        LoggerE("Failed to open xml file.");
        return profiles;
    }
    xmlCleanupParser();
    return profiles;
}

}  // namespace KVP
}  // namespace DeviceAPI
