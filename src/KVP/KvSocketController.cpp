#include "KvSocketController.h"

#include "KvConverter.h"
#include "KvListenerDispatch.h"
#include "KvTypes.h"

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::EventListener;
using WrtDeviceApis::Commons::ThreadEnum;

KvSocketController::KvSocketController(JSContextRef context, const KvSocketPtr& socket)
    : EventListener<EventKvSocketDataReceiveListener>(ThreadEnum::NULL_THREAD),
      EventListener<EventKvSocketSocketStatusListener>(ThreadEnum::NULL_THREAD),
      PrivateBase(JSContextGetGlobalContext(context), socket) {}

KvSocketController::~KvSocketController() = default;

void KvSocketController::onAnswerReceived(
    const DPL::SharedPtr<EventKvSocketDataReceiveListener>& event) {
    auto delivering = m_dataReceive.hold();
    if (const JSCallbacksManagerPtr callbacks = callbacksOf(event)) {
        runListenerHandler([&] {
            KvConverter converter(callbacks->getContext());
            JSValueRef arguments[] = {converter.toJSValueRef(event->channelId),
                                      converter.toJSValueRef(event->data)};
            callbacks->callFirstCallback(2, arguments);
        });
    }
    KvListenerBinding<EventKvSocketDataReceiveListener>::keepUntilNextTurn(std::move(delivering));
}

void KvSocketController::onAnswerReceived(
    const DPL::SharedPtr<EventKvSocketSocketStatusListener>& event) {
    auto delivering = m_socketStatus.hold();
    if (const JSCallbacksManagerPtr callbacks = callbacksOf(event)) {
        runListenerHandler([&] {
            callbacks->callFirstCallback(KvConverter(callbacks->getContext())
                                             .toJSValueRefSocketStatusErrorCode(event->reason));
        });
    }
    KvListenerBinding<EventKvSocketSocketStatusListener>::keepUntilNextTurn(std::move(delivering));
    // The listeners stay in force until the script replaces them: a socket
    // that its peer closed is still in the bridge's table and hears the
    // detach too. A detach is the last thing a socket hears (the bridge
    // forgets it then), so its listeners go, and with them the script object
    // they held.
    if (event->reason == KV_SOCKET_DEVICE_DETACHED) {
        m_dataReceive.release();
        m_socketStatus.release();
    }
}

}  // namespace KVP
}  // namespace DeviceAPI
