#include "ServiceProfile.h"

#include <Logger.h>
#include <kv-device/AppRegistry.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

const char* const kLocationKey = "AccessoryServicesLocation";

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The attribute's value, or `fallback` when the element lacks it.
std::string attribute(xmlNode* node, const char* name, const std::string& fallback = {}) {
    xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
    if (value == nullptr) {
        return fallback;
    }
    std::string text(reinterpret_cast<const char*>(value));
    xmlFree(value);
    return text;
}

// A decimal in 0..65535; anything else gives `fallback`.
std::uint16_t number(const std::string& text, std::uint16_t fallback) {
    try {
        const unsigned long value = std::stoul(text);
        return value <= 65535 ? static_cast<std::uint16_t>(value) : fallback;
    } catch (const std::exception&) {
        return fallback;
    }
}

bool named(xmlNode* node, const char* name) {
    return node->type == XML_ELEMENT_NODE &&
           xmlStrcmp(node->name, reinterpret_cast<const xmlChar*>(name)) == 0;
}

ServiceLimit limitOf(const std::string& text) {
    const std::string word = lowered(text);
    if (word == "one_accessory") {
        return ServiceLimit::OneAccessory;
    }
    return word == "one_peeragent" ? ServiceLimit::OnePeerAgent : ServiceLimit::Any;
}

int priorityOf(const std::string& text) {
    const std::string word = lowered(text);
    if (word == "low") {
        return 3;
    }
    return word == "medium" ? 2 : 1;
}

ServiceProfile readProfile(xmlNode* element) {
    ServiceProfile profile;
    profile.id = attribute(element, "id");
    profile.name = attribute(element, "name");
    profile.version = attribute(element, "version", profile.version);
    profile.consumer = lowered(attribute(element, "role")) != "provider";
    profile.limit = limitOf(attribute(element, "serviceLimit"));
    profile.timeoutSeconds = number(attribute(element, "serviceTimeout"), profile.timeoutSeconds);
    for (xmlNode* child = element->children; child != nullptr; child = child->next) {
        if (!named(child, "serviceChannel")) {
            continue;
        }
        ProfileChannel channel{number(attribute(child, "id"), 0),
                               priorityOf(attribute(child, "priority"))};
        if (channel.id != 0) {
            profile.channels.push_back(channel);
        }
    }
    return profile;
}

// Every serviceProfile element under `node`, at any depth, in document order.
void collectProfiles(xmlNode* node, std::vector<ServiceProfile>& profiles) {
    for (; node != nullptr; node = node->next) {
        if (named(node, "serviceProfile")) {
            profiles.push_back(readProfile(node));
        } else {
            collectProfiles(node->children, profiles);
        }
    }
}

std::string profileLocation(const Device::AppInfo& app) {
    std::string location;
    for (const auto& [key, value] : app.metadata) {
        if (key == kLocationKey) {
            location = value;
        }
    }
    return location;
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

std::vector<ServiceProfile> readServiceProfiles(const std::string& path) {
    std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)> document(
        xmlReadFile(path.c_str(), nullptr,
                    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (!document) {
        throw std::runtime_error("cannot read the service profile file " + path);
    }
    std::vector<ServiceProfile> profiles;
    collectProfiles(xmlDocGetRootElement(document.get()), profiles);
    return profiles;
}

std::optional<ServiceProfile> findAppProfile(const std::string& appId,
                                             const std::string& profileId) {
    const std::optional<Device::AppInfo> app = Device::findApp(appId);
    if (!app) {
        LoggerW("app " << appId << " is not installed");
        return std::nullopt;
    }
    const std::string location = profileLocation(*app);
    if (location.empty()) {
        LoggerW("app " << appId << " declares no service profile file");
        return std::nullopt;
    }
    try {
        for (ServiceProfile& profile : readServiceProfiles(app->hostRoot + "/" + location)) {
            if (profile.id == profileId) {
                return profile;
            }
        }
    } catch (const std::exception& error) {
        LoggerW(error.what());
        return std::nullopt;
    }
    LoggerW("app " << appId << " declares no service profile " << profileId);
    return std::nullopt;
}

}  // namespace Accessory
}  // namespace Kv
