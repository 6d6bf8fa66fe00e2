#include "ProfileBuilder.h"

#include <utility>

#include "ProfileWords.h"

namespace Kv {
namespace Accessory {
namespace ProfileParsing {

namespace {

const std::string_view kProfileElement = "serviceProfile";
const std::string_view kChannelElement = "serviceChannel";
const std::string_view kTransportElement = "transport";

// Calls `handle(name, value)` for each attribute of a SAX1 attribute array,
// in document order; a missing value is taken as empty.
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

void readProfileAttribute(ServiceProfileRecord& profile, std::string_view name, const char* value) {
    if (name == "id") {
        profile.id = value;
    } else if (name == "name") {
        profile.name = value;
    } else if (name == "version") {
        profile.version = value;
    } else if (name == "role") {
        profile.role = roleOf(value);
    } else if (name == "serviceLimit") {
        profile.serviceLimit = serviceLimitOf(value);
    } else if (name == "serviceTimeout") {
        profile.serviceTimeout = readNumber(value);
    }
}

void readChannelAttribute(ServiceChannelRecord& channel, std::string_view name, const char* value) {
    if (name == "id") {
        channel.id = readNumber(value);
    } else if (name == "dataRate") {
        readDataRate(value, channel.dataRate);
    } else if (name == "priority") {
        readPriority(value, channel.priority);
    } else if (name == "reliability") {
        readReliability(value, channel.reliability);
    }
}

}  // namespace

void ProfileBuilder::startElement(std::string_view name, const xmlChar** attributes) {
    if (name == kProfileElement) {
        startProfile(attributes);
    } else if (name == kChannelElement) {
        startChannel(attributes);
    } else if (name == kTransportElement) {
        startTransport(attributes);
    }
}

void ProfileBuilder::endElement(std::string_view name) {
    if (name != kProfileElement || !m_current) {
        return;
    }
    m_profiles.push_back(std::move(*m_current));
    m_current.reset();
}

// A profile opened inside another one replaces it: the outer one is dropped.
void ProfileBuilder::startProfile(const xmlChar** attributes) {
    ServiceProfileRecord& profile = m_current.emplace();
    forEachAttribute(attributes, [&profile](std::string_view name, const char* value) {
        readProfileAttribute(profile, name, value);
    });
}

void ProfileBuilder::startChannel(const xmlChar** attributes) {
    if (!m_current || attributes == nullptr) {
        return;
    }
    ServiceChannelRecord channel;
    forEachAttribute(attributes, [&channel](std::string_view name, const char* value) {
        readChannelAttribute(channel, name, value);
    });
    // Channel id 0 is never a valid channel.
    if (channel.id != 0) {
        m_current->channels.push_back(channel);
    }
}

void ProfileBuilder::startTransport(const xmlChar** attributes) {
    if (!m_current) {
        return;
    }
    std::vector<std::uint8_t>& transports = m_current->transports;
    forEachAttribute(attributes, [&transports](std::string_view name, const char* value) {
        std::uint8_t transport = ProfileTransport::kBt;
        if (name == "type" && readTransport(value, transport)) {
            transports.push_back(transport);
        }
    });
}

}  // namespace ProfileParsing
}  // namespace Accessory
}  // namespace Kv
