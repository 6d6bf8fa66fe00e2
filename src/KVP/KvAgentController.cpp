#include "KvAgentController.h"

#include "KvConverter.h"
#include "KvListenerDispatch.h"

#include <Commons/Exception.h>
#include <CommonsJavaScript/JSCallbackManager.h>
#include <JSWebAPIErrorFactory.h>
#include <Logger.h>

#include <vector>

namespace DeviceAPI {
namespace KVP {

using Common::JSWebAPIErrorFactory;
using WrtDeviceApis::Commons::EventAnswerReceiver;
using WrtDeviceApis::Commons::EventListener;
using WrtDeviceApis::Commons::ThreadEnum;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManager;

namespace {

// The error code of an authentication that gave no token.
constexpr int TOKEN_NOT_GENERATED = 1;

// The script error of an authentication's error object.
JSObjectRef authenticationError(JSContextRef context, const KvErrorObject& error) {
    if (error.getCode() == TOKEN_NOT_GENERATED) {
        return JSWebAPIErrorFactory::makeErrorObject(context, "TokenNotGeneratedError",
                                                     error.getMessage());
    }
    LoggerW("Unknown Error was delivered.");
    return JSWebAPIErrorFactory::makeErrorObject(context, JSWebAPIErrorFactory::UNKNOWN_ERROR,
                                                 "Unknown error");
}

void answerWith(JSCallbackManager& callbacks, const EventKvAgentAuthenticatePeerAgent& event) {
    JSContextRef context = callbacks.getContext();
    if (event.error != nullptr) {
        callbacks.callOnError(authenticationError(context, *event.error));
        return;
    }
    KvConverter converter(context);
    JSValueRef arguments[] = {converter.toJSValueRef(event.peerAgent),
                              converter.toJSValueRef(event.token)};
    callbacks.callOnSuccess(arguments, 2);
}

}  // namespace

KvAgentController::KvAgentController(JSContextRef context, const KvAgentPtr& agent)
    : EventListener<EventKvAgentServiceConnectionListener>(ThreadEnum::NULL_THREAD),
      EventListener<EventKvAgentPeerAgentFindListener>(ThreadEnum::NULL_THREAD),
      EventAnswerReceiver<EventKvAgentAuthenticatePeerAgent>(ThreadEnum::NULL_THREAD),
      PrivateBase(JSContextGetGlobalContext(context), agent) {}

KvAgentController::~KvAgentController() {
    for (const auto& watched : m_pendingAuthentications) {
        if (const auto event = watched.lock()) {
            event->setPrivateData(nullptr);
        }
    }
}

void KvAgentController::watchAuthentication(
    const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event) {
    std::erase_if(m_pendingAuthentications, [](const auto& watched) { return watched.expired(); });
    m_pendingAuthentications.push_back(event);
}

void KvAgentController::answerAuthentication(
    const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event) {
    const auto callbacks = DPL::DynamicPointerCast<JSCallbackManager>(event->getPrivateData());
    if (callbacks == nullptr) {
        LoggerE("no callback manager");
        return;
    }
    if (callbacks->getOnSuccess() == nullptr && callbacks->getOnError() == nullptr) {
        return;
    }
    try {
        answerWith(*callbacks, *event);
    } catch (const WrtDeviceApis::Commons::Exception& error) {
        LoggerE("error during processing answer : " << error.GetMessage());
        callbacks->callOnError(JSWebAPIErrorFactory::makeErrorObject(
            callbacks->getContext(), JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error"));
    }
}

void KvAgentController::OnAnswerReceived(
    const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event) {
    answerAuthentication(event);
}

void KvAgentController::onAnswerReceived(
    const DPL::SharedPtr<EventKvAgentPeerAgentFindListener>& event) {
    typedef void (KvAgentController::*Handler)(JSCallbacksManager&, const EventInfoPeerAgentFind&);
    static const Handler handlers[] = {&KvAgentController::onPeerAgentFindFound,
                                       &KvAgentController::onPeerAgentFindUpdated,
                                       &KvAgentController::onPeerAgentFindError};
    dispatchListenerEvent(*this, m_peerAgentFind, event, handlers);
}

void KvAgentController::onAnswerReceived(
    const DPL::SharedPtr<EventKvAgentServiceConnectionListener>& event) {
    typedef void (KvAgentController::*Handler)(JSCallbacksManager&,
                                               const EventInfoServiceConnection&);
    static const Handler handlers[] = {&KvAgentController::onServiceConnectionRequest,
                                       &KvAgentController::onServiceConnectionConnect,
                                       &KvAgentController::onServiceConnectionError};
    dispatchListenerEvent(*this, m_serviceConnection, event, handlers);
}

void KvAgentController::onPeerAgentFindFound(JSCallbacksManager& callbacks,
                                             const EventInfoPeerAgentFind& info) {
    if (const auto* found = infoAs<EventInfoPeerAgentFindFound>(info)) {
        callbacks.callFirstCallback(
            KvConverter(callbacks.getContext()).toJSValueRef(found->peerAgent));
    }
}

void KvAgentController::onPeerAgentFindUpdated(JSCallbacksManager& callbacks,
                                               const EventInfoPeerAgentFind& info) {
    if (const auto* updated = infoAs<EventInfoPeerAgentFindUpdated>(info)) {
        KvConverter converter(callbacks.getContext());
        JSValueRef arguments[] = {converter.toJSValueRef(updated->peerAgent),
                                  converter.toJSValueRefPeerAgentStatus(updated->status)};
        callbacks.callSecondCallback(2, arguments);
    }
}

void KvAgentController::onPeerAgentFindError(JSCallbacksManager& callbacks,
                                             const EventInfoPeerAgentFind& info) {
    if (const auto* failed = infoAs<EventInfoPeerAgentFindError>(info)) {
        callbacks.callThirdCallback(KvConverter(callbacks.getContext())
                                        .toJSValueRefPeerAgentFindErrorCode(failed->errorCode));
    }
}

void KvAgentController::onServiceConnectionRequest(JSCallbacksManager& callbacks,
                                                   const EventInfoServiceConnection& info) {
    if (const auto* request = infoAs<EventInfoServiceConnectionRequest>(info)) {
        callbacks.callFirstCallback(
            KvConverter(callbacks.getContext()).toJSValueRef(request->peerAgent));
    }
}

void KvAgentController::onServiceConnectionConnect(JSCallbacksManager& callbacks,
                                                   const EventInfoServiceConnection& info) {
    if (const auto* connect = infoAs<EventInfoServiceConnectionConnect>(info)) {
        callbacks.callSecondCallback(
            KvConverter(callbacks.getContext()).toJSValueRef(connect->socket));
    }
}

void KvAgentController::onServiceConnectionError(JSCallbacksManager& callbacks,
                                                 const EventInfoServiceConnection& info) {
    if (const auto* failed = infoAs<EventInfoServiceConnectionError>(info)) {
        callbacks.callThirdCallback(KvConverter(callbacks.getContext())
                                        .toJSValueRefServiceConnectionErrorCode(failed->errorCode));
    }
}

}  // namespace KVP
}  // namespace DeviceAPI
