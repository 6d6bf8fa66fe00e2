// Watches the configuration key in which the accessory service publishes
// whether the accessory link is up ("memory/private/kvp/conn_status": 1 up,
// 0 down) and tells every registered receiver when it changes.
//
// The key is watched only while at least one receiver is registered. The
// change callback runs on the thread on which vconf delivers notifications
// (the main loop), and so do the receivers' operations. The detector takes no
// lock: registration and dispatch must not run on two threads at once.
#ifndef KVP_KV_CONNECTION_DETECTOR_H
#define KVP_KV_CONNECTION_DETECTOR_H

#include <dpl/singleton.h>
#include <vconf.h>

#include <set>

#include "KvConnectionReceiver.h"

namespace DeviceAPI {
namespace KVP {

class KvConnectionDetector {
public:
    // The key that holds the state of the accessory link.
    static const char* const kConnectionStatusKey;

    KvConnectionDetector();
    // Leaves vconf alone: the process's detector is destroyed at exit, when
    // the main loop that vconf needs may be gone already. The owner of any
    // other detector unregisters every receiver before destroying it, which
    // stops the watch.
    ~KvConnectionDetector();

    KvConnectionDetector(const KvConnectionDetector&) = delete;
    KvConnectionDetector& operator=(const KvConnectionDetector&) = delete;

    // Adds a receiver (not owned); the first one starts the watch. Adding one
    // that is already registered changes nothing.
    void registerReceiver(KvConnectionReceiver* receiver);

    // Removes a receiver; removing the last one stops the watch. A receiver
    // that is not registered is logged and nothing changes.
    void unregisterReceiver(KvConnectionReceiver* receiver);

private:
    void startWatch();
    void stopWatch();
    // Tells every receiver of the link state `status`: 1 up, 0 down, any
    // other value nothing.
    void dispatch(int status);

    // The vconf change callback; `userData` is the detector.
    static void onKeyChanged(keynode_t* node, void* userData);

    std::set<KvConnectionReceiver*> receivers;
    bool watching;
};

typedef DPL::Singleton<KvConnectionDetector> KvConnectionDetectorSingleton;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
