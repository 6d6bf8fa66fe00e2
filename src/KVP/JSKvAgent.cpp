#include "JSKvAgent.h"

#include "JSClassHolder.h"
#include "JSKvFileTransfer.h"
#include "JSListenerObject.h"
#include "JSRecordGetter.h"
#include "JSScriptMethod.h"
#include "KvAgentController.h"
#include "KvConverter.h"

#include <ArgumentValidator.h>
#include <Commons/Exception.h>
#include <Commons/ThreadPool.h>
#include <CommonsJavaScript/JSCallbackManager.h>
#include <PlatformException.h>

#include <memory>
#include <vector>

namespace DeviceAPI {
namespace KVP {

using Common::ArgumentValidator;
using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::Commons::ExceptionCodes;
using WrtDeviceApis::Commons::IEventController;
using WrtDeviceApis::Commons::ThreadEnum;
using WrtDeviceApis::Commons::ThreadPool;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManager;

namespace {

const JSPropertyAttributes READ_ONLY =
    kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

JSValueRef readId(KvConverter& converter, const KvAgent& agent) {
    const std::string id = agent.getId();
    return id.empty() ? converter.toJSValueRef(static_cast<const char*>(nullptr))
                      : converter.toJSValueRef(id);
}

JSValueRef readName(KvConverter& converter, const KvAgent& agent) {
    return converter.toJSValueRef(agent.getName());
}

JSValueRef readRole(KvConverter& converter, const KvAgent& agent) {
    return converter.toJSValueRefRole(agent.getRole());
}

JSValueRef readChannelIds(KvConverter& converter, const KvAgent& agent) {
    const std::vector<uint16_t> channelIds = agent.getChannelIds();
    return converter.toJSValueRef(std::vector<int>(channelIds.begin(), channelIds.end()));
}

// Posts a request about the peer agent of the first argument; its outcome
// comes back through the service connection listener. The request is handled
// in place: an accept or a reject must reach the bridge while it still knows
// the connection that a peer asks for, which is during the onrequest callback.
template <class Event>
JSValueRef postPeerAgentRequest(JSContextRef context, JSObjectRef thisObject, size_t argumentCount,
                                const JSValueRef arguments[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        auto& controller =
            controllerOf<KvAgentController>(context, thisObject, JSKvAgent::getClassRef());
        auto event = std::make_shared<Event>();
        event->peerAgent = KvConverter(context).toKvPeerAgentArgument(
            argumentCount, arguments, "1st argument is not a KvPeerAgent object.");
        postSynchronously(*controller.getObject(), event);
        return JSValueMakeUndefined(context);
    });
}

// Sets the listener object of the first argument, whose attributes fill the
// slots of `Event`'s callbacks in the order given.
template <class Event, class Request>
JSValueRef setListener(JSContextRef context, JSObjectRef thisObject, size_t argumentCount,
                       const JSValueRef arguments[], JSValueRef* exception,
                       const std::vector<std::string>& attributes,
                       KvListenerBinding<Event>& (KvAgentController::*binding)()) {
    return callScriptMethod(context, exception, [&] {
        auto& controller =
            controllerOf<KvAgentController>(context, thisObject, JSKvAgent::getClassRef());
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        const JSListenerObject listener =
            readListenerObject(context, validator.getArgument(0), attributes, thisObject);
        const auto outcome = (controller.*binding)().template attach<Request>(
            *controller.getObject(), &controller, listener.callbacks);
        if (outcome != ExceptionCodes::None) {
            ThrowMsg(ConversionException, "invalid argument");
        }
        return JSValueMakeUndefined(context);
    });
}

// What the script hears when the agent answered an authentication request
// at once: a failure delivered through the callbacks on a later turn of the
// main loop, or a script error for a request that could not be made.
void answerAuthenticationAtOnce(const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event) {
    switch (event->getExceptionCode()) {
        case ExceptionCodes::None:
            ThreadPool::getThreadRef(ThreadEnum::NULL_THREAD)->PushEvent([event] {
                KvAgentController::answerAuthentication(event);
            });
            return;
        case ExceptionCodes::InvalidArgumentException:
            throw Common::TypeMismatchException("Type is not valid");
        default:
            throw Common::UnknownException("Internal error");
    }
}

}  // namespace

const JSStaticValue JSKvAgent::m_properties[] = {
    {"id", getRecordProperty<KvAgent, readId>, nullptr, READ_ONLY},
    {"name", getRecordProperty<KvAgent, readName>, nullptr, READ_ONLY},
    {"role", getRecordProperty<KvAgent, readRole>, nullptr, READ_ONLY},
    {"channelIds", getRecordProperty<KvAgent, readChannelIds>, nullptr, READ_ONLY},
    {nullptr, nullptr, nullptr, 0}};

const JSStaticFunction JSKvAgent::m_functions[] = {
    {"requestServiceConnection", requestServiceConnection, kJSPropertyAttributeNone},
    {"setServiceConnectionListener", setServiceConnectionListener, kJSPropertyAttributeNone},
    {"acceptServiceConnectionRequest", acceptServiceConnectionRequest, kJSPropertyAttributeNone},
    {"rejectServiceConnectionRequest", rejectServiceConnectionRequest, kJSPropertyAttributeNone},
    {"findPeerAgents", findPeerAgents, kJSPropertyAttributeNone},
    {"setPeerAgentFindListener", setPeerAgentFindListener, kJSPropertyAttributeNone},
    {"authenticatePeerAgent", authenticatePeerAgent, kJSPropertyAttributeNone},
    {"getKvFileTransfer", getKvFileTransfer, kJSPropertyAttributeNone},
    {nullptr, nullptr, 0}};

constinit const JSClassDefinition JSKvAgent::m_classInfo = makeClassDefinition(
    "KvAgent", m_properties, m_functions, initializeWithGivenPrivateData, finalize);

const JSClassDefinition* JSKvAgent::getClassInfo() { return &m_classInfo; }

JSClassRef JSKvAgent::getClassRef() {
    static const JSClassHolder holder(getClassInfo());
    return holder.get();
}

JSObjectRef JSKvAgent::createJSObject(JSContextRef context, const KvAgentPtr& agent) {
    KvAgentController::PrivateBase* priv = new KvAgentController(context, agent);
    return JSObjectMake(context, getClassRef(), priv);
}

void JSKvAgent::finalize(JSObjectRef object) {
    delete static_cast<KvAgentController::PrivateBase*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

JSValueRef JSKvAgent::requestServiceConnection(JSContextRef context, JSObjectRef /*function*/,
                                               JSObjectRef thisObject, size_t argumentCount,
                                               const JSValueRef arguments[],
                                               JSValueRef* exception) {
    return postPeerAgentRequest<EventKvAgentRequestServiceConnection>(
        context, thisObject, argumentCount, arguments, exception);
}

JSValueRef JSKvAgent::acceptServiceConnectionRequest(JSContextRef context, JSObjectRef /*function*/,
                                                     JSObjectRef thisObject, size_t argumentCount,
                                                     const JSValueRef arguments[],
                                                     JSValueRef* exception) {
    return postPeerAgentRequest<EventKvAgentAcceptServiceConnectionRequest>(
        context, thisObject, argumentCount, arguments, exception);
}

JSValueRef JSKvAgent::rejectServiceConnectionRequest(JSContextRef context, JSObjectRef /*function*/,
                                                     JSObjectRef thisObject, size_t argumentCount,
                                                     const JSValueRef arguments[],
                                                     JSValueRef* exception) {
    return postPeerAgentRequest<EventKvAgentRejectServiceConnectionRequest>(
        context, thisObject, argumentCount, arguments, exception);
}

JSValueRef JSKvAgent::setServiceConnectionListener(JSContextRef context, JSObjectRef /*function*/,
                                                   JSObjectRef thisObject, size_t argumentCount,
                                                   const JSValueRef arguments[],
                                                   JSValueRef* exception) {
    return setListener<EventKvAgentServiceConnectionListener,
                       EventKvAgentSetServiceConnectionListener>(
        context, thisObject, argumentCount, arguments, exception,
        {"onrequest", "onconnect", "onerror"}, &KvAgentController::serviceConnectionBinding);
}

JSValueRef JSKvAgent::setPeerAgentFindListener(JSContextRef context, JSObjectRef /*function*/,
                                               JSObjectRef thisObject, size_t argumentCount,
                                               const JSValueRef arguments[],
                                               JSValueRef* exception) {
    return setListener<EventKvAgentPeerAgentFindListener, EventKvAgentSetPeerAgentFindListener>(
        context, thisObject, argumentCount, arguments, exception,
        {"onpeeragentfound", "onpeeragentupdated", "onerror"},
        &KvAgentController::peerAgentFindBinding);
}

JSValueRef JSKvAgent::findPeerAgents(JSContextRef context, JSObjectRef /*function*/,
                                     JSObjectRef thisObject, size_t /*argumentCount*/,
                                     const JSValueRef /*arguments*/[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        auto& controller = controllerOf<KvAgentController>(context, thisObject, getClassRef());
        postSynchronously(*controller.getObject(), std::make_shared<EventKvAgentFindPeerAgents>());
        return JSValueMakeUndefined(context);
    });
}

JSValueRef JSKvAgent::authenticatePeerAgent(JSContextRef context, JSObjectRef /*function*/,
                                            JSObjectRef thisObject, size_t argumentCount,
                                            const JSValueRef arguments[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        auto& controller = controllerOf<KvAgentController>(context, thisObject, getClassRef());
        auto event = std::make_shared<EventKvAgentAuthenticatePeerAgent>();
        event->peerAgent = KvConverter(context).toKvPeerAgentArgument(
            argumentCount, arguments, "1st argument is not a KvPeerAgent object.");
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        JSObjectRef onSuccess = validator.toFunction(1);
        JSObjectRef onError = validator.toFunction(2, true);
        const auto callbacks = JSCallbackManager::createObject(context, onSuccess, onError);
        callbacks->setObject(thisObject);
        event->setPrivateData(callbacks);
        event->setAnswerReceiver(&controller);
        postSynchronously(*controller.getObject(), event);
        if (event->getHandlingType() == IEventController::HANDLING_ASYNCHRONOUS_MANUAL_ANSWER) {
            controller.watchAuthentication(event);
        } else {
            answerAuthenticationAtOnce(event);
        }
        return JSValueMakeUndefined(context);
    });
}

JSValueRef JSKvAgent::getKvFileTransfer(JSContextRef context, JSObjectRef /*function*/,
                                        JSObjectRef thisObject, size_t /*argumentCount*/,
                                        const JSValueRef /*arguments*/[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&]() -> JSValueRef {
        auto& controller = controllerOf<KvAgentController>(context, thisObject, getClassRef());
        auto event = std::make_shared<EventKvAgentGetKvFileTransfer>();
        postSynchronously(*controller.getObject(), event);
        if (event->getExceptionCode() != ExceptionCodes::None || event->fileTransfer == nullptr) {
            throw Common::UnknownException("Internal error");
        }
        return JSKvFileTransfer::createJSObject(context, event->fileTransfer);
    });
}

}  // namespace KVP
}  // namespace DeviceAPI
