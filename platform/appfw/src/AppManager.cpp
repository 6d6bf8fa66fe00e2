// The application manager, over the device's app registry. No exception
// leaves these functions: failures become error codes.
#include <app_manager.h>

#include <kv-device/AppRegistry.h>

#include <Logger.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>

struct app_info_s {
    std::string appId;
    std::string package;
};

namespace {

int copyText(const std::string& text, char** out) {
    *out = strdup(text.c_str());
    return *out != nullptr ? APP_MANAGER_ERROR_NONE : APP_MANAGER_ERROR_OUT_OF_MEMORY;
}

// Runs `work`, turning an exception into an I/O error (the registry failed
// to read the device) or an out-of-memory error.
template <typename Work>
int guarded(const char* operation, Work work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return APP_MANAGER_ERROR_OUT_OF_MEMORY;
    } catch (const std::exception& error) {
        LoggerE(operation << ": " << error.what());
        return APP_MANAGER_ERROR_IO_ERROR;
    }
}

}  // namespace

extern "C" {

int app_manager_get_app_id(pid_t pid, char** app_id) {
    if (app_id == nullptr || pid <= 0) {
        return APP_MANAGER_ERROR_INVALID_PARAMETER;
    }
    return guarded("app_manager_get_app_id", [&] {
        const std::optional<std::string> running = Kv::Device::runningAppId(pid);
        return running ? copyText(*running, app_id) : APP_MANAGER_ERROR_NO_SUCH_APP;
    });
}

int app_manager_get_app_info(const char* app_id, app_info_h* app_info) {
    if (app_id == nullptr || app_info == nullptr) {
        return APP_MANAGER_ERROR_INVALID_PARAMETER;
    }
    return guarded("app_manager_get_app_info", [&] {
        const std::optional<Kv::Device::AppInfo> found = Kv::Device::findApp(app_id);
        if (!found) {
            return static_cast<int>(APP_MANAGER_ERROR_NO_SUCH_APP);
        }
        *app_info = new app_info_s{found->appId, found->package};
        return static_cast<int>(APP_MANAGER_ERROR_NONE);
    });
}

int app_info_get_package(app_info_h app_info, char** package) {
    if (app_info == nullptr || package == nullptr) {
        return APP_MANAGER_ERROR_INVALID_PARAMETER;
    }
    return copyText(app_info->package, package);
}

int app_info_get_app_id(app_info_h app_info, char** app_id) {
    if (app_info == nullptr || app_id == nullptr) {
        return APP_MANAGER_ERROR_INVALID_PARAMETER;
    }
    return copyText(app_info->appId, app_id);
}

int app_info_destroy(app_info_h app_info) {
    if (app_info == nullptr) {
        return APP_MANAGER_ERROR_INVALID_PARAMETER;
    }
    delete app_info;
    return APP_MANAGER_ERROR_NONE;
}

}  // extern "C"
