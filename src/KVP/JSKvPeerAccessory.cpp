#include "JSKvPeerAccessory.h"

#include "JSClassHolder.h"
#include "JSRecordGetter.h"

namespace DeviceAPI {
namespace KVP {

namespace {

const JSPropertyAttributes READ_ONLY =
    kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

JSValueRef readDeviceAddress(KvConverter& converter, const KvPeerAccessory& accessory) {
    return converter.toJSValueRef(accessory.getDeviceAddress());
}

JSValueRef readDeviceName(KvConverter& converter, const KvPeerAccessory& accessory) {
    return converter.toJSValueRef(accessory.getDeviceName());
}

JSValueRef readProductId(KvConverter& converter, const KvPeerAccessory& accessory) {
    return converter.toJSValueRef(accessory.getProductId());
}

JSValueRef readTransportType(KvConverter& converter, const KvPeerAccessory& accessory) {
    return converter.toJSValueRefTransportType(accessory.getTransportType());
}

JSValueRef readVendorId(KvConverter& converter, const KvPeerAccessory& accessory) {
    return converter.toJSValueRef(accessory.getVendorId());
}

}  // namespace

const JSStaticValue JSKvPeerAccessory::m_properties[] = {
    {"deviceAddress", getRecordProperty<KvPeerAccessory, readDeviceAddress>, nullptr, READ_ONLY},
    {"deviceName", getRecordProperty<KvPeerAccessory, readDeviceName>, nullptr, READ_ONLY},
    {"productId", getRecordProperty<KvPeerAccessory, readProductId>, nullptr, READ_ONLY},
    {"transportType", getRecordProperty<KvPeerAccessory, readTransportType>, nullptr, READ_ONLY},
    {"vendorId", getRecordProperty<KvPeerAccessory, readVendorId>, nullptr, READ_ONLY},
    {nullptr, nullptr, nullptr, 0}};

constinit const JSClassDefinition JSKvPeerAccessory::m_classInfo =
    makeClassDefinition("KvPeerAccessory", m_properties, nullptr, nullptr, finalize);

const JSClassDefinition* JSKvPeerAccessory::getClassInfo() { return &m_classInfo; }

JSClassRef JSKvPeerAccessory::getClassRef() {
    static const JSClassHolder holder(getClassInfo());
    return holder.get();
}

JSObjectRef JSKvPeerAccessory::createJSObject(JSContextRef context,
                                              const KvPeerAccessoryPtr& accessory) {
    return JSObjectMake(context, getClassRef(),
                        new JSKvPeerAccessoryPriv(JSContextGetGlobalContext(context), accessory));
}

void JSKvPeerAccessory::finalize(JSObjectRef object) {
    delete static_cast<JSKvPeerAccessoryPriv*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

}  // namespace KVP
}  // namespace DeviceAPI
