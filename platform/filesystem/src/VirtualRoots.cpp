#include "VirtualRoots.h"

#include <Commons/Exception.h>
#include <app_manager.h>
#include <kv-device/Paths.h>

#include <unistd.h>
#include <cstdlib>
#include <memory>

namespace DeviceAPI {
namespace Filesystem {

namespace {

using Kv::Device::kMediaRoot;
using WrtDeviceApis::Commons::ConversionException;

struct MediaRoot {
    const char* name;
    std::string folder;
};

// Music goes to the media folder "Music"; "Sounds" holds system sounds.
const MediaRoot kMediaRoots[] = {
    {"documents", std::string(kMediaRoot) + "Documents"},
    {"downloads", std::string(kMediaRoot) + "Downloads"},
    {"images", std::string(kMediaRoot) + "Images"},
    {"music", std::string(kMediaRoot) + "Music"},
    {"videos", std::string(kMediaRoot) + "Videos"},
    {"camera", std::string(kMediaRoot) + "Camera"},
    {"ringtones", Kv::Device::kRingtonesRoot},
};

struct PackageRoot {
    const char* name;
    const char* folder;  // under /opt/usr/apps/<package>
};

const PackageRoot kPackageRoots[] = {
    {"wgt-package", Kv::Device::kPackageResourceDir},
    {"wgt-private", Kv::Device::kPackageDataDir},
    {"wgt-private-tmp", Kv::Device::kPackageTmpDir},
};

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

}  // namespace

std::string runningPackage() {
    char* appId = nullptr;
    if (app_manager_get_app_id(getpid(), &appId) != APP_MANAGER_ERROR_NONE) {
        return {};
    }
    const Text ownedAppId(appId);
    app_info_h info = nullptr;
    if (app_manager_get_app_info(appId, &info) != APP_MANAGER_ERROR_NONE) {
        return {};
    }
    char* package = nullptr;
    const int result = app_info_get_package(info, &package);
    app_info_destroy(info);
    const Text ownedPackage(package);
    return result == APP_MANAGER_ERROR_NONE ? std::string(package) : std::string();
}

bool isVirtualRoot(const std::string& name) {
    for (const MediaRoot& root : kMediaRoots) {
        if (name == root.name) {
            return true;
        }
    }
    for (const PackageRoot& root : kPackageRoots) {
        if (name == root.name) {
            return true;
        }
    }
    return false;
}

std::string virtualRootFolder(const std::string& name) {
    for (const MediaRoot& root : kMediaRoots) {
        if (name == root.name) {
            return root.folder;
        }
    }
    for (const PackageRoot& root : kPackageRoots) {
        if (name != root.name) {
            continue;
        }
        const std::string package = runningPackage();
        if (package.empty()) {
            ThrowMsg(ConversionException,
                     "Cannot resolve \"" << name << "\": this process runs no installed app");
        }
        return Kv::Device::packageRoot(package) + root.folder;
    }
    ThrowMsg(ConversionException, "Unknown virtual root \"" << name << "\"");
}

}  // namespace Filesystem
}  // namespace DeviceAPI
