#include "JSKvPeerAgent.h"

#include "JSClassHolder.h"
#include "JSPrivateData.h"
#include "JSRecordGetter.h"
#include "JSScriptMethod.h"
#include "KvConverter.h"

namespace DeviceAPI {
namespace KVP {

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
    return callScriptMethod(context, exception, [&] {
        auto* priv = privateDataOf<JSKvPeerAgentPriv>(context, thisObject, getClassRef());
        if (priv == nullptr) {
            ThrowMsg(WrtDeviceApis::Commons::NullPointerException, "No private object.");
        }
        const KvPeerAgentPtr other = KvConverter(context).toKvPeerAgentArgument(
            argumentCount, arguments, "Arguments is not a KvPeerAgent object.");
        return JSValueMakeBoolean(context, priv->getObject()->isSamePeer(*other));
    });
}

}  // namespace KVP
}  // namespace DeviceAPI
