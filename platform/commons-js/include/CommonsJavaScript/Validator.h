// Questions about script values that the script classes ask before
// converting them: is it a callable function, is it absent, is it an object
// of a given class.
#ifndef KV_PLATFORM_COMMONS_JS_VALIDATOR_H
#define KV_PLATFORM_COMMONS_JS_VALIDATOR_H

#include <JavaScriptCore/JavaScript.h>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

class Validator {
public:
    // `exception` is the calling script function's exception slot; checks
    // that run script (isInstanceOf) store what the script throws there.
    explicit Validator(JSContextRef context, JSValueRef* exception = nullptr);
    virtual ~Validator();

    // True for a script function (an object that can be called).
    bool isCallback(JSValueRef value) const;
    // True for a null pointer, script null and script undefined.
    bool isNullOrUndefined(JSValueRef value) const;
    bool isObject(JSValueRef value) const;
    bool isArray(JSValueRef value) const;
    bool isDate(JSValueRef value) const;
    // True when `value` is an object made with `jsClass` (or a subclass).
    bool isObjectOfClass(JSValueRef value, JSClassRef jsClass) const;
    // The script's `value instanceof constructor`; false when that throws,
    // with the thrown value stored in the exception slot.
    bool isInstanceOf(JSValueRef value, JSObjectRef constructor) const;

protected:
    JSContextRef m_context;
    JSValueRef* m_exception;
};

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
