// The private data of `this` in a script method or getter, checked against
// the script class first: an object of any other class (a plain object, an
// object of another script class of the plug-in) gives null, never a pointer
// of the wrong type.
//   auto* controller = privateDataOf<KvManagerController>(context, thisObject,
//                                                         JSKvManager::getClassRef());
#ifndef KVP_JS_PRIVATE_DATA_H
#define KVP_JS_PRIVATE_DATA_H

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

template <class Private>
Private* privateDataOf(JSContextRef context, JSObjectRef object, JSClassRef classRef) {
    if (object == nullptr || !JSValueIsObjectOfClass(context, object, classRef)) {
        return nullptr;
    }
    return static_cast<Private*>(JSObjectGetPrivate(object));
}

}  // namespace KVP
}  // namespace DeviceAPI

#endif
