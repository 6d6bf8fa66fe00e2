// The check of an app's service-profile file against the service-profile
// schema (platform/device/schema/service-profile.xsd, built into the library),
// which installApp() runs before it installs an app. The schema is stricter
// than the reader of kv-service-profile: it refuses what the reader would
// silently skip or replace by a default (an unknown element or attribute, an
// unknown word, a channel id of 0, a duplicate id, ...). docs/service-profile.md
// describes the file.
#ifndef KV_PLATFORM_DEVICE_SERVICE_PROFILE_SCHEMA_H
#define KV_PLATFORM_DEVICE_SERVICE_PROFILE_SCHEMA_H

#include <string>

namespace Kv {
namespace Device {

// The schema's text (XML Schema).
const char* serviceProfileSchema();

// Checks the service-profile file at `path`. Throws std::runtime_error with
// "<path>:<line>: <reason>" when the file can't be read, is larger than the
// reader reads (kMaxServiceProfileFileSize, kv-accessory/ServiceProfileReader.h),
// is not well-formed XML, or breaks the schema; the reason names the first problem
// (and how many more there are), e.g.
//   app/res/xml/accessoryservices.xml:7: breaks the service-profile schema:
//   Element 'serviceChannel', attribute 'priority': 'urgent' is not one of
//   high, medium, low (in any letter case)
void checkServiceProfile(const std::string& path);

}  // namespace Device
}  // namespace Kv

#endif
