#include "fake_vconf.h"

#include <vconf.h>

#include <map>

#include "fake_platform_call.h"

namespace {

// The platform library that real calls go to.
const char* const kVconfLibrary = "libvconf.so";

struct Watcher {
    std::string key;
    vconf_callback_fn callback;
    void* userData;
};

struct State {
    bool real = false;
    std::map<std::string, int> values;
    std::vector<Watcher> watchers;
    std::vector<std::string> calls;
};

// Never destroyed, so that calls made while the process exits (from the
// destructors of singletons) still find it.
State& state() {
    static State* instance = new State();
    return *instance;
}

void record(const char* name, const char* key) {
    state().calls.push_back(std::string(name) + "(" + (key ? key : "null") + ")");
}

}  // namespace

namespace FakeVconf {

void reset() { state() = State(); }

void useRealLibrary(bool real) { state().real = real; }

void setInt(const std::string& key, int value) { state().values[key] = value; }

void unsetKey(const std::string& key) { state().values.erase(key); }

size_t notifyKeyChanged(const std::string& key) {
    // A copy: a callback may register or remove watchers.
    const std::vector<Watcher> watchers = state().watchers;
    size_t called = 0;
    for (const Watcher& watcher : watchers) {
        if (watcher.key == key) {
            watcher.callback(nullptr, watcher.userData);
            ++called;
        }
    }
    return called;
}

size_t watcherCount(const std::string& key) {
    size_t count = 0;
    for (const Watcher& watcher : state().watchers) {
        count += watcher.key == key ? 1 : 0;
    }
    return count;
}

std::vector<std::string> calls() { return state().calls; }

}  // namespace FakeVconf

extern "C" {

int vconf_get_int(const char* in_key, int* intval) {
    record(__func__, in_key);
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&vconf_get_int)>(kVconfLibrary, __func__)(
            in_key, intval);
    }
    if (in_key == nullptr || intval == nullptr) {
        return VCONF_ERROR;
    }
    auto found = state().values.find(in_key);
    if (found == state().values.end()) {
        return VCONF_ERROR;
    }
    *intval = found->second;
    return VCONF_OK;
}

int vconf_notify_key_changed(const char* in_key, vconf_callback_fn cb, void* user_data) {
    record(__func__, in_key);
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&vconf_notify_key_changed)>(
            kVconfLibrary, __func__)(in_key, cb, user_data);
    }
    if (in_key == nullptr || cb == nullptr) {
        return VCONF_ERROR;
    }
    state().watchers.push_back({in_key, cb, user_data});
    return VCONF_OK;
}

int vconf_ignore_key_changed(const char* in_key, vconf_callback_fn cb) {
    record(__func__, in_key);
    if (state().real) {
        return FakePlatformCall::realFunction<decltype(&vconf_ignore_key_changed)>(
            kVconfLibrary, __func__)(in_key, cb);
    }
    std::vector<Watcher>& watchers = state().watchers;
    for (auto it = watchers.begin(); it != watchers.end(); ++it) {
        if (in_key != nullptr && it->key == in_key && it->callback == cb) {
            watchers.erase(it);
            return VCONF_OK;
        }
    }
    return VCONF_ERROR;
}

}  // extern "C"
