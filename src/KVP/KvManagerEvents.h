// The request and listener events of KvManager.
#ifndef KVP_KV_MANAGER_EVENTS_H
#define KVP_KV_MANAGER_EVENTS_H

#include "KvErrorObject.h"
#include "ListenerDirectEvent.h"
#include "ListenerEventDirectEmitter.h"

#include <Commons/IEvent.h>
#include <dpl/shared_ptr.h>

#include <vector>

namespace DeviceAPI {
namespace KVP {

class KvAgent;
typedef DPL::SharedPtr<KvAgent> KvAgentPtr;
typedef std::vector<KvAgentPtr> KvAgentList;
typedef DPL::SharedPtr<KvAgentList> KvAgentListPtr;

// Asks for the application's agents. Answer: `agents` (the manager's own
// shared list) or `error`.
class EventKvManagerRequestKvAgent
    : public WrtDeviceApis::Commons::IEvent<EventKvManagerRequestKvAgent> {
public:
    KvAgentListPtr agents;
    KvErrorObjectPtr error;
};

// An accessory device came or went.
class EventKvManagerDeviceStatusListener
    : public ListenerDirectEvent<EventKvManagerDeviceStatusListener> {
public:
    int transportType = 0;  // KvTransportType
    int deviceStatus = 0;   // KvDeviceStatus: 0 attached, 1 detached
};

typedef ListenerEventDirectEmitter<EventKvManagerDeviceStatusListener> KvManagerDeviceStatusEmitter;
typedef DPL::SharedPtr<KvManagerDeviceStatusEmitter> KvManagerDeviceStatusEmitterPtr;

// Sets the emitter of device status changes. Outcome: the exception code,
// 0 taken, 6 not.
class EventKvManagerSetDeviceStatusListener
    : public WrtDeviceApis::Commons::IEvent<EventKvManagerSetDeviceStatusListener> {
public:
    KvManagerDeviceStatusEmitterPtr emitter;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
