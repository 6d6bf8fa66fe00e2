// The entry object of the accessory API, one per process: hands out the
// application's agents, made once from its service profile, and keeps the
// emitter through which device attach and detach reach the script.
#ifndef KVP_KV_MANAGER_H
#define KVP_KV_MANAGER_H

#include "KvManagerEvents.h"

#include <Commons/EventReceiver.h>
#include <dpl/enable_shared_from_this.h>
#include <dpl/shared_ptr.h>

namespace DeviceAPI {
namespace KVP {

class KvManager;
typedef DPL::SharedPtr<KvManager> KvManagerPtr;

class KvManager
    : public WrtDeviceApis::Commons::EventRequestReceiver<EventKvManagerRequestKvAgent>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvManagerSetDeviceStatusListener>,
      public DPL::EnableSharedFromThis<KvManager> {
public:
    // The process's manager, made on first use.
    static KvManagerPtr getInstance();

    KvManager();
    ~KvManager() override;

    // From the bridge: an accessory came (status 0) or went (status 1).
    virtual void onDeviceStatus(int transportType, int deviceStatus);
    // From the bridge: the application is being reset. The device status
    // listener stays (only a new listener replaces it); if its page goes, the
    // page's controller cuts the emitter from it.
    virtual void onSoftReset();

protected:
    void OnRequestReceived(const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvManagerSetDeviceStatusListener>& event) override;

private:
    void registerWithBridge();
    void createAgents(const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event);
    void answerFromAgents(const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event);

    bool initialized = false;
    KvAgentListPtr agents;
    KvErrorObjectPtr error;
    KvManagerDeviceStatusEmitterPtr deviceStatusEmitter;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
