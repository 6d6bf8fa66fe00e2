#include <kv-runtime/RuntimeObject.h>

#include "CallbackGuard.h"

#include <kv-runtime/JsValues.h>

#include <time.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

namespace Kv {
namespace Runtime {

namespace {

// When the process started, on the monotonic clock: the start time of the
// process in /proc is in clock ticks since boot, which the monotonic clock
// counts too.
const timespec& processStart() {
    static const timespec start = [] {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        std::ifstream stat("/proc/self/stat");
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        std::istringstream fields(text.substr(text.rfind(')') + 2));
        std::string field;
        for (int number = 3; number <= 22 && fields >> field; ++number) {
        }
        const double ticks = fields ? std::stod(field) : 0.0;
        const double seconds = ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
        timespec start{};
        start.tv_sec = static_cast<time_t>(seconds);
        start.tv_nsec = static_cast<long>((seconds - static_cast<double>(start.tv_sec)) * 1e9);
        return seconds > 0 ? start : now;
    }();
    return start;
}

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

// runtime.exit is an object of this class, callable as a function, whose
// private data is the host it reaches.
JSValueRef exitApp(JSContextRef context, JSObjectRef function, JSObjectRef /*thisObject*/,
                   size_t count, const JSValueRef arguments[], JSValueRef* exception) {
    return guardCallback(context, exception, [&] {
        const int code = exitCodeArgument(context, count, arguments);
        if (code < 0) {
            *exception = makeError(
                context, "runtime.exit: the code must be an integer from 0 to 255", "RangeError");
            return JSValueMakeUndefined(context);
        }
        auto* host = static_cast<ScriptHost*>(JSObjectGetPrivate(function));
        if (!host) {
            throw std::logic_error("runtime.exit is not available in this context");
        }
        host->exitRequested(code);
        *exception = host->exitMarker();
        return JSValueMakeUndefined(context);
    });
}

JSClassRef exitFunctionClass() {
    static JSClassRef theClass = [] {
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = "Function";
        definition.callAsFunction = exitApp;
        return JSClassCreate(&definition);
    }();
    return theClass;
}

// Milliseconds since the process started, with the clock's full resolution.
JSValueRef now(JSContextRef context, JSObjectRef /*function*/, JSObjectRef /*thisObject*/,
               size_t /*count*/, const JSValueRef /*arguments*/[], JSValueRef* /*exception*/) {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    const double elapsed = static_cast<double>(time.tv_sec - processStart().tv_sec) * 1000.0 +
                           static_cast<double>(time.tv_nsec - processStart().tv_nsec) / 1.0e6;
    return JSValueMakeNumber(context, elapsed);
}

}  // namespace

JSObjectRef makeExitMarker(JSContextRef context) {
    JSObjectRef marker = JSObjectMake(context, nullptr, nullptr);
    JSObjectRef toString =
        JSObjectMakeFunction(context, nullptr, 0, nullptr, JsString("return 'runtime.exit';").get(),
                             nullptr, 1, nullptr);
    setProperty(context, marker, "toString", toString, kJSPropertyAttributeDontEnum);
    return marker;
}

void installRuntimeObject(JSContextRef context, JSObjectRef global, ScriptHost& host) {
    JSObjectRef runtime = JSObjectMake(context, nullptr, nullptr);
    JSObjectRef exit = JSObjectMake(context, exitFunctionClass(), &host);
    // A function to scripts in every respect: runtime.exit.call(...) works.
    JSValueRef functionPrototype = getProperty(
        context, JSValueToObject(context, getProperty(context, global, "Function"), nullptr),
        "prototype");
    JSObjectSetPrototype(context, exit, functionPrototype);
    setProperty(context, runtime, "exit", exit,
                kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete);
    setFunction(context, runtime, "now", now);
    processStart();
    setProperty(context, global, "runtime", runtime,
                kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete);
    setRuntimeArguments(context, global, {});
}

void releaseRuntimeObject(JSContextRef context, JSObjectRef global) {
    JSValueRef runtime = getProperty(context, global, "runtime");
    if (!JSValueIsObject(context, runtime)) {
        return;
    }
    JSValueRef exit = getProperty(context, JSValueToObject(context, runtime, nullptr), "exit");
    if (JSValueIsObjectOfClass(context, exit, exitFunctionClass())) {
        JSObjectSetPrivate(JSValueToObject(context, exit, nullptr), nullptr);
    }
}

void setRuntimeArguments(JSContextRef context, JSObjectRef global,
                         const std::vector<std::string>& arguments) {
    std::vector<JSValueRef> values;
    values.reserve(arguments.size());
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
