// The notification functions of the C interface. No exception leaves them.
#include "VconfWatcher.h"

#include <vconf.h>

#include <Logger.h>
#include <dpl/main_loop.h>

#include <exception>

namespace {

bool onMainLoop(const char* operation) {
    if (DPL::MainLoop::Instance().IsCurrent()) {
        return true;
    }
    LoggerE(operation << " must be called on the main loop's thread");
    return false;
}

}  // namespace

extern "C" {

int vconf_notify_key_changed(const char* in_key, vconf_callback_fn cb, void* user_data) {
    if (in_key == nullptr || cb == nullptr || !onMainLoop("vconf_notify_key_changed")) {
        return VCONF_ERROR;
    }
    try {
        Kv::Vconf::VconfWatcher::instance().add(in_key, cb, user_data);
        return VCONF_OK;
    } catch (const std::exception& error) {
        LoggerE("vconf_notify_key_changed " << in_key << ": " << error.what());
        return VCONF_ERROR;
    }
}

int vconf_ignore_key_changed(const char* in_key, vconf_callback_fn cb) {
    if (in_key == nullptr || cb == nullptr || !onMainLoop("vconf_ignore_key_changed")) {
        return VCONF_ERROR;
    }
    if (!Kv::Vconf::VconfWatcher::instance().remove(in_key, cb)) {
        LoggerW("vconf_ignore_key_changed: no callback registered for " << in_key);
        return VCONF_ERROR;
    }
    return VCONF_OK;
}

}  // extern "C"
