// Reads the listener object that a script passes to a listener setter: an
// object whose attributes, each a function, are the callbacks of the
// listener. The callbacks are kept in a JSCallbacksManager in the order of
// the attribute names given, and the script object whose listener it is
// stands as `this` when they are called.
//   JSCallbacksManagerPtr callbacks = readListenerObject(
//       context, validator.getArgument(0), {"onprogress", "oncomplete", "onerror"}, thisObject);
#ifndef KVP_JS_LISTENER_OBJECT_H
#define KVP_JS_LISTENER_OBJECT_H

#include "JSCallbacksManager.h"

#include <JavaScriptCore/JavaScript.h>

#include <string>
#include <vector>

namespace DeviceAPI {
namespace KVP {

struct JSListenerObject {
    JSCallbacksManagerPtr callbacks;
    // How many of the attributes the object has.
    size_t attributeCount = 0;
};

// Reads at most four attributes of `listener`, in slot order. An attribute
// that is missing, undefined or null leaves its slot empty. Throws
// ConversionException "1st argument is not an object" when `listener` is no
// object, and "'<name>' attribute is not a function" when an attribute is
// something else than a function.
JSListenerObject readListenerObject(JSContextRef context, JSValueRef listener,
                                    const std::vector<std::string>& attributeNames,
                                    JSObjectRef owner);

}  // namespace KVP
}  // namespace DeviceAPI

#endif
