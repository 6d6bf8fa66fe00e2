// The virtual roots of the filesystem API and the device folders they name.
#ifndef KV_PLATFORM_FILESYSTEM_VIRTUAL_ROOTS_H
#define KV_PLATFORM_FILESYSTEM_VIRTUAL_ROOTS_H

#include <string>

namespace DeviceAPI {
namespace Filesystem {

bool isVirtualRoot(const std::string& name);

// The device folder of the virtual root `name`. Raises ConversionException
// for an unknown root, and for a root of the running app's package when the
// package is unknown.
std::string virtualRootFolder(const std::string& name);

// The package of the app this process runs, or "" when it is unknown.
std::string runningPackage();

}  // namespace Filesystem
}  // namespace DeviceAPI

#endif
