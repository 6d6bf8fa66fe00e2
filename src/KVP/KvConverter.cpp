#include "KvConverter.h"

#include "JSKvAgent.h"
#include "JSKvAuthenticationToken.h"
#include "JSKvPeerAccessory.h"
#include "JSKvPeerAgent.h"

#include <Commons/Exception.h>

#include <string>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::ConversionException;

namespace {

const char* const TRANSPORT_TYPES[] = {"TRANSPORT_BT", "TRANSPORT_BLE", "TRANSPORT_USB",
                                       "TRANSPORT_WIFI"};
const char* const DEVICE_STATUSES[] = {"ATTACHED", "DETACHED"};
const char* const PEER_AGENT_STATUSES[] = {"AVAILABLE", "UNAVAILABLE"};
const char* const PEER_AGENT_FIND_ERRORS[] = {"PEER_NOT_FOUND", "DUPLICATE_REQUEST",
                                              "DEVICE_NOT_CONNECTED"};
const char* const SERVICE_CONNECTION_ERRORS[] = {
    "ALREADY_EXIST",         "NETWORK_ERROR",      "DEVICE_UNREACHABLE",        "INVALID_PEERAGENT",
    "PEERAGENT_NO_RESPONSE", "PEERAGENT_REJECTED", "ERROR_REFLECTION_EXCEPTION"};
const char* const FILE_SEND_ERRORS[] = {
    "FILE_IO",          "PEER_BUSY",     "PEER_CHANNEL_IO",    "PEER_CONN_LOST",
    "PEER_NO_RESPONSE", "PEER_REJECTED", "REQUEST_NOT_QUEUED", "SPACE_NOT_AVAILABLE",
    "UNKNOWN_ERROR"};
const char* const FILE_RECEIVE_ERRORS[] = {
    "FILE_IO",       "PEER_CHANNEL_IO",     "PEER_CONN_LOST", "PEER_NO_RESPONSE",
    "PEER_REJECTED", "SPACE_NOT_AVAILABLE", "UNKNOWN_ERROR"};
const char* const SOCKET_STATUS_ERRORS[] = {"PEER_DISCONNECTED", "DEVICE_DETACHED",
                                            "UNKNOWN_REASON"};
const char* const AUTHENTICATION_TOKEN_TYPES[] = {"AUTHENTICATION_TYPE_NONE",
                                                  "AUTHENTICATION_TYPE_CERTIFICATE_X509"};

// The name of `value` in `names`, or `fallback` when it has none.
template <size_t Size>
std::string nameOf(const char* const (&names)[Size], int value, const char* fallback = "") {
    if (value < 0 || static_cast<size_t>(value) >= Size) {
        return fallback;
    }
    return names[value];
}

}  // namespace

KvConverter::KvConverter(JSContextRef context) : Converter(context) {}

KvConverter::~KvConverter() = default;

JSValueRef KvConverter::toJSValueRefTransportType(int value) {
    return toJSValueRef(nameOf(TRANSPORT_TYPES, value));
}

JSValueRef KvConverter::toJSValueRefDeviceStatus(int value) {
    return toJSValueRef(nameOf(DEVICE_STATUSES, value));
}

JSValueRef KvConverter::toJSValueRefPeerAgentStatus(int value) {
    return toJSValueRef(nameOf(PEER_AGENT_STATUSES, value));
}

JSValueRef KvConverter::toJSValueRefPeerAgentFindErrorCode(int value) {
    return toJSValueRef(nameOf(PEER_AGENT_FIND_ERRORS, value));
}

JSValueRef KvConverter::toJSValueRefServiceConnectionErrorCode(int value) {
    return toJSValueRef(nameOf(SERVICE_CONNECTION_ERRORS, value));
}

JSValueRef KvConverter::toJSValueRefFileSendErrorCode(int value) {
    return toJSValueRef(nameOf(FILE_SEND_ERRORS, value));
}

JSValueRef KvConverter::toJSValueRefFileReceiveErrorCode(int value) {
    return toJSValueRef(nameOf(FILE_RECEIVE_ERRORS, value));
}

JSValueRef KvConverter::toJSValueRefSocketStatusErrorCode(int value) {
    return toJSValueRef(nameOf(SOCKET_STATUS_ERRORS, value));
}

JSValueRef KvConverter::toJSValueRefAuthenticationTokenType(int value) {
    return toJSValueRef(nameOf(AUTHENTICATION_TOKEN_TYPES, value, "UNKNOWN_ERROR"));
}

JSValueRef KvConverter::toJSValueRefRole(int value) {
    return toJSValueRef(std::string(value == KV_ROLE_PROVIDER ? "PROVIDER" : "CONSUMER"));
}

KvPeerAgentPtr KvConverter::toKvPeerAgent(JSValueRef value) {
    if (value == nullptr ||
        !JSValueIsObjectOfClass(m_context, value, JSKvPeerAgent::getClassRef())) {
        ThrowMsg(ConversionException, "Not a KvPeerAgent object");
    }
    JSValueRef exception = nullptr;
    JSObjectRef object = JSValueToObject(m_context, value, &exception);
    if (exception != nullptr || object == nullptr) {
        ThrowMsg(ConversionException, "Not an object");
    }
    auto* priv = static_cast<JSKvPeerAgentPriv*>(JSObjectGetPrivate(object));
    if (priv == nullptr) {
        ThrowMsg(ConversionException, "Not a KvPeerAgent object");
    }
    return priv->getObject();
}

KvPeerAgentPtr KvConverter::toKvPeerAgent(JSValueRef value, const std::string& message) {
    try {
        return toKvPeerAgent(value);
    } catch (const ConversionException&) {
        ThrowMsg(ConversionException, message);
    }
}

KvPeerAgentPtr KvConverter::toKvPeerAgentArgument(size_t count, const JSValueRef arguments[],
                                                  const std::string& message) {
    if (count == 0) {
        ThrowMsg(ConversionException, "Argument is needed.");
    }
    return toKvPeerAgent(arguments[0], message);
}

JSValueRef KvConverter::toJSValueRef(const KvAgentListPtr& agents) {
    JSValueRef exception = nullptr;
    JSObjectRef array = JSObjectMakeArray(m_context, 0, nullptr, &exception);
    if (array == nullptr || exception != nullptr) {
        ThrowMsg(ConversionException, "Can not create array object.");
    }
    const size_t size = agents != nullptr ? agents->size() : 0;
    for (size_t index = 0; index < size; ++index) {
        JSObjectRef element = JSKvAgent::createJSObject(m_context, agents->at(index));
        JSObjectSetPropertyAtIndex(m_context, array, static_cast<unsigned>(index), element,
                                   &exception);
        if (exception != nullptr) {
            ThrowMsg(ConversionException, "Can not fill KvAgent array.");
        }
    }
    return array;
}

JSValueRef KvConverter::toJSValueRef(const KvPeerAgentPtr& peerAgent) {
    return JSKvPeerAgent::createJSObject(m_context, peerAgent);
}

JSValueRef KvConverter::toJSValueRef(const KvPeerAccessoryPtr& peerAccessory) {
    return JSKvPeerAccessory::createJSObject(m_context, peerAccessory);
}

JSValueRef KvConverter::toJSValueRef(const KvAuthenticationTokenPtr& token) {
    return JSKvAuthenticationToken::createJSObject(m_context, token);
}

}  // namespace KVP
}  // namespace DeviceAPI
