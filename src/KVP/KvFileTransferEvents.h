// The request and listener events of KvFileTransfer, with the information
// records its two listeners carry. Each request's outcome is its exception
// code: 0 success, 2 invalid file URI, 5 the service refused, 6 the listener
// could not be set, 18 unknown transfer id.
#ifndef KVP_KV_FILE_TRANSFER_EVENTS_H
#define KVP_KV_FILE_TRANSFER_EVENTS_H

#include "KvPeerAgent.h"
#include "ListenerDirectEvent.h"
#include "ListenerEventDirectEmitter.h"

#include <Commons/IEvent.h>
#include <dpl/shared_ptr.h>

#include <string>
#include <utility>

namespace DeviceAPI {
namespace KVP {

// What the file-send listener reports: type 0 progress, 1 complete, 2 error.
class EventInfoFileSend {
public:
    explicit EventInfoFileSend(int id) : transferId(id) {}
    virtual ~EventInfoFileSend() = default;
    virtual int getType() const = 0;
    int transferId;
};

class EventInfoFileSendProgress : public EventInfoFileSend {
public:
    EventInfoFileSendProgress(int id, int value) : EventInfoFileSend(id), progress(value) {}
    int getType() const override { return 0; }
    int progress;
};

class EventInfoFileSendComplete : public EventInfoFileSend {
public:
    EventInfoFileSendComplete(int id, std::string uri)
        : EventInfoFileSend(id), fileUri(std::move(uri)) {}
    int getType() const override { return 1; }
    std::string fileUri;
};

class EventInfoFileSendError : public EventInfoFileSend {
public:
    EventInfoFileSendError(int id, int code) : EventInfoFileSend(id), errorCode(code) {}
    int getType() const override { return 2; }
    int errorCode;  // KvFileSendErrorCode
};

// What the file-receive listener reports: type 0 offer, 1 progress, 2 complete, 3 error.
class EventInfoFileReceive {
public:
    explicit EventInfoFileReceive(int id) : transferId(id) {}
    virtual ~EventInfoFileReceive() = default;
    virtual int getType() const = 0;
    int transferId;
};

class EventInfoFileReceiveReceive : public EventInfoFileReceive {
public:
    EventInfoFileReceiveReceive(int id, std::string name)
        : EventInfoFileReceive(id), fileName(std::move(name)) {}
    int getType() const override { return 0; }
    std::string fileName;
};

class EventInfoFileReceiveProgress : public EventInfoFileReceive {
public:
    EventInfoFileReceiveProgress(int id, int value) : EventInfoFileReceive(id), progress(value) {}
    int getType() const override { return 1; }
    int progress;
};

class EventInfoFileReceiveComplete : public EventInfoFileReceive {
public:
    EventInfoFileReceiveComplete(int id, std::string uri)
        : EventInfoFileReceive(id), fileUri(std::move(uri)) {}
    int getType() const override { return 2; }
    std::string fileUri;
};

class EventInfoFileReceiveError : public EventInfoFileReceive {
public:
    EventInfoFileReceiveError(int id, int code) : EventInfoFileReceive(id), errorCode(code) {}
    int getType() const override { return 3; }
    int errorCode;  // KvFileReceiveErrorCode
};

class EventKvFileTransferFileSendListener
    : public ListenerDirectEvent<EventKvFileTransferFileSendListener> {
public:
    DPL::SharedPtr<EventInfoFileSend> info;
};

class EventKvFileTransferFileReceiveListener
    : public ListenerDirectEvent<EventKvFileTransferFileReceiveListener> {
public:
    DPL::SharedPtr<EventInfoFileReceive> info;
};

typedef ListenerEventDirectEmitter<EventKvFileTransferFileSendListener> KvFileSendEmitter;
typedef DPL::SharedPtr<KvFileSendEmitter> KvFileSendEmitterPtr;
typedef ListenerEventDirectEmitter<EventKvFileTransferFileReceiveListener> KvFileReceiveEmitter;
typedef DPL::SharedPtr<KvFileReceiveEmitter> KvFileReceiveEmitterPtr;

class EventKvFileTransferSendFile
    : public WrtDeviceApis::Commons::IEvent<EventKvFileTransferSendFile> {
public:
    KvPeerAgentPtr peerAgent;
    std::string fileUri;
    int transferId = 0;
};

class EventKvFileTransferReceiveFile
    : public WrtDeviceApis::Commons::IEvent<EventKvFileTransferReceiveFile> {
public:
    int transferId = 0;
    std::string savePath;
};

class EventKvFileTransferRejectFile
    : public WrtDeviceApis::Commons::IEvent<EventKvFileTransferRejectFile> {
public:
    int transferId = 0;
};

class EventKvFileTransferCancelFile
    : public WrtDeviceApis::Commons::IEvent<EventKvFileTransferCancelFile> {
public:
    int transferId = 0;
};

class EventKvFileTransferSetFileSendListener
    : public WrtDeviceApis::Commons::IEvent<EventKvFileTransferSetFileSendListener> {
public:
    KvFileSendEmitterPtr emitter;
};

class EventKvFileTransferSetFileReceiveListener
    : public WrtDeviceApis::Commons::IEvent<EventKvFileTransferSetFileReceiveListener> {
public:
    KvFileReceiveEmitterPtr emitter;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
