// The property getter of a read-only record class: it takes the record
// behind the script object, reads one value and converts it. Getters never
// throw to the script: a missing private object or a failing read is logged
// as "trying to get incorrect value" and answers undefined.
//   JSValueRef readAppName(KvConverter& converter, const KvPeerAgent& peer) {
//       return converter.toJSValueRef(peer.getAppName());
//   }
//   { "appName", getRecordProperty<KvPeerAgent, readAppName>, nullptr, attributes }
#ifndef KVP_JS_RECORD_GETTER_H
#define KVP_JS_RECORD_GETTER_H

#include "KvConverter.h"

#include <Commons/Exception.h>
#include <CommonsJavaScript/PrivateObject.h>
#include <Logger.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

// `record` itself, for a getter that reads a linked record which may be
// missing: a missing one is a failed read (and the getter answers undefined)
// rather than a script object without a record behind it.
template <class T>
DPL::SharedPtr<T> presentRecord(const DPL::SharedPtr<T>& record) {
    if (record == nullptr) {
        ThrowMsg(WrtDeviceApis::Commons::NullPointerException, "Record is null");
    }
    return record;
}

template <class Record, JSValueRef (*Read)(KvConverter&, const Record&)>
JSValueRef getRecordProperty(JSContextRef context, JSObjectRef object, JSStringRef /*name*/,
                             JSValueRef* /*exception*/) {
    typedef WrtDeviceApis::CommonsJavaScript::PrivateObject<DPL::SharedPtr<Record>> Private;
    try {
        auto* priv = static_cast<Private*>(JSObjectGetPrivate(object));
        if (priv == nullptr) {
            ThrowMsg(WrtDeviceApis::Commons::NullPointerException, "Private object is null");
        }
        KvConverter converter(context);
        return Read(converter, *priv->getObject());
    } catch (const WrtDeviceApis::Commons::Exception& error) {
        LoggerE("trying to get incorrect value");
    } catch (...) {
        LoggerE("trying to get incorrect value");
    }
    return JSValueMakeUndefined(context);
}

}  // namespace KVP
}  // namespace DeviceAPI

#endif
