#include "KvConnectionDetector.h"

#include <Logger.h>

#include <exception>
#include <vector>

namespace DeviceAPI {
namespace KVP {

const char* const KvConnectionDetector::kConnectionStatusKey = "memory/private/kvp/conn_status";

namespace {

const int kLinkDown = 0;
const int kLinkUp = 1;

}  // namespace

KvConnectionDetector::KvConnectionDetector() : watching(false) {}

KvConnectionDetector::~KvConnectionDetector() = default;

void KvConnectionDetector::registerReceiver(KvConnectionReceiver* receiver) {
    if (receivers.empty()) {
        startWatch();
    }
    receivers.insert(receiver);
}

void KvConnectionDetector::unregisterReceiver(KvConnectionReceiver* receiver) {
    auto found = receivers.find(receiver);
    if (found == receivers.end()) {
        LoggerE("There is no receiver : " << static_cast<const void*>(receiver));
    } else {
        receivers.erase(found);
    }
    if (receivers.empty()) {
        stopWatch();
    }
}

void KvConnectionDetector::startWatch() {
    if (watching) {
        return;
    }
    // The result is not examined: a key that can't be watched simply never
    // reports a change.
    vconf_notify_key_changed(kConnectionStatusKey, onKeyChanged, this);
    watching = true;
}

void KvConnectionDetector::stopWatch() {
    if (!watching) {
        return;
    }
    vconf_ignore_key_changed(kConnectionStatusKey, onKeyChanged);
    watching = false;
}

void KvConnectionDetector::dispatch(int status) {
    if (status != kLinkUp && status != kLinkDown) {
        return;
    }
    // A receiver may unregister itself or another one while it is told, so
    // the walk goes over a copy and skips receivers that left meanwhile.
    const std::vector<KvConnectionReceiver*> snapshot(receivers.begin(), receivers.end());
    for (KvConnectionReceiver* receiver : snapshot) {
        if (receivers.count(receiver) == 0) {
            continue;
        }
        if (status == kLinkUp) {
            receiver->onConnected();
        } else {
            receiver->onDisconnected();
        }
    }
}

void KvConnectionDetector::onKeyChanged(keynode_t* /*node*/, void* userData) {
    // The value carried by the notification is not used: the key is read
    // again, so the receivers always hear its current state.
    int status = -1;
    if (vconf_get_int(kConnectionStatusKey, &status) != 0) {
        return;
    }
    try {
        static_cast<KvConnectionDetector*>(userData)->dispatch(status);
    } catch (const std::exception& error) {
        // Called from vconf's C code: nothing may leave as an exception.
        LoggerE("A connection receiver failed: " << error.what());
    }
}

}  // namespace KVP
}  // namespace DeviceAPI
