// Receives the web runtime's widget start and stop. Stopping the widget
// soft-resets the accessory bridge: its connections close, its agents stay
// registered.
#ifndef KVP_KV_WRT_STATUS_H
#define KVP_KV_WRT_STATUS_H

#include <dpl/singleton.h>

namespace DeviceAPI {
namespace KVP {

class KvWrtStatus {
public:
    virtual ~KvWrtStatus() = default;
    // Nothing to do when a widget starts.
    virtual void onWidgetStart();
    // Soft-resets the bridge, making it first if nothing has used it yet.
    virtual void onWidgetStop();
};

typedef DPL::Singleton<KvWrtStatus> KvWrtStatusSingleton;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
