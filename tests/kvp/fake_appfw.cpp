#include "fake_appfw.h"

#include <app_manager.h>
#include <pkgmgr-info.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>

#include "fake_platform_call.h"

namespace {

// The platform library that real calls go to.
const char* const kAppfwLibrary = "libappfw.so";

struct State {
    bool real = false;
    int appIdResult = 0;
    std::string appId = "org.example.app";
    int appInfoResult = 0;
    int packageResult = 0;
    std::string package = "example";
    int appInfoDestroyResult = 0;
    int packageInfoResult = 0;
    std::vector<FakeAppfw::MetadataEntry> metadata;
    std::vector<std::string> calls;
    std::vector<int> metadataCallbackResults;
    // The objects behind the handles handed out, and those not yet destroyed.
    std::vector<std::unique_ptr<char>> handleObjects;
    std::set<const void*> liveHandles;
};

// Never destroyed, so that calls made while the process exits (from the
// destructors of singletons) still find it.
State& state() {
    static State* instance = new State();
    return *instance;
}

void record(const std::string& call) { state().calls.push_back(call); }

// Hands out a handle that the fake recognises later; what it points to is
// never used.
void* newHandle() {
    state().handleObjects.push_back(std::make_unique<char>());
    void* handle = state().handleObjects.back().get();
    state().liveHandles.insert(handle);
    return handle;
}

// Records a call that takes a handle; `release` ends the handle's life.
void recordHandleCall(const char* name, const void* handle, bool release = false) {
    const bool known = state().real || state().liveHandles.count(handle) != 0;
    record(std::string(name) + (known ? "(handle)" : "(bad handle)"));
    if (release) {
        state().liveHandles.erase(handle);
    }
}

char* copyText(const std::string& text) { return strdup(text.c_str()); }

const char* textOrNull(const std::optional<std::string>& text) {
    return text ? text->c_str() : nullptr;
}

}  // namespace

namespace FakeAppfw {

void reset() { state() = State(); }

void useRealLibrary(bool real) { state().real = real; }

void setAppId(const std::string& appId, int result) {
    state().appId = appId;
    state().appIdResult = result;
}

void setAppInfoResult(int result) { state().appInfoResult = result; }

void setPackage(const std::string& package, int result) {
    state().package = package;
    state().packageResult = result;
}

void setAppInfoDestroyResult(int result) { state().appInfoDestroyResult = result; }

void setPackageInfoResult(int result) { state().packageInfoResult = result; }

void setMetadata(const std::vector<MetadataEntry>& entries) { state().metadata = entries; }

std::vector<std::string> calls() { return state().calls; }

std::vector<int> metadataCallbackResults() { return state().metadataCallbackResults; }

}  // namespace FakeAppfw

extern "C" {

int app_manager_get_app_id(pid_t pid, char** app_id) {
    record("app_manager_get_app_id(" + std::to_string(pid) + ")");
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&app_manager_get_app_id)>(
            kAppfwLibrary, __func__)(pid, app_id);
    }
    if (state().appIdResult == 0) {
        *app_id = copyText(state().appId);
    }
    return state().appIdResult;
}

int app_manager_get_app_info(const char* app_id, app_info_h* app_info) {
    record(std::string("app_manager_get_app_info(") + (app_id ? app_id : "null") + ")");
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&app_manager_get_app_info)>(
            kAppfwLibrary, __func__)(app_id, app_info);
    }
    if (state().appInfoResult >= 0) {
        *app_info = static_cast<app_info_h>(newHandle());
    }
    return state().appInfoResult;
}

int app_info_get_package(app_info_h app_info, char** package) {
    recordHandleCall(__func__, app_info);
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&app_info_get_package)>(
            kAppfwLibrary, __func__)(app_info, package);
    }
    if (state().packageResult >= 0) {
        *package = copyText(state().package);
    }
    return state().packageResult;
}

int app_info_destroy(app_info_h app_info) {
    recordHandleCall(__func__, app_info, true);
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&app_info_destroy)>(kAppfwLibrary,
                                                                           __func__)(app_info);
    }
    return state().appInfoDestroyResult;
}

int pkgmgrinfo_appinfo_get_appinfo(const char* appid, pkgmgrinfo_appinfo_h* handle) {
    record(std::string("pkgmgrinfo_appinfo_get_appinfo(") + (appid ? appid : "null") + ")");
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&pkgmgrinfo_appinfo_get_appinfo)>(
            kAppfwLibrary, __func__)(appid, handle);
    }
    if (state().packageInfoResult == 0) {
        *handle = newHandle();
    }
    return state().packageInfoResult;
}

int pkgmgrinfo_appinfo_foreach_metadata(pkgmgrinfo_appinfo_h handle,
                                        pkgmgrinfo_app_metadata_list_cb metadata_func,
                                        void* user_data) {
    recordHandleCall(__func__, handle);
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&pkgmgrinfo_appinfo_foreach_metadata)>(
            kAppfwLibrary, __func__)(handle, metadata_func, user_data);
    }
    // A copy, so that a callback that changes the programmed entries can't
    // disturb the walk.
    const std::vector<FakeAppfw::MetadataEntry> entries = state().metadata;
    for (const FakeAppfw::MetadataEntry& entry : entries) {
        const int result =
            metadata_func(textOrNull(entry.first), textOrNull(entry.second), user_data);
        state().metadataCallbackResults.push_back(result);
        if (result < 0) {
            break;
        }
    }
    return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle) {
    recordHandleCall(__func__, handle, true);
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&pkgmgrinfo_appinfo_destroy_appinfo)>(
            kAppfwLibrary, __func__)(handle);
    }
    return PMINFO_R_OK;
}

}  // extern "C"
