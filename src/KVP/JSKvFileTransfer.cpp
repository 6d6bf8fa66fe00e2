#include "JSKvFileTransfer.h"

#include "JSClassHolder.h"
#include "JSListenerObject.h"
#include "JSRecordGetter.h"
#include "JSScriptMethod.h"
#include "KvConverter.h"
#include "KvFileTransferController.h"

#include <ArgumentValidator.h>
#include <Commons/Exception.h>
#include <PlatformException.h>

#include <memory>
#include <string>
#include <vector>

namespace DeviceAPI {
namespace KVP {

using Common::ArgumentValidator;
using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::Commons::ExceptionCodes;

namespace {

const JSPropertyAttributes READ_ONLY =
    kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

const char* const TRANSFER_ID_UNKNOWN = "transferId does not exist.";

JSValueRef readDefaultReceivePath(KvConverter& converter, const KvFileTransfer& fileTransfer) {
    return converter.toJSValueRef(fileTransfer.getDefaultFilePath());
}

KvFileTransferController& controllerOfFileTransfer(JSContextRef context, JSObjectRef object) {
    return controllerOf<KvFileTransferController>(context, object, JSKvFileTransfer::getClassRef());
}

// Turns the outcome of a file-transfer request into the script error it
// answers; `invalidFile` is the message of an unusable file name.
void throwOnFailure(ExceptionCodes::Enumeration code, const char* invalidFile) {
    switch (code) {
        case ExceptionCodes::None:
            return;
        case ExceptionCodes::NotFoundException:
            throw Common::InvalidValuesException(TRANSFER_ID_UNKNOWN);
        case ExceptionCodes::InvalidArgumentException:
            throw Common::InvalidValuesException(invalidFile);
        default:
            throw Common::UnknownException("Internal error");
    }
}

// Posts a request about the transfer of the first argument.
template <class Event>
JSValueRef postTransferRequest(JSContextRef context, JSObjectRef thisObject, size_t argumentCount,
                               const JSValueRef arguments[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        KvFileTransferController& controller = controllerOfFileTransfer(context, thisObject);
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        auto event = std::make_shared<Event>();
        event->transferId = static_cast<int>(validator.toLong(0));
        postSynchronously(*controller.getObject(), event);
        throwOnFailure(event->getExceptionCode(), TRANSFER_ID_UNKNOWN);
        return JSValueMakeUndefined(context);
    });
}

// Sets the listener object of the first argument, whose attributes fill the
// slots of `Event`'s callbacks in the order given; at least one must be there.
template <class Event, class Request>
JSValueRef setListener(JSContextRef context, JSObjectRef thisObject, size_t argumentCount,
                       const JSValueRef arguments[], JSValueRef* exception,
                       const std::vector<std::string>& attributes,
                       KvListenerBinding<Event>& (KvFileTransferController::*binding)()) {
    return callScriptMethod(context, exception, [&] {
        KvFileTransferController& controller = controllerOfFileTransfer(context, thisObject);
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        const JSListenerObject listener =
            readListenerObject(context, validator.getArgument(0), attributes, thisObject);
        if (listener.attributeCount == 0) {
            ThrowMsg(ConversionException, "None of the attribute exists in 1st argument");
        }
        throwOnFailure((controller.*binding)().template attach<Request>(
                           *controller.getObject(), &controller, listener.callbacks),
                       "Internal error");
        return JSValueMakeUndefined(context);
    });
}

}  // namespace

const JSStaticValue JSKvFileTransfer::m_properties[] = {
    {"defaultReceivePath", getRecordProperty<KvFileTransfer, readDefaultReceivePath>, nullptr,
     READ_ONLY},
    {nullptr, nullptr, nullptr, 0}};

const JSStaticFunction JSKvFileTransfer::m_functions[] = {
    {"sendFile", sendFile, kJSPropertyAttributeNone},
    {"setFileSendListener", setFileSendListener, kJSPropertyAttributeNone},
    {"setFileReceiveListener", setFileReceiveListener, kJSPropertyAttributeNone},
    {"receiveFile", receiveFile, kJSPropertyAttributeNone},
    {"cancelFile", cancelFile, kJSPropertyAttributeNone},
    {"rejectFile", rejectFile, kJSPropertyAttributeNone},
    {nullptr, nullptr, 0}};

constinit const JSClassDefinition JSKvFileTransfer::m_classInfo = makeClassDefinition(
    "KvFileTransfer", m_properties, m_functions, initializeWithGivenPrivateData, finalize);

const JSClassDefinition* JSKvFileTransfer::getClassInfo() { return &m_classInfo; }

JSClassRef JSKvFileTransfer::getClassRef() {
    static const JSClassHolder holder(getClassInfo());
    return holder.get();
}

JSObjectRef JSKvFileTransfer::createJSObject(JSContextRef context,
                                             const KvFileTransferPtr& fileTransfer) {
    KvFileTransferController::PrivateBase* priv =
        new KvFileTransferController(context, fileTransfer);
    return JSObjectMake(context, getClassRef(), priv);
}

void JSKvFileTransfer::finalize(JSObjectRef object) {
    delete static_cast<KvFileTransferController::PrivateBase*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

JSValueRef JSKvFileTransfer::sendFile(JSContextRef context, JSObjectRef /*function*/,
                                      JSObjectRef thisObject, size_t argumentCount,
                                      const JSValueRef arguments[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        KvFileTransferController& controller = controllerOfFileTransfer(context, thisObject);
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        auto event = std::make_shared<EventKvFileTransferSendFile>();
        event->peerAgent = KvConverter(context).toKvPeerAgent(validator.getArgument(0),
                                                              "1st argument must be PeerAgent");
        event->fileUri = validator.toString(1);
        postSynchronously(*controller.getObject(), event);
        throwOnFailure(event->getExceptionCode(), "File scheme is not valid.");
        return KvConverter(context).toJSValueRef(event->transferId);
    });
}

JSValueRef JSKvFileTransfer::receiveFile(JSContextRef context, JSObjectRef /*function*/,
                                         JSObjectRef thisObject, size_t argumentCount,
                                         const JSValueRef arguments[], JSValueRef* exception) {
    return callScriptMethod(context, exception, [&] {
        KvFileTransferController& controller = controllerOfFileTransfer(context, thisObject);
        ArgumentValidator validator(context, static_cast<int>(argumentCount), arguments);
        auto event = std::make_shared<EventKvFileTransferReceiveFile>();
        event->transferId = static_cast<int>(validator.toLong(0));
        event->savePath = validator.toString(1);
        postSynchronously(*controller.getObject(), event);
        throwOnFailure(event->getExceptionCode(), "File path is not valid.");
        return JSValueMakeUndefined(context);
    });
}

JSValueRef JSKvFileTransfer::cancelFile(JSContextRef context, JSObjectRef /*function*/,
                                        JSObjectRef thisObject, size_t argumentCount,
                                        const JSValueRef arguments[], JSValueRef* exception) {
    return postTransferRequest<EventKvFileTransferCancelFile>(context, thisObject, argumentCount,
                                                              arguments, exception);
}

JSValueRef JSKvFileTransfer::rejectFile(JSContextRef context, JSObjectRef /*function*/,
                                        JSObjectRef thisObject, size_t argumentCount,
                                        const JSValueRef arguments[], JSValueRef* exception) {
    return postTransferRequest<EventKvFileTransferRejectFile>(context, thisObject, argumentCount,
                                                              arguments, exception);
}

JSValueRef JSKvFileTransfer::setFileSendListener(JSContextRef context, JSObjectRef /*function*/,
                                                 JSObjectRef thisObject, size_t argumentCount,
                                                 const JSValueRef arguments[],
                                                 JSValueRef* exception) {
    return setListener<EventKvFileTransferFileSendListener, EventKvFileTransferSetFileSendListener>(
        context, thisObject, argumentCount, arguments, exception,
        {"onprogress", "oncomplete", "onerror"}, &KvFileTransferController::fileSendBinding);
}

JSValueRef JSKvFileTransfer::setFileReceiveListener(JSContextRef context, JSObjectRef /*function*/,
                                                    JSObjectRef thisObject, size_t argumentCount,
                                                    const JSValueRef arguments[],
                                                    JSValueRef* exception) {
    return setListener<EventKvFileTransferFileReceiveListener,
                       EventKvFileTransferSetFileReceiveListener>(
        context, thisObject, argumentCount, arguments, exception,
        {"onreceive", "onprogress", "oncomplete", "onerror"},
        &KvFileTransferController::fileReceiveBinding);
}

JSValueRef KvConverter::toJSValueRef(const KvFileTransferPtr& fileTransfer) {
    return JSKvFileTransfer::createJSObject(m_context, fileTransfer);
}

}  // namespace KVP
}  // namespace DeviceAPI
