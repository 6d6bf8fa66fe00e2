// The apps of a device: the installed packages (each described by the
// config.xml in its resource folder) and the table of running app processes.
// All functions work on the current device (Kv::Device::root()) through its
// host paths, so they work inside and outside the device.
#ifndef KV_PLATFORM_DEVICE_APP_REGISTRY_H
#define KV_PLATFORM_DEVICE_APP_REGISTRY_H

#include <sys/types.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kv {
namespace Device {

struct AppInfo {
    std::string appId;    // e.g. "wsensor01.WatchSensor"
    std::string package;  // e.g. "wsensor01"
    std::string name;
    std::string startScript;  // relative to the app root, e.g. "main.js"
    std::vector<std::string> privileges;
    std::vector<std::pair<std::string, std::string>> metadata;  // document order, duplicates kept
    std::string deviceRoot;                                     // "/opt/usr/apps/<package>/res/wgt"
    std::string hostRoot;                                       // hostPath(deviceRoot)
};

// Whether the app's content is an HTML page (.html, .htm or .xhtml), which
// runs in the web engine, rather than a script for the script host.
bool contentIsPage(const AppInfo& app);

// Reads an app description. Throws std::runtime_error with the file, the
// line and the reason when the file can't be read, is not well-formed XML,
// or lacks or breaks a required part (the application element's id and
// package, the content element's src).
AppInfo parseAppConfig(const std::string& configXmlPath);

// Installs the app in the folder `appFolder`: validates its config.xml,
// checks the service-profile file that its metadata "AccessoryServicesLocation"
// names (<kv-accessory/ProfileLocation.h>): the file must exist inside the
// app folder and pass the schema (<kv-device/ServiceProfileSchema.h>), and a
// metadata key that is all but that key is refused as a typo. Then it copies
// the folder to
// hostPath("/opt/usr/apps/<package>/res/wgt"), replacing an older install of
// the package (its data and tmp folders are kept). Throws std::runtime_error
// with "<file>:<line>: <reason>"; a failed install leaves the older one.
AppInfo installApp(const std::string& appFolder);

// The installed app with this id; packages whose config.xml is broken are
// skipped with a warning in the log.
std::optional<AppInfo> findApp(const std::string& appId);

// Every installed app, sorted by app id.
std::vector<AppInfo> listApps();

// The table of running apps: which app a process of the device runs.
// registerRunningApp throws std::runtime_error when the table can't be
// written; unregisterRunningApp of an unknown process does nothing.
void registerRunningApp(pid_t pid, const std::string& appId);
void unregisterRunningApp(pid_t pid);

// The app that process `pid` runs. An entry whose process is gone (or whose
// process id was taken by another process since) is stale: it is ignored
// and removed.
std::optional<std::string> runningAppId(pid_t pid);

}  // namespace Device
}  // namespace Kv

#endif
