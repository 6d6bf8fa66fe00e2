// Builds the profile records of a service-profile file from the start and
// end of its elements, as a SAX1 parser reports them.
#ifndef KV_ACCESSORY_PROFILE_BUILDER_H
#define KV_ACCESSORY_PROFILE_BUILDER_H

#include <kv-accessory/ServiceProfileReader.h>
#include <libxml/xmlstring.h>

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace Kv {
namespace Accessory {
namespace ProfileParsing {

class ProfileBuilder {
public:
    // The start of the element `name`. `attributes` is the SAX1 array of
    // alternating attribute names and values, ended by a null name; it is
    // null when the element has no attributes. Only "serviceProfile",
    // "serviceChannel" and "transport" do anything.
    void startElement(std::string_view name, const xmlChar** attributes);

    // The end of the element `name`: the closing tag of "serviceProfile"
    // stores the open profile; every other one does nothing.
    void endElement(std::string_view name);

    // The profiles stored so far, in the order of their closing tags.
    std::vector<ServiceProfileRecord> takeProfiles() { return std::move(m_profiles); }

private:
    void startProfile(const xmlChar** attributes);
    void startChannel(const xmlChar** attributes);
    void startTransport(const xmlChar** attributes);

    std::vector<ServiceProfileRecord> m_profiles;
    // The profile whose element is open; nothing outside one.
    std::optional<ServiceProfileRecord> m_current;
};

}  // namespace ProfileParsing
}  // namespace Accessory
}  // namespace Kv

#endif
