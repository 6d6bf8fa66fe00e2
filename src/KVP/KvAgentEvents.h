// The request and listener events of KvAgent, with the information records
// its two listeners carry.
#ifndef KVP_KV_AGENT_EVENTS_H
#define KVP_KV_AGENT_EVENTS_H

#include "KvAuthenticationToken.h"
#include "KvErrorObject.h"
#include "KvPeerAgent.h"
#include "ListenerDirectEvent.h"
#include "ListenerEventDirectEmitter.h"

#include <Commons/IEvent.h>
#include <dpl/shared_ptr.h>

namespace DeviceAPI {
namespace KVP {

class KvSocket;
class KvFileTransfer;
typedef DPL::SharedPtr<KvSocket> KvSocketPtr;
typedef DPL::SharedPtr<KvFileTransfer> KvFileTransferPtr;

// What a peer agent search reports: type 0 found, 1 updated, 2 error.
class EventInfoPeerAgentFind {
public:
    virtual ~EventInfoPeerAgentFind() = default;
    virtual int getType() const = 0;
};

class EventInfoPeerAgentFindFound : public EventInfoPeerAgentFind {
public:
    explicit EventInfoPeerAgentFindFound(KvPeerAgentPtr peer) : peerAgent(std::move(peer)) {}
    int getType() const override { return 0; }
    KvPeerAgentPtr peerAgent;
};

class EventInfoPeerAgentFindUpdated : public EventInfoPeerAgentFind {
public:
    EventInfoPeerAgentFindUpdated(KvPeerAgentPtr peer, int peerStatus)
        : peerAgent(std::move(peer)), status(peerStatus) {}
    int getType() const override { return 1; }
    KvPeerAgentPtr peerAgent;
    int status;  // KvPeerAgentStatus: 0 available, 1 unavailable
};

class EventInfoPeerAgentFindError : public EventInfoPeerAgentFind {
public:
    explicit EventInfoPeerAgentFindError(int code) : errorCode(code) {}
    int getType() const override { return 2; }
    int errorCode;  // KvPeerAgentFindErrorCode
};

// What the service connection listener reports: type 0 request, 1 connect, 2 error.
class EventInfoServiceConnection {
public:
    virtual ~EventInfoServiceConnection() = default;
    virtual int getType() const = 0;
};

class EventInfoServiceConnectionRequest : public EventInfoServiceConnection {
public:
    explicit EventInfoServiceConnectionRequest(KvPeerAgentPtr peer) : peerAgent(std::move(peer)) {}
    int getType() const override { return 0; }
    KvPeerAgentPtr peerAgent;
};

class EventInfoServiceConnectionConnect : public EventInfoServiceConnection {
public:
    explicit EventInfoServiceConnectionConnect(KvSocketPtr connected)
        : socket(std::move(connected)) {}
    int getType() const override { return 1; }
    KvSocketPtr socket;
};

class EventInfoServiceConnectionError : public EventInfoServiceConnection {
public:
    explicit EventInfoServiceConnectionError(int code) : errorCode(code) {}
    int getType() const override { return 2; }
    int errorCode;  // KvServiceConnectionErrorCode
};

class EventKvAgentPeerAgentFindListener
    : public ListenerDirectEvent<EventKvAgentPeerAgentFindListener> {
public:
    DPL::SharedPtr<EventInfoPeerAgentFind> info;
};

class EventKvAgentServiceConnectionListener
    : public ListenerDirectEvent<EventKvAgentServiceConnectionListener> {
public:
    DPL::SharedPtr<EventInfoServiceConnection> info;
};

typedef ListenerEventDirectEmitter<EventKvAgentPeerAgentFindListener> KvAgentPeerAgentFindEmitter;
typedef DPL::SharedPtr<KvAgentPeerAgentFindEmitter> KvAgentPeerAgentFindEmitterPtr;
typedef ListenerEventDirectEmitter<EventKvAgentServiceConnectionListener>
    KvAgentServiceConnectionEmitter;
typedef DPL::SharedPtr<KvAgentServiceConnectionEmitter> KvAgentServiceConnectionEmitterPtr;

class EventKvAgentRequestServiceConnection
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentRequestServiceConnection> {
public:
    KvPeerAgentPtr peerAgent;
};

class EventKvAgentSetServiceConnectionListener
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentSetServiceConnectionListener> {
public:
    KvAgentServiceConnectionEmitterPtr emitter;
};

class EventKvAgentAcceptServiceConnectionRequest
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentAcceptServiceConnectionRequest> {
public:
    KvPeerAgentPtr peerAgent;
};

class EventKvAgentRejectServiceConnectionRequest
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentRejectServiceConnectionRequest> {
public:
    KvPeerAgentPtr peerAgent;
};

class EventKvAgentFindPeerAgents
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentFindPeerAgents> {};

// Outcome: the exception code, 2 when no emitter was given.
class EventKvAgentSetPeerAgentFindListener
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentSetPeerAgentFindListener> {
public:
    KvAgentPeerAgentFindEmitterPtr emitter;
};

// Answered by hand once the service has authenticated the peer: `token`, or
// `error` (code 1 no token, 5 unknown).
class EventKvAgentAuthenticatePeerAgent
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentAuthenticatePeerAgent> {
public:
    KvPeerAgentPtr peerAgent;
    KvAuthenticationTokenPtr token;
    KvErrorObjectPtr error;
};

class EventKvAgentGetKvFileTransfer
    : public WrtDeviceApis::Commons::IEvent<EventKvAgentGetKvFileTransfer> {
public:
    KvFileTransferPtr fileTransfer;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
