// The installed packages of a device: installing an app folder and looking
// apps up by their config.xml files.
#include <kv-accessory/ProfileLocation.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/ServiceProfileSchema.h>

#include <Logger.h>

#include <unistd.h>
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace Kv {
namespace Device {

using Accessory::kProfileLocationKey;
using Accessory::profileLocation;
using Accessory::profilePathIn;

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

// The number of single-letter edits (ignoring letter case) that turn `a`
// into `b`.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            const std::size_t next = std::min({row[j] + 1, row[j - 1] + 1, diagonal + !same});
            diagonal = row[j];
            row[j] = next;
        }
    }
    return row[b.size()];
}

// Refuses a metadata key that is all but the profile location key: with it
// the app would install fine and never find its profile.
void checkLocationKey(const std::string& config, const AppInfo& info) {
    for (const auto& [key, value] : info.metadata) {
        if (key != kProfileLocationKey && editDistance(key, kProfileLocationKey) <= 3) {
            throw std::runtime_error(config + ": the metadata key \"" + key + "\" is not \"" +
                                     kProfileLocationKey +
                                     "\": the app would never find its service-profile file");
        }
    }
}

// Checks the service-profile file that the app in `source` names, if any:
// the location must name a file inside the app folder that exists and
// passes the schema.
void checkProfileOf(const fs::path& source, const AppInfo& info) {
    const std::string config = (source / kAppConfigFile).string();
    checkLocationKey(config, info);
    const bool named =
        std::any_of(info.metadata.begin(), info.metadata.end(),
                    [](const auto& entry) { return entry.first == kProfileLocationKey; });
    if (!named) {
        return;
    }
    const std::string location = profileLocation(info.metadata);
    const std::string quoted = std::string(kProfileLocationKey) + " \"" + location + "\"";
    const fs::path profile = fs::path(profilePathIn(source.string(), location)).lexically_normal();
    const fs::path inside = profile.lexically_relative(source);
    if (location.find_first_not_of('/') == std::string::npos) {
        throw std::runtime_error(config + ": the " + quoted + " names no file");
    }
    if (inside.empty() || *inside.begin() == "..") {
        throw std::runtime_error(config + ": the " + quoted + " leaves the app folder");
    }
    std::error_code error;
    if (!fs::is_regular_file(profile, error)) {
        throw std::runtime_error(config + ": the " + quoted +
                                 " names no file: " + profile.string() + " is missing");
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
