// Which files of its device an app may name to the platform (to send them,
// or to have a file written there): those in the device's shared media
// folders and those of its own package. Everything else of the device, and
// everything outside it, belongs to the system or to other apps.
#ifndef KV_PLATFORM_DEVICE_FILE_ACCESS_H
#define KV_PLATFORM_DEVICE_FILE_ACCESS_H

#include <string>

namespace Kv {
namespace Device {

// Whether the app of package `package` may use the file `devicePath` (an
// absolute path as apps see it): under kMediaRoot, kRingtonesRoot or the
// app's package root, with no ".." segment. An empty package allows only the
// shared folders. Only the text is judged; a caller that opens the file
// should also check where links in it lead (resolvesInside).
bool appMayUseFile(const std::string& devicePath, const std::string& package);

// Whether `path`, with every symbolic link of it that exists resolved, still
// lies in one of the folders that appMayUseFile allows; `localRoot` maps a
// device path to where this process sees it.
bool resolvesInside(const std::string& path, const std::string& package,
                    std::string (*localRoot)(const std::string& devicePath));

}  // namespace Device
}  // namespace Kv

#endif
