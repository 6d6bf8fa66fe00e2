// The installed packages of a device: installing an app folder and looking
// apps up by their config.xml files.
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/ServiceProfileSchema.h>

#include <Logger.h>

#include <unistd.h>
#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace Kv {
namespace Device {

namespace {

// Reads the config.xml of one installed package folder; nothing (and a
// warning) when it is broken or names another package.
std::optional<AppInfo> readInstalled(const fs::path& packageFolder) {
    const fs::path config = packageFolder / (kPackageResourceDir + 1) / kAppConfigFile;
    std::error_code error;
    if (!fs::exists(config, error)) {
        LoggerW("package folder without " << kAppConfigFile << ": " << packageFolder.string());
        return std::nullopt;
    }
    try {
        AppInfo info = parseAppConfig(config.string());
        if (info.package != packageFolder.filename().string()) {
            LoggerW(config.string() << " names package " << info.package << ", skipped");
            return std::nullopt;
        }
        return info;
    } catch (const std::runtime_error& failure) {
        LoggerW("skipping a broken package: " << failure.what());
        return std::nullopt;
    }
}

void makeFolders(const std::vector<fs::path>& folders) {
    for (const fs::path& folder : folders) {
        std::error_code error;
        fs::create_directories(folder, error);
        if (error) {
            throw std::runtime_error("cannot create " + folder.string() + ": " + error.message());
        }
    }
}

// Copies `source` to the new folder `target`; on failure nothing is left.
void copyFolder(const fs::path& source, const fs::path& target) {
    std::error_code error;
    fs::remove_all(target, error);
    fs::copy(source, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (error) {
        std::error_code ignored;
        fs::remove_all(target, ignored);
        throw std::runtime_error("cannot copy " + source.string() + " to " + target.string() +
                                 ": " + error.message());
    }
}

// Puts the staged folder in place of `target`, then removes the old one.
void replaceFolder(const fs::path& staged, const fs::path& target) {
    const fs::path old = target.parent_path() / (".old-" + std::to_string(getpid()));
    std::error_code error;
    fs::remove_all(old, error);
    const bool hadOld = fs::exists(target, error);
    if (hadOld) {
        fs::rename(target, old, error);
    }
    if (!error) {
        fs::rename(staged, target, error);
    }
    if (error) {
        std::error_code ignored;
        if (hadOld && !fs::exists(target, ignored)) {
            fs::rename(old, target, ignored);
        }
        fs::remove_all(staged, ignored);
        throw std::runtime_error("cannot install into " + target.string() + ": " + error.message());
    }
    fs::remove_all(old, error);
}

// The metadata key whose value names the app's service-profile file.
constexpr char kProfileLocationKey[] = "AccessoryServicesLocation";

// Checks the service-profile file that the app in `source` names, if any,
// against the schema. As for the readers, the last entry of the key counts,
// and the location is taken relative to the app folder (a leading "/" too).
// A named file that is missing is only logged: the app then gets no agents,
// as it would without the metadata.
void checkProfileOf(const fs::path& source, const AppInfo& info) {
    std::string location;
    for (const auto& [key, value] : info.metadata) {
        if (key == kProfileLocationKey) {
            location = value;
        }
    }
    const std::string relative =
        location.substr(std::min(location.find_first_not_of('/'), location.size()));
    if (relative.empty()) {
        return;
    }
    const fs::path inside = fs::path(relative).lexically_normal();
    if (inside.empty() || *inside.begin() == "..") {
        throw std::runtime_error((source / kAppConfigFile).string() + ": the " +
                                 kProfileLocationKey + " \"" + location +
                                 "\" leaves the app folder");
    }
    const fs::path profile = source / inside;
    std::error_code error;
    if (!fs::exists(profile, error)) {
        LoggerW(profile.string() << ", named by " << kProfileLocationKey
                                 << ", is missing: the app will get no accessory agents");
        return;
    }
    checkServiceProfile(profile.string());
}

}  // namespace

AppInfo installApp(const std::string& appFolder) {
    const fs::path source = fs::absolute(appFolder).lexically_normal();
    AppInfo info = parseAppConfig((source / kAppConfigFile).string());
    checkProfileOf(source, info);
    const fs::path package = hostPath(packageRoot(info.package));
    makeFolders({package / "res", package / (kPackageDataDir + 1), package / (kPackageTmpDir + 1)});
    const fs::path staged = package / "res" / (".new-" + std::to_string(getpid()));
    copyFolder(source, staged);
    replaceFolder(staged, info.hostRoot);
    LoggerD("installed " << info.appId << " into " << info.hostRoot);
    return info;
}

std::vector<AppInfo> listApps() {
    std::vector<AppInfo> apps;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(hostPath(kAppsRoot), error)) {
        if (entry.path().filename().string().front() == '.' || !entry.is_directory(error)) {
            continue;
        }
        if (std::optional<AppInfo> info = readInstalled(entry.path())) {
            apps.push_back(std::move(*info));
        }
    }
    std::sort(apps.begin(), apps.end(),
              [](const AppInfo& a, const AppInfo& b) { return a.appId < b.appId; });
    return apps;
}

std::optional<AppInfo> findApp(const std::string& appId) {
    for (AppInfo& info : listApps()) {
        if (info.appId == appId) {
            return std::move(info);
        }
    }
    return std::nullopt;
}

}  // namespace Device
}  // namespace Kv
