// Package manager information, over the device's app registry. A handle is
// a copy of the app's registry entry. No exception leaves these functions.
#include <pkgmgr-info.h>

#include <kv-device/AppRegistry.h>

#include <Logger.h>

#include <exception>

namespace {

Kv::Device::AppInfo* appOf(pkgmgrinfo_appinfo_h handle) {
    return static_cast<Kv::Device::AppInfo*>(handle);
}

}  // namespace

extern "C" {

int pkgmgrinfo_appinfo_get_appinfo(const char* appid, pkgmgrinfo_appinfo_h* handle) {
    if (appid == nullptr || handle == nullptr) {
        return PMINFO_R_EINVAL;
    }
    try {
        std::optional<Kv::Device::AppInfo> found = Kv::Device::findApp(appid);
        if (!found) {
            return PMINFO_R_ERROR;
        }
        *handle = new Kv::Device::AppInfo(std::move(*found));
        return PMINFO_R_OK;
    } catch (const std::exception& error) {
        LoggerE("pkgmgrinfo_appinfo_get_appinfo " << appid << ": " << error.what());
        return PMINFO_R_ERROR;
    }
}

int pkgmgrinfo_appinfo_foreach_metadata(pkgmgrinfo_appinfo_h handle,
                                        pkgmgrinfo_app_metadata_list_cb metadata_func,
                                        void* user_data) {
    if (handle == nullptr || metadata_func == nullptr) {
        return PMINFO_R_EINVAL;
    }
    for (const auto& [key, value] : appOf(handle)->metadata) {
        if (metadata_func(key.c_str(), value.c_str(), user_data) < 0) {
            break;
        }
    }
    return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle) {
    if (handle == nullptr) {
        return PMINFO_R_EINVAL;
    }
    delete appOf(handle);
    return PMINFO_R_OK;
}

}  // extern "C"
