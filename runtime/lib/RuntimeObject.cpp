#include "RuntimeObject.h"

#include "CallbackGuard.h"

#include <kv-runtime/JsValues.h>
#include <kv-runtime/ScriptEnvironment.h>

#include <cmath>
#include <stdexcept>

namespace Kv {
namespace Runtime {

namespace {

// The exit code asked for, or -1 when the argument is not one.
int exitCodeArgument(JSContextRef context, size_t count, const JSValueRef arguments[]) {
    if (count == 0 || JSValueIsUndefined(context, arguments[0])) {
        return 0;
    }
    if (!JSValueIsNumber(context, arguments[0])) {
        return -1;
    }
    const double code = JSValueToNumber(context, arguments[0], nullptr);
    if (std::isnan(code) || code != std::floor(code) || code < 0 || code > 255) {
        return -1;
    }
    return static_cast<int>(code);
}

JSValueRef exitApp(JSContextRef context, JSObjectRef /*function*/, JSObjectRef /*thisObject*/,
                   size_t count, const JSValueRef arguments[], JSValueRef* exception) {
    return guardCallback(context, exception, [&] {
        const int code = exitCodeArgument(context, count, arguments);
        if (code < 0) {
            *exception = makeError(
                context, "runtime.exit: the code must be an integer from 0 to 255", "RangeError");
            return JSValueMakeUndefined(context);
        }
        ScriptEnvironment* environment = ScriptEnvironment::from(context);
        if (!environment) {
            throw std::logic_error("runtime.exit is not available in this context");
        }
        environment->exitControl().requestExit(ExitReason::Script, code);
        *exception = environment->exitMarker();
        return JSValueMakeUndefined(context);
    });
}

JSObjectRef makeMarker(JSContextRef context) {
    JSObjectRef marker = JSObjectMake(context, nullptr, nullptr);
    JSObjectRef toString =
        JSObjectMakeFunction(context, nullptr, 0, nullptr, JsString("return 'runtime.exit';").get(),
                             nullptr, 1, nullptr);
    setProperty(context, marker, "toString", toString, kJSPropertyAttributeDontEnum);
    return marker;
}

}  // namespace

JSObjectRef installRuntimeObject(JSContextRef context, JSObjectRef global) {
    JSObjectRef runtime = JSObjectMake(context, nullptr, nullptr);
    setFunction(context, runtime, "exit", exitApp);
    JSObjectRef marker = makeMarker(context);
    setProperty(context, global, "runtime", runtime,
                kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete);
    setRuntimeArguments(context, global, {});
    return marker;
}

void setRuntimeArguments(JSContextRef context, JSObjectRef global,
                         const std::vector<std::string>& arguments) {
    std::vector<JSValueRef> values;
    for (const std::string& argument : arguments) {
        values.push_back(JSValueMakeString(context, JsString(argument).get()));
    }
    JSObjectRef array = JSObjectMakeArray(context, values.size(), values.data(), nullptr);
    JSObjectRef runtime =
        JSValueToObject(context, getProperty(context, global, "runtime"), nullptr);
    setProperty(context, runtime, "args", array, kJSPropertyAttributeNone);
}

}  // namespace Runtime
}  // namespace Kv
