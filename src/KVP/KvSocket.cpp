#include "KvSocket.h"

#include "KvAgent.h"
#include "KvListenerRequest.h"
#include "KvProxy.h"

#include <Commons/Exception.h>
#include <Logger.h>

#include <algorithm>
#include <memory>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::EventRequestReceiver;
using WrtDeviceApis::Commons::ExceptionCodes;
using WrtDeviceApis::Commons::ThreadEnum;

KvSocket::KvSocket()
    : EventRequestReceiver<EventKvSocketClose>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvSocketIsConnected>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvSocketSendData>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvSocketSendSecureData>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvSocketSetDataReceiveListener>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvSocketSetSocketStatusListener>(ThreadEnum::NULL_THREAD) {}

KvSocket::~KvSocket() = default;

void KvSocket::setConnectionId(unsigned long id) {
    connectionId = id;
    connected = true;
}

void KvSocket::OnRequestReceived(const DPL::SharedPtr<EventKvSocketClose>& event) {
    LoggerI("called");
    if (!connected) {
        LoggerI("already closed");
        event->setExceptionCode(ExceptionCodes::None);
    }
    connected = false;
    if (!KvProxySingleton::Instance().terminateServiceConnection(shared_from_this())) {
        LoggerW("close failed");
        event->setExceptionCode(ExceptionCodes::PlatformException);
        return;
    }
    event->setExceptionCode(ExceptionCodes::None);
}

void KvSocket::OnRequestReceived(const DPL::SharedPtr<EventKvSocketIsConnected>& event) {
    LoggerI("called");
    event->connected = connected;
    event->setExceptionCode(ExceptionCodes::None);
}

void KvSocket::OnRequestReceived(const DPL::SharedPtr<EventKvSocketSendData>& event) {
    LoggerI("called");
    send(event, false);
}

void KvSocket::OnRequestReceived(const DPL::SharedPtr<EventKvSocketSendSecureData>& event) {
    LoggerI("called");
    send(event, true);
}

bool KvSocket::hasChannel(uint16_t channelId) const {
    if (agent == nullptr) {
        return false;
    }
    const std::vector<uint16_t> channels = agent->getChannelIds();
    return std::find(channels.begin(), channels.end(), channelId) != channels.end();
}

template <class Event>
void KvSocket::send(const DPL::SharedPtr<Event>& event, bool secure) {
    if (!connected) {
        LoggerW("connection closed");
        event->setExceptionCode(ExceptionCodes::PlatformWrongStateException);
        return;
    }
    if (!hasChannel(event->channelId)) {
        LoggerI("Wrong channelID");
        event->setExceptionCode(ExceptionCodes::InvalidArgumentException);
        return;
    }
    KvProxy& proxy = KvProxySingleton::Instance();
    const int result = secure
                           ? proxy.sendSecureData(shared_from_this(), event->channelId, event->data)
                           : proxy.sendData(shared_from_this(), event->channelId, event->data);
    if (result != 0) {
        LoggerW((secure ? "sendSecureData failed" : "sendData failed"));
        event->setExceptionCode(ExceptionCodes::PlatformException);
        return;
    }
    event->setExceptionCode(ExceptionCodes::None);
}

void KvSocket::OnRequestReceived(const DPL::SharedPtr<EventKvSocketSetDataReceiveListener>& event) {
    LoggerI("called");
    takeListenerEmitter(event, dataReceiveEmitter, "Error during set onreceive callback : ");
}

void KvSocket::OnRequestReceived(
    const DPL::SharedPtr<EventKvSocketSetSocketStatusListener>& event) {
    LoggerI("called");
    takeListenerEmitter(event, socketStatusEmitter,
                        "Error during set onconnection lost callback : ");
}

void KvSocket::onReceive(unsigned long channelId, std::string data) {
    LoggerI("called");
    if (dataReceiveEmitter == nullptr) {
        return;
    }
    auto event = std::make_shared<EventKvSocketDataReceiveListener>();
    event->channelId = channelId;
    event->data = std::move(data);
    dataReceiveEmitter->emit(event);
}

void KvSocket::onConnectionLost(int reason) {
    LoggerI("called");
    connected = false;
    if (socketStatusEmitter == nullptr) {
        return;
    }
    auto event = std::make_shared<EventKvSocketSocketStatusListener>();
    event->reason = reason;
    socketStatusEmitter->emit(event);
}

}  // namespace KVP
}  // namespace DeviceAPI
