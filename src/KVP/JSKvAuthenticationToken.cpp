#include "JSKvAuthenticationToken.h"

#include "JSClassHolder.h"
#include "JSRecordGetter.h"

namespace DeviceAPI {
namespace KVP {

namespace {

const JSPropertyAttributes READ_ONLY =
    kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

JSValueRef readKey(KvConverter& converter, const KvAuthenticationToken& token) {
    return converter.toJSValueRef(token.getKey());
}

JSValueRef readAuthenticationType(KvConverter& converter, const KvAuthenticationToken& token) {
    return converter.toJSValueRefAuthenticationTokenType(token.getAuthenticationType());
}

}  // namespace

const JSStaticValue JSKvAuthenticationToken::m_properties[] = {
    {"key", getRecordProperty<KvAuthenticationToken, readKey>, nullptr, READ_ONLY},
    {"authenticationType", getRecordProperty<KvAuthenticationToken, readAuthenticationType>,
     nullptr, READ_ONLY},
    {nullptr, nullptr, nullptr, 0}};

constinit const JSClassDefinition JSKvAuthenticationToken::m_classInfo =
    makeClassDefinition("KvAuthenticationToken", m_properties, nullptr, nullptr, finalize);

const JSClassDefinition* JSKvAuthenticationToken::getClassInfo() { return &m_classInfo; }

JSClassRef JSKvAuthenticationToken::getClassRef() {
    static const JSClassHolder holder(getClassInfo());
    return holder.get();
}

JSObjectRef JSKvAuthenticationToken::createJSObject(JSContextRef context,
                                                    const KvAuthenticationTokenPtr& token) {
    return JSObjectMake(context, getClassRef(),
                        new JSKvAuthenticationTokenPriv(JSContextGetGlobalContext(context), token));
}

void JSKvAuthenticationToken::finalize(JSObjectRef object) {
    delete static_cast<JSKvAuthenticationTokenPriv*>(JSObjectGetPrivate(object));
    JSObjectSetPrivate(object, nullptr);
}

}  // namespace KVP
}  // namespace DeviceAPI
