#include "KvManagerController.h"

#include "JSCallbacksManager.h"
#include "KvConverter.h"

#include <Commons/Exception.h>
#include <CommonsJavaScript/JSCallbackManager.h>
#include <JSWebAPIErrorFactory.h>
#include <Logger.h>

namespace DeviceAPI {
namespace KVP {

using DeviceAPI::Common::JSWebAPIErrorFactory;
using WrtDeviceApis::Commons::EventAnswerReceiver;
using WrtDeviceApis::Commons::EventListener;
using WrtDeviceApis::Commons::ThreadEnum;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManager;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManagerPtr;

namespace {

const char* const SERVICE_NOT_AVAILABLE_ERROR = "ServiceNotAvailableError";

// The script error of a receiver's error object.
JSObjectRef makeAnswerError(JSContextRef context, const KvErrorObject& error) {
    if (error.getCode() == KvErrorObject::SERVICE_NOT_AVAILABLE) {
        return JSWebAPIErrorFactory::makeErrorObject(context, SERVICE_NOT_AVAILABLE_ERROR,
                                                     error.getMessage());
    }
    LoggerW("Unknown Error was delivered.");
    return JSWebAPIErrorFactory::makeErrorObject(context, JSWebAPIErrorFactory::UNKNOWN_ERROR,
                                                 "Unknown error");
}

}  // namespace

KvManagerController::KvManagerController(JSContextRef context, const KvManagerPtr& manager)
    : EventAnswerReceiver<EventKvManagerRequestKvAgent>(ThreadEnum::NULL_THREAD),
      EventListener<EventKvManagerDeviceStatusListener>(ThreadEnum::NULL_THREAD),
      PrivateObject(JSContextGetGlobalContext(context), manager) {}

KvManagerController::~KvManagerController() = default;

void KvManagerController::OnAnswerReceived(
    const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event) {
    const JSCallbackManagerPtr callbacks =
        DPL::DynamicPointerCast<JSCallbackManager>(event->getPrivateData());
    if (callbacks == nullptr) {
        LoggerE("no callback manager");
        return;
    }
    if (callbacks->getOnSuccess() == nullptr && callbacks->getOnError() == nullptr) {
        return;
    }
    JSContextRef context = callbacks->getContext();
    try {
        if (event->error != nullptr) {
            callbacks->callOnError(makeAnswerError(context, *event->error));
            return;
        }
        KvConverter converter(context);
        callbacks->callOnSuccess(converter.toJSValueRef(event->agents));
    } catch (const WrtDeviceApis::Commons::Exception& error) {
        LoggerE("error during processing answer " << error.GetMessage());
        callbacks->callOnError(JSWebAPIErrorFactory::makeErrorObject(
            context, JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error"));
    }
}

void KvManagerController::onAnswerReceived(
    const DPL::SharedPtr<EventKvManagerDeviceStatusListener>& event) {
    const JSCallbacksManagerPtr callbacks =
        DPL::DynamicPointerCast<JSCallbacksManager>(event->getPrivateData());
    if (callbacks == nullptr) {
        LoggerE("no callback manager");
        return;
    }
    if (callbacks->getFirstCallback() == nullptr) {
        return;
    }
    KvConverter converter(callbacks->getContext());
    const JSValueRef arguments[] = {converter.toJSValueRefTransportType(event->transportType),
                                    converter.toJSValueRefDeviceStatus(event->deviceStatus)};
    callbacks->callFirstCallback(2, arguments);
}

}  // namespace KVP
}  // namespace DeviceAPI
