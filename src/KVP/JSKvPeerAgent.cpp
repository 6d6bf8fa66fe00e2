#include "JSKvPeerAgent.h"

#include "JSClassHolder.h"
#include "JSPrivateData.h"
#include "JSRecordGetter.h"

#include <JSWebAPIErrorFactory.h>
#include <Logger.h>

namespace DeviceAPI {
namespace KVP {

using DeviceAPI::Common::JSWebAPIErrorFactory;
using WrtDeviceApis::Commons::ConversionException;

namespace {

const JSPropertyAttributes READ_ONLY =
    kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

JSValueRef readPeerAccessory(KvConverter& converter, const KvPeerAgent& peer) {
    return converter.toJSValueRef(presentRecord(peer.getPeerAccessory()));
}

JSValueRef readAppName(KvConverter& converter, const KvPeerAgent& peer) {
    return converter.toJSValueRef(peer.getAppName());
}

JSValueRef readMaxAllowedDataSize(KvConverter& converter, const KvPeerAgent& peer) {
    return converter.toJSValueRef(peer.getMaxAllowedDataSize());
}

JSValueRef readPeerId(KvConverter& converter, const KvPeerAgent& peer) {
    return converter.toJSValueRef(peer.getPeerId());
}

JSValueRef readProfileVersion(KvConverter& converter, const KvPeerAgent& peer) {
    return converter.toJSValueRef(peer.getProfileVersion());
}

// The peer agent given as the argument of `equals`; a missing argument or
// one of any other kind throws ConversionException with the script's message.
KvPeerAgentPtr otherPeerAgent(JSContextRef context, size_t argumentCount,
                              const JSValueRef arguments[]) {
    if (argumentCount == 0) {
        ThrowMsg(ConversionException, "Argument is needed.");
    }
    try {
        return KvConverter(context).toKvPeerAgent(arguments[0]);
    } catch (const ConversionException&) {
        ThrowMsg(ConversionException, "Arguments is not a KvPeerAgent object.");
    }
}

}  // namespace

const JSStaticValue JSKvPeerAgent::m_properties[] = {
    {"peerAccessory", getRecordProperty<KvPeerAgent, readPeerAccessory>, nullptr, READ_ONLY},
    {"appName", getRecordProperty<KvPeerAgent, readAppName>, nullptr, READ_ONLY},
    {"maxAllowedDataSize", getRecordProperty<KvPeerAgent, readMaxAllowedDataSize>, nullptr,
     READ_ONLY},
    {"peerId", getRecordProperty<KvPeerAgent, readPeerId>, nullptr, READ_ONLY},
    {"profileVersion", getRecordProperty<KvPeerAgent, readProfileVersion>, nullptr, READ_ONLY},
    {nullptr, nullptr, nullptr, 0}};

const JSStaticFunction JSKvPeerAgent::m_functions[] = {{"equals", equals, kJSPropertyAttributeNone},
                                                       {nullptr, nullptr, 0}};

constinit const JSClassDefinition JSKvPeerAgent::m_classInfo =
    makeClassDefinition("KvPeerAgent", m_properties, m_functions, nullptr, finalize);

const JSClassDefinition* JSKvPeerAgent::getClassInfo() { return &m_classInfo; }

JSClassRef JSKvPeerAgent::getClassRef() {
    static const JSClassHolder holder(getClassInfo());
    return holder.get();
}

JSObjectRef JSKvPeerAgent::createJSObject(JSContextRef context, const KvPeerAgentPtr& peerAgent) {
    return JSObjectMake(context, getClassRef(),
                        new JSKvPeerAgentPriv(JSContextGetGlobalContext(context), peerAgent));
}

void JSKvPeerAgent::finalize(JSObjectRef object) {
    delete static_cast<JSKvPeerAgentPriv*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

JSValueRef JSKvPeerAgent::equals(JSContextRef context, JSObjectRef /*function*/,
                                 JSObjectRef thisObject, size_t argumentCount,
                                 const JSValueRef arguments[], JSValueRef* exception) {
    LoggerI("entered");
    try {
        auto* priv = privateDataOf<JSKvPeerAgentPriv>(context, thisObject, getClassRef());
        if (priv == nullptr) {
            LoggerE("No private object");
            return JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR, "Wrong object");
        }
        const KvPeerAgentPtr other = otherPeerAgent(context, argumentCount, arguments);
        return JSValueMakeBoolean(context, priv->getObject()->isSamePeer(*other));
    } catch (const ConversionException& error) {
        LoggerE("Error on conversion : " << error.GetMessage());
        return JSWebAPIErrorFactory::postException(
            context, exception, JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR, error.GetMessage());
    } catch (const std::exception& error) {
        LoggerE("Error on platform : " << error.what());
    } catch (...) {
        LoggerE("Error on platform : unknown");
    }
    return JSWebAPIErrorFactory::postException(
        context, exception, JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error");
}

}  // namespace KVP
}  // namespace DeviceAPI
