#include "KvFileTransferController.h"

#include "KvConverter.h"
#include "KvListenerDispatch.h"
#include "KvUtils.h"

#include <Commons/Exception.h>
#include <Logger.h>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::Commons::EventListener;
using WrtDeviceApis::Commons::ThreadEnum;

namespace {

typedef void (JSCallbacksManager::*SlotCall)(size_t, const JSValueRef[]);

// Calls the callback of `slot` with the transfer id and the value that
// `convert` makes; a failed conversion is logged as "Conversion error" and
// calls nothing.
template <class Convert>
void callWithTransferId(JSCallbacksManager& callbacks, SlotCall slot, int transferId,
                        Convert&& convert) {
    JSValueRef arguments[2];
    try {
        KvConverter converter(callbacks.getContext());
        arguments[0] = converter.toJSValueRef(transferId);
        arguments[1] = convert(converter);
    } catch (const ConversionException& error) {
        LoggerE("Conversion error");
        return;
    }
    (callbacks.*slot)(2, arguments);
}

}  // namespace

KvFileTransferController::KvFileTransferController(JSContextRef context,
                                                   const KvFileTransferPtr& fileTransfer)
    : EventListener<EventKvFileTransferFileSendListener>(ThreadEnum::NULL_THREAD),
      EventListener<EventKvFileTransferFileReceiveListener>(ThreadEnum::NULL_THREAD),
      PrivateBase(JSContextGetGlobalContext(context), fileTransfer) {}

KvFileTransferController::~KvFileTransferController() = default;

void KvFileTransferController::onAnswerReceived(
    const DPL::SharedPtr<EventKvFileTransferFileSendListener>& event) {
    typedef void (KvFileTransferController::*Handler)(JSCallbacksManager&,
                                                      const EventInfoFileSend&);
    static const Handler handlers[] = {&KvFileTransferController::onFileSendProgress,
                                       &KvFileTransferController::onFileSendComplete,
                                       &KvFileTransferController::onFileSendError};
    dispatchListenerEvent(*this, m_fileSend, event, handlers);
}

void KvFileTransferController::onAnswerReceived(
    const DPL::SharedPtr<EventKvFileTransferFileReceiveListener>& event) {
    typedef void (KvFileTransferController::*Handler)(JSCallbacksManager&,
                                                      const EventInfoFileReceive&);
    static const Handler handlers[] = {&KvFileTransferController::onFileReceiveReceive,
                                       &KvFileTransferController::onFileReceiveProgress,
                                       &KvFileTransferController::onFileReceiveComplete,
                                       &KvFileTransferController::onFileReceiveError};
    dispatchListenerEvent(*this, m_fileReceive, event, handlers);
}

void KvFileTransferController::onFileSendProgress(JSCallbacksManager& callbacks,
                                                  const EventInfoFileSend& info) {
    if (const auto* progress = infoAs<EventInfoFileSendProgress>(info)) {
        callWithTransferId(
            callbacks, &JSCallbacksManager::callFirstCallback, progress->transferId,
            [&](KvConverter& converter) { return converter.toJSValueRef(progress->progress); });
    }
}

void KvFileTransferController::onFileSendComplete(JSCallbacksManager& callbacks,
                                                  const EventInfoFileSend& info) {
    if (const auto* complete = infoAs<EventInfoFileSendComplete>(info)) {
        callWithTransferId(callbacks, &JSCallbacksManager::callSecondCallback, complete->transferId,
                           [&](KvConverter& converter) {
                               return converter.toJSValueRef(convertPathToUri(complete->fileUri));
                           });
    }
}

void KvFileTransferController::onFileSendError(JSCallbacksManager& callbacks,
                                               const EventInfoFileSend& info) {
    if (const auto* failed = infoAs<EventInfoFileSendError>(info)) {
        callWithTransferId(callbacks, &JSCallbacksManager::callThirdCallback, failed->transferId,
                           [&](KvConverter& converter) {
                               return converter.toJSValueRefFileSendErrorCode(failed->errorCode);
                           });
    }
}

void KvFileTransferController::onFileReceiveReceive(JSCallbacksManager& callbacks,
                                                    const EventInfoFileReceive& info) {
    if (const auto* offer = infoAs<EventInfoFileReceiveReceive>(info)) {
        callWithTransferId(
            callbacks, &JSCallbacksManager::callFirstCallback, offer->transferId,
            [&](KvConverter& converter) { return converter.toJSValueRef(offer->fileName); });
    }
}

void KvFileTransferController::onFileReceiveProgress(JSCallbacksManager& callbacks,
                                                     const EventInfoFileReceive& info) {
    if (const auto* progress = infoAs<EventInfoFileReceiveProgress>(info)) {
        callWithTransferId(
            callbacks, &JSCallbacksManager::callSecondCallback, progress->transferId,
            [&](KvConverter& converter) { return converter.toJSValueRef(progress->progress); });
    }
}

void KvFileTransferController::onFileReceiveComplete(JSCallbacksManager& callbacks,
                                                     const EventInfoFileReceive& info) {
    if (const auto* complete = infoAs<EventInfoFileReceiveComplete>(info)) {
        callWithTransferId(callbacks, &JSCallbacksManager::callThirdCallback, complete->transferId,
                           [&](KvConverter& converter) {
                               return converter.toJSValueRef(convertPathToUri(complete->fileUri));
                           });
    }
}

void KvFileTransferController::onFileReceiveError(JSCallbacksManager& callbacks,
                                                  const EventInfoFileReceive& info) {
    if (const auto* failed = infoAs<EventInfoFileReceiveError>(info)) {
        callWithTransferId(callbacks, &JSCallbacksManager::callFourthCallback, failed->transferId,
                           [&](KvConverter& converter) {
                               return converter.toJSValueRefFileReceiveErrorCode(failed->errorCode);
                           });
    }
}

}  // namespace KVP
}  // namespace DeviceAPI
