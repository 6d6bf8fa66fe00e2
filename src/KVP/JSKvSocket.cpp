#include "JSKvSocket.h"

#include "JSCallbacksManager.h"
#include "JSClassHolder.h"
#include "JSRecordGetter.h"
#include "JSScriptMethod.h"
#include "KvConverter.h"
#include "KvSocketController.h"

#include <ArgumentValidator.h>
#include <Commons/Exception.h>
#include <PlatformException.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace DeviceAPI {
namespace KVP {

using Common::ArgumentValidator;
using WrtDeviceApis::Commons::ExceptionCodes;

namespace {

const JSPropertyAttributes READ_ONLY =
    kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

JSValueRef readPeerAgent(KvConverter& converter, const KvSocket& socket) {
    return converter.toJSValueRef(presentRecord(socket.getPeerAgent()));
}

// Turns the outcome of a socket request into the script error it answers.
void throwOnFailure(ExceptionCodes::Enumeration code) {
    switch (code) {
        case ExceptionCodes::None:
            return;
        case ExceptionCodes::InvalidArgumentException:
            throw Common::InvalidValuesException("non-existing channel");
        case ExceptionCodes::PlatformWrongStateException:
            throw Common::IOException("Connection closed.");
        case ExceptionCodes::PlatformException:
            throw Common::IOException("Problem on I/O connection.");
        default:
            throw Common::UnknownException("Internal error");
    }
}

KvSocketController& controllerOfSocket(JSContextRef context, JSObjectRef object) {
    return controllerOf<KvSocketController>(context, object, JSKvSocket::getClassRef());
}

// Sends the data of the second argument on the channel of the first with
// `Event` (plain or secure). Data over the bound is refused before anything
// is posted; so is a channel id that no channel can have.
template <class Event>
JSValueRef send(JSContextRef context, JSObjectRef thisObject, size_t argumentCount,
                const JSValueRef arguments[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        KvSocketController& controller = controllerOfSocket(context, thisObject);
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        const long channelId = validator.toLong(0);
        auto event = std::make_shared<Event>();
        event->data = validator.toString(1);
        if (event->data.size() > JSKvSocket::MAX_DATA_SIZE) {
            throw Common::InvalidValuesException("data string is too long.");
        }
        if (channelId < 0 || channelId > std::numeric_limits<uint16_t>::max()) {
            throw Common::InvalidValuesException("non-existing channel");
        }
        event->channelId = static_cast<uint16_t>(channelId);
        postSynchronously(*controller.getObject(), event);
        throwOnFailure(event->getExceptionCode());
        return JSValueMakeUndefined(context);
    });
}

// Sets the callback of the first argument as the listener of `Event`.
template <class Event, class Request>
JSValueRef setListener(JSContextRef context, JSObjectRef thisObject, size_t argumentCount,
                       const JSValueRef arguments[], JSValueRef* exception,
                       KvListenerBinding<Event>& (KvSocketController::*binding)()) {
    return callScriptMethod(context, exception, [&] {
        KvSocketController& controller = controllerOfSocket(context, thisObject);
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        const JSCallbacksManagerPtr callbacks =
            JSCallbacksManager::createObject(context, validator.toFunction(0));
        callbacks->setObject(thisObject);
        throwOnFailure((controller.*binding)().template attach<Request>(*controller.getObject(),
                                                                        &controller, callbacks));
        return JSValueMakeUndefined(context);
    });
}

// Makes the controller hear of the connection's loss even when the script
// sets no status listener, so that it can release the data listener then.
// The callbacks are empty and hold nothing. A connection gets one script
// object (when it is made), so no listener of another object is replaced.
void watchConnection(JSContextRef context, KvSocketController& controller) {
    controller.socketStatusBinding().attach<EventKvSocketSetSocketStatusListener>(
        *controller.getObject(), &controller, JSCallbacksManager::createObject(context));
}

}  // namespace

const JSStaticValue JSKvSocket::m_properties[] = {
    {"peerAgent", getRecordProperty<KvSocket, readPeerAgent>, nullptr, READ_ONLY},
    {nullptr, nullptr, nullptr, 0}};

const JSStaticFunction JSKvSocket::m_functions[] = {
    {"close", close, kJSPropertyAttributeNone},
    {"isConnected", isConnected, kJSPropertyAttributeNone},
    {"sendData", sendData, kJSPropertyAttributeNone},
    {"sendSecureData", sendSecureData, kJSPropertyAttributeNone},
    {"setDataReceiveListener", setDataReceiveListener, kJSPropertyAttributeNone},
    {"setSocketStatusListener", setSocketStatusListener, kJSPropertyAttributeNone},
    {nullptr, nullptr, 0}};

constinit const JSClassDefinition JSKvSocket::m_classInfo = makeClassDefinition(
    "KvSocket", m_properties, m_functions, initializeWithGivenPrivateData, finalize);

const JSClassDefinition* JSKvSocket::getClassInfo() { return &m_classInfo; }

JSClassRef JSKvSocket::getClassRef() {
    static const JSClassHolder holder(getClassInfo());
    return holder.get();
}

JSObjectRef JSKvSocket::createJSObject(JSContextRef context, const KvSocketPtr& socket) {
    auto* controller = new KvSocketController(context, socket);
    watchConnection(context, *controller);
    KvSocketController::PrivateBase* priv = controller;
    return JSObjectMake(context, getClassRef(), priv);
}

void JSKvSocket::finalize(JSObjectRef object) {
    delete static_cast<KvSocketController::PrivateBase*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

JSValueRef JSKvSocket::close(JSContextRef context, JSObjectRef /*function*/, JSObjectRef thisObject,
                             size_t /*argumentCount*/, const JSValueRef /*arguments*/[],
                             JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        KvSocketController& controller = controllerOfSocket(context, thisObject);
        auto event = std::make_shared<EventKvSocketClose>();
        postSynchronously(*controller.getObject(), event);
        throwOnFailure(event->getExceptionCode());
        return JSValueMakeUndefined(context);
    });
}

JSValueRef JSKvSocket::isConnected(JSContextRef context, JSObjectRef /*function*/,
                                   JSObjectRef thisObject, size_t /*argumentCount*/,
                                   const JSValueRef /*arguments*/[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        KvSocketController& controller = controllerOfSocket(context, thisObject);
        auto event = std::make_shared<EventKvSocketIsConnected>();
        postSynchronously(*controller.getObject(), event);
        throwOnFailure(event->getExceptionCode());
        return JSValueMakeBoolean(context, event->connected);
    });
}

JSValueRef JSKvSocket::sendData(JSContextRef context, JSObjectRef /*function*/,
                                JSObjectRef thisObject, size_t argumentCount,
                                const JSValueRef arguments[], JSValueRef* exception) {
    return send<EventKvSocketSendData>(context, thisObject, argumentCount, arguments, exception);
}

JSValueRef JSKvSocket::sendSecureData(JSContextRef context, JSObjectRef /*function*/,
                                      JSObjectRef thisObject, size_t argumentCount,
                                      const JSValueRef arguments[], JSValueRef* exception) {
    return send<EventKvSocketSendSecureData>(context, thisObject, argumentCount, arguments,
                                             exception);
}

JSValueRef JSKvSocket::setDataReceiveListener(JSContextRef context, JSObjectRef /*function*/,
                                              JSObjectRef thisObject, size_t argumentCount,
                                              const JSValueRef arguments[], JSValueRef* exception) {
    return setListener<EventKvSocketDataReceiveListener, EventKvSocketSetDataReceiveListener>(
        context, thisObject, argumentCount, arguments, exception,
        &KvSocketController::dataReceiveBinding);
}

JSValueRef JSKvSocket::setSocketStatusListener(JSContextRef context, JSObjectRef /*function*/,
                                               JSObjectRef thisObject, size_t argumentCount,
                                               const JSValueRef arguments[],
                                               JSValueRef* exception) {
    return setListener<EventKvSocketSocketStatusListener, EventKvSocketSetSocketStatusListener>(
        context, thisObject, argumentCount, arguments, exception,
        &KvSocketController::socketStatusBinding);
}

JSValueRef KvConverter::toJSValueRef(const KvSocketPtr& socket) {
    return JSKvSocket::createJSObject(m_context, socket);
}

}  // namespace KVP
}  // namespace DeviceAPI
