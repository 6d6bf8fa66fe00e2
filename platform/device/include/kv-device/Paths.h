// The fixed places of a device: the absolute paths that code running inside
// a device uses (after Kv::Device::enter() they are real), and the names of
// the parts of a device folder on the host. Every other component takes its
// paths from here.
#ifndef KV_PLATFORM_DEVICE_PATHS_H
#define KV_PLATFORM_DEVICE_PATHS_H

#include <string>

namespace Kv {
namespace Device {

// The environment variable that names the device folder of a process.
inline constexpr char kDeviceEnv[] = "KV_DEVICE";

// Paths as seen inside the device.
inline constexpr char kOptRoot[] = "/opt";
inline constexpr char kAppsRoot[] = "/opt/usr/apps/";
inline constexpr char kMediaRoot[] = "/opt/usr/media/";
inline constexpr char kRingtonesRoot[] = "/opt/usr/share/settings/Ringtones";
inline constexpr char kDownloadsRoot[] = "/opt/usr/media/Downloads/";
// The file that tells a process which device's /opt it sees.
inline constexpr char kMarkerFile[] = "/opt/.kv-device";

// The folders under kMediaRoot that every device has.
inline constexpr const char* kMediaFolders[] = {"Documents", "Downloads", "Images", "Music",
                                                "Videos",    "Sounds",    "Camera"};

// The parts of an installed package, relative to kAppsRoot + package.
inline constexpr char kPackageResourceDir[] = "/res/wgt";
inline constexpr char kPackageDataDir[] = "/data";
inline constexpr char kPackageTmpDir[] = "/tmp";
// The description of an app, inside its resource folder.
inline constexpr char kAppConfigFile[] = "config.xml";

// The parts of a device folder on the host, relative to the device root.
inline constexpr char kFsDir[] = "fs";
inline constexpr char kVconfDir[] = "vconf";
inline constexpr char kRunningDir[] = "running";
inline constexpr char kPolicyFile[] = "policy.conf";
inline constexpr char kAccessorySocket[] = "accessory.sock";
// Where the accessory service notes the files it is receiving, so that what a
// crash leaves of them is removed at its next start.
inline constexpr char kPartialFilesDir[] = "partial";
// When present, the free storage (in bytes) that the device pretends to have
// for received files, instead of what its file system has.
inline constexpr char kStorageFreeFile[] = "storage.free";
// The device's screen (<kv-device/Screen.h>); a phone's when absent.
inline constexpr char kScreenFile[] = "screen";

// "/opt/usr/apps/<package>".
inline std::string packageRoot(const std::string& package) { return kAppsRoot + package; }

// "/opt/usr/apps/<package>/res/wgt": the installed app's own files.
inline std::string packageResourceRoot(const std::string& package) {
    return packageRoot(package) + kPackageResourceDir;
}

}  // namespace Device
}  // namespace Kv

#endif
