// The table of running apps: one file per process in <root>/running, named
// after the process id and holding the process's start time and the app id.
// The start time tells a live entry from one whose process id was reused.
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <kv-device/Process.h>

#include <Logger.h>

#include <unistd.h>
#include <cstdio>
#include <stdexcept>

namespace Kv {
namespace Device {

namespace {

std::string entryPath(pid_t pid) { return runningDir() + "/" + std::to_string(pid); }

// The start time of process `pid`, or nothing when there is no such process.
std::optional<std::string> startTime(pid_t pid) { return processStatField(pid, 22); }

}  // namespace

void registerRunningApp(pid_t pid, const std::string& appId) {
    if (pid <= 0 || appId.empty() || appId.find('\n') != std::string::npos) {
        throw std::runtime_error("cannot register running app \"" + appId + "\" for process " +
                                 std::to_string(pid) + ": bad process id or app id");
    }
    const std::optional<std::string> started = startTime(pid);
    if (!started) {
        throw std::runtime_error("cannot register running app " + appId + ": process " +
                                 std::to_string(pid) + " does not exist");
    }
    writeFileAtomically(entryPath(pid), *started + "\n" + appId + "\n");
}

void unregisterRunningApp(pid_t pid) {
    if (pid > 0) {
        std::remove(entryPath(pid).c_str());
    }
}

std::optional<std::string> runningAppId(pid_t pid) {
    if (pid <= 0) {
        return std::nullopt;
    }
    const std::optional<std::string> entry = readFile(entryPath(pid));
    if (!entry) {
        return std::nullopt;
    }
    std::istringstream lines(*entry);
    std::string started;
    std::string appId;
    std::getline(lines, started);
    std::getline(lines, appId);
    if (appId.empty() || startTime(pid) != started) {
        LoggerD("removing the stale running-app entry of process " << pid);
        unregisterRunningApp(pid);
        return std::nullopt;
    }
    return appId;
}

}  // namespace Device
}  // namespace Kv
