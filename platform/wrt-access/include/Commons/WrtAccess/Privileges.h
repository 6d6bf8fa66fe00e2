// The privilege URIs of the device APIs. An app that uses an API declares
// its privilege in its config.xml:
//   <privilege name="http://kv-project.org/privilege/accessory"/>
// and the API's access-control records name it as their feature.
#ifndef KV_PLATFORM_WRT_ACCESS_PRIVILEGES_H
#define KV_PLATFORM_WRT_ACCESS_PRIVILEGES_H

namespace WrtDeviceApis {
namespace Commons {
namespace Privileges {

// The accessory API (webapis.kv): working with paired accessory devices
// through the accessory service.
inline constexpr char ACCESSORY[] = "http://kv-project.org/privilege/accessory";

}  // namespace Privileges
}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
