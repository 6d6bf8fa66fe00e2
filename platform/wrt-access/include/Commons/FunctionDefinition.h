// The access-control record of a script function: its name, the API
// features (privileges) it needs and the device capabilities it uses.
// Plug-ins build a table of these records when they load and hand one to
// WrtAccess::checkAccessControl before the function runs.
#ifndef KV_PLATFORM_WRT_ACCESS_FUNCTION_DEFINITION_H
#define KV_PLATFORM_WRT_ACCESS_FUNCTION_DEFINITION_H

#include <string>
#include <vector>

namespace WrtDeviceApis {
namespace Commons {

struct AceDeviceCapParam {
    std::string name;
    std::string value;
};
typedef std::vector<AceDeviceCapParam> AceDeviceCapParams;

struct AceDeviceCapability {
    std::string devCapName;
    AceDeviceCapParams devCapParams;
};
typedef std::vector<AceDeviceCapability> AceDeviceCaps;

// An API feature; its name is the privilege URI that an app must declare.
struct AceFeature {
    std::string name;
};
typedef std::vector<AceFeature> AceFeatures;

struct AceFunction {
    std::string name;
    AceFeatures features;
    AceDeviceCaps deviceCapabilities;
};

// Append a capability or a feature to a list.
void aceAddDeviceCap(const AceDeviceCapability& capability, AceDeviceCaps& list);
void aceAddApiFeature(const AceFeature& feature, AceFeatures& list);

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
