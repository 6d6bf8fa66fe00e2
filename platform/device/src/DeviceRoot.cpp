// Finding the device folder of the process and creating its layout.
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include <pwd.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace Kv {
namespace Device {

namespace {

// Absolute, with "." and ".." resolved and no trailing slash.
std::string normalise(const std::string& dir) {
    std::string path = fs::absolute(dir).lexically_normal().string();
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

bool usableFolder(const char* dir) {
    return dir != nullptr && dir[0] == '/' && access(dir, W_OK | X_OK) == 0;
}

std::string homeFolder() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/') {
        return home;
    }
    const passwd* entry = getpwuid(getuid());
    if (entry == nullptr || entry->pw_dir == nullptr) {
        throw std::runtime_error("no device folder: KV_DEVICE and HOME are not set");
    }
    return entry->pw_dir;
}

std::string defaultRoot() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (usableFolder(runtime)) {
        return std::string(runtime) + "/kv/default-device";
    }
    return homeFolder() + "/.local/share/kv/default-device";
}

void makeFolder(const fs::path& dir) {
    std::error_code error;
    fs::create_directories(dir, error);
    if (error) {
        throw std::runtime_error("cannot create device folder " + dir.string() + ": " +
                                 error.message());
    }
}

void writeMarker(const std::string& dir) {
    const std::string marker = dir + "/" + kFsDir + kMarkerFile;
    if (readFile(marker) != dir) {
        writeFileAtomically(marker, dir);
    }
}

// The folders whose layout this process has made already; checked again
// cheaply in case a folder was removed behind the process's back.
bool layoutKnown(const std::string& dir) {
    static std::mutex mutex;
    static std::set<std::string> known;
    std::lock_guard<std::mutex> lock(mutex);
    std::error_code error;
    if (known.count(dir) != 0 && fs::is_regular_file(dir + "/" + kFsDir + kMarkerFile, error)) {
        return true;
    }
    known.insert(dir);
    return false;
}

}  // namespace

void ensureLayout(const std::string& dir) {
    const std::string root = normalise(dir);
    const fs::path fsRoot = fs::path(root) / kFsDir;
    makeFolder(fsRoot / (kAppsRoot + 1));
    for (const char* media : kMediaFolders) {
        makeFolder(fsRoot / (kMediaRoot + 1) / media);
    }
    makeFolder(fsRoot / (kRingtonesRoot + 1));
    makeFolder(fs::path(root) / kVconfDir);
    makeFolder(fs::path(root) / kRunningDir);
    writeMarker(root);
}

bool isDeviceFolder(const std::string& dir) {
    std::error_code error;
    return fs::is_regular_file(normalise(dir) + "/" + kFsDir + kMarkerFile, error);
}

std::string root() {
    const char* selected = std::getenv(kDeviceEnv);
    std::string dir =
        normalise(selected != nullptr && selected[0] != '\0' ? selected : defaultRoot());
    if (!layoutKnown(dir)) {
        ensureLayout(dir);
    }
    return dir;
}

void select(const std::string& dir) {
    if (dir.empty()) {
        throw std::runtime_error("no device folder given");
    }
    const std::string absolute = normalise(dir);
    ensureLayout(absolute);
    setenv(kDeviceEnv, absolute.c_str(), 1);
}

std::string hostPath(const std::string& devicePath) {
    const std::string base = root() + "/" + kFsDir;
    if (devicePath.empty() || devicePath.front() != '/') {
        return base + "/" + devicePath;
    }
    return base + devicePath;
}

std::string vconfDir() { return root() + "/" + kVconfDir; }

std::string runningDir() { return root() + "/" + kRunningDir; }

std::string policyFile() { return root() + "/" + kPolicyFile; }

std::string accessorySocket() { return root() + "/" + kAccessorySocket; }

}  // namespace Device
}  // namespace Kv
