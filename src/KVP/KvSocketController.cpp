#include "KvSocketController.h"

#include "KvConverter.h"
#include "KvListenerDispatch.h"

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
    m_dataReceive.release();
    m_socketStatus.release();
}

}  // namespace KVP
}  // namespace DeviceAPI
