#include <Commons/FunctionDefinition.h>

namespace WrtDeviceApis {
namespace Commons {

void aceAddDeviceCap(const AceDeviceCapability& capability, AceDeviceCaps& list) {
    list.push_back(capability);
}

void aceAddApiFeature(const AceFeature& feature, AceFeatures& list) { list.push_back(feature); }

}  // namespace Commons
}  // namespace WrtDeviceApis
