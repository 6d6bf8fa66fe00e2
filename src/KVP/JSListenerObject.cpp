#include "JSListenerObject.h"

#include <Commons/Exception.h>
#include <CommonsJavaScript/JSUtils.h>
#include <CommonsJavaScript/Validator.h>

#include <algorithm>
#include <iterator>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::ConversionException;
using WrtDeviceApis::CommonsJavaScript::JSUtils;
using WrtDeviceApis::CommonsJavaScript::Validator;

namespace {

typedef void (JSCallbacksManager::*SlotSetter)(JSValueRef);

const SlotSetter SLOT_SETTERS[] = {
    &JSCallbacksManager::setFirstCallback,
    &JSCallbacksManager::setSecondCallback,
    &JSCallbacksManager::setThirdCallback,
    &JSCallbacksManager::setFourthCallback,
};

// The function held by `listener[name]`, or null when it holds nothing.
JSValueRef attributeOf(JSContextRef context, JSObjectRef listener, const std::string& name) {
    JSValueRef value = JSUtils::getJSProperty(context, listener, name);
    Validator validator(context);
    if (validator.isNullOrUndefined(value)) {
        return nullptr;
    }
    if (!validator.isCallback(value)) {
        ThrowMsg(ConversionException, "'" << name << "' attribute is not a function");
    }
    return value;
}

}  // namespace

JSListenerObject readListenerObject(JSContextRef context, JSValueRef listener,
                                    const std::vector<std::string>& attributeNames,
                                    JSObjectRef owner) {
    if (listener == nullptr || !Validator(context).isObject(listener)) {
        ThrowMsg(ConversionException, "1st argument is not an object");
    }
    JSObjectRef object = JSValueToObject(context, listener, nullptr);
    JSListenerObject result;
    result.callbacks = JSCallbacksManager::createObject(context);
    const size_t slots = std::min(attributeNames.size(), std::size(SLOT_SETTERS));
    for (size_t slot = 0; slot < slots; ++slot) {
        JSValueRef callback = attributeOf(context, object, attributeNames[slot]);
        if (callback != nullptr) {
            (result.callbacks.get()->*SLOT_SETTERS[slot])(callback);
            ++result.attributeCount;
        }
    }
    result.callbacks->setObject(owner);
    return result;
}

}  // namespace KVP
}  // namespace DeviceAPI
