// The request and listener events of KvSocket. Each request's outcome is its
// exception code: 0 success, 2 wrong channel, 5 the service refused, 6 the
// listener could not be set, 9 the connection is closed.
#ifndef KVP_KV_SOCKET_EVENTS_H
#define KVP_KV_SOCKET_EVENTS_H

#include "ListenerDirectEvent.h"
#include "ListenerEventDirectEmitter.h"

#include <Commons/IEvent.h>
#include <dpl/shared_ptr.h>

#include <cstdint>
#include <string>

namespace DeviceAPI {
namespace KVP {

class EventKvSocketDataReceiveListener
    : public ListenerDirectEvent<EventKvSocketDataReceiveListener> {
public:
    unsigned long channelId = 0;
    std::string data;
};

class EventKvSocketSocketStatusListener
    : public ListenerDirectEvent<EventKvSocketSocketStatusListener> {
public:
    int reason = 0;  // KvSocketStatusErrorCode, as the bridge passes it
};

typedef ListenerEventDirectEmitter<EventKvSocketDataReceiveListener> KvSocketDataReceiveEmitter;
typedef DPL::SharedPtr<KvSocketDataReceiveEmitter> KvSocketDataReceiveEmitterPtr;
typedef ListenerEventDirectEmitter<EventKvSocketSocketStatusListener> KvSocketStatusEmitter;
typedef DPL::SharedPtr<KvSocketStatusEmitter> KvSocketStatusEmitterPtr;

class EventKvSocketClose : public WrtDeviceApis::Commons::IEvent<EventKvSocketClose> {};

class EventKvSocketIsConnected : public WrtDeviceApis::Commons::IEvent<EventKvSocketIsConnected> {
public:
    bool connected = false;
};

class EventKvSocketSendData : public WrtDeviceApis::Commons::IEvent<EventKvSocketSendData> {
public:
    uint16_t channelId = 0;
    std::string data;
};

class EventKvSocketSendSecureData
    : public WrtDeviceApis::Commons::IEvent<EventKvSocketSendSecureData> {
public:
    uint16_t channelId = 0;
    std::string data;
};

class EventKvSocketSetDataReceiveListener
    : public WrtDeviceApis::Commons::IEvent<EventKvSocketSetDataReceiveListener> {
public:
    KvSocketDataReceiveEmitterPtr emitter;
};

class EventKvSocketSetSocketStatusListener
    : public WrtDeviceApis::Commons::IEvent<EventKvSocketSetSocketStatusListener> {
public:
    KvSocketStatusEmitterPtr emitter;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
