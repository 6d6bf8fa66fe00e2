#include <kv-runtime/Console.h>

#include "CallbackGuard.h"

#include <kv-runtime/JsValues.h>

#include <Logger.h>

#include <atomic>
#include <cstdio>

namespace Kv {
namespace Runtime {

namespace {

enum class Level { Log, Info, Warn, Error };

bool isErrorObject(JSContextRef context, JSValueRef value) {
    JSObjectRef global = JSContextGetGlobalObject(context);
    JSValueRef constructor = getProperty(context, global, "Error");
    if (!JSValueIsObject(context, constructor)) {
        return false;
    }
    JSObjectRef errorConstructor = JSValueToObject(context, constructor, nullptr);
    return JSValueIsInstanceOfConstructor(context, value, errorConstructor, nullptr);
}

// JSON for plain objects and arrays; empty when the value has no JSON form
// (a function, a cycle) so that the caller falls back to String(value).
std::string jsonOf(JSContextRef context, JSValueRef value) {
    JSValueRef exception = nullptr;
    JSStringRef json = JSValueCreateJSONString(context, value, 0, &exception);
    if (!json) {
        return {};
    }
    return JsString::adopt(json).str();
}

std::string formatValue(JSContextRef context, JSValueRef value) {
    if (JSValueIsString(context, value)) {
        return toStdString(context, value);
    }
    const bool plainObject = JSValueIsObject(context, value) && !isErrorObject(context, value) &&
                             !JSObjectIsFunction(context, JSValueToObject(context, value, nullptr));
    if (plainObject) {
        std::string json = jsonOf(context, value);
        if (!json.empty()) {
            return json;
        }
    }
    return toStdString(context, value);
}

std::atomic<bool> outputStopped{false};

void write(Level level, const std::string& text) {
    if (outputStopped.load(std::memory_order_relaxed)) {
        return;
    }
    FILE* stream = level == Level::Warn || level == Level::Error ? stderr : stdout;
    std::fprintf(stream, "%s\n", text.c_str());
    std::fflush(stream);
    switch (level) {
        case Level::Log:
        case Level::Info:
            LoggerI("console: " << text);
            break;
        case Level::Warn:
            LoggerW("console: " << text);
            break;
        case Level::Error:
            LoggerE("console: " << text);
            break;
    }
}

template <Level level>
JSValueRef print(JSContextRef context, JSObjectRef /*function*/, JSObjectRef /*thisObject*/,
                 size_t count, const JSValueRef arguments[], JSValueRef* exception) {
    return guardCallback(context, exception, [&] {
        write(level, formatConsoleArguments(context, count, arguments));
        return JSValueMakeUndefined(context);
    });
}

void installPrinters(JSContextRef context, JSObjectRef console) {
    setFunction(context, console, "log", print<Level::Log>);
    setFunction(context, console, "info", print<Level::Info>);
    setFunction(context, console, "warn", print<Level::Warn>);
    setFunction(context, console, "error", print<Level::Error>);
}

}  // namespace

std::string formatConsoleArguments(JSContextRef context, size_t count, const JSValueRef values[]) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) {
            text += ' ';
        }
        text += formatValue(context, values[i]);
    }
    return text;
}

void stopConsoleOutput() { outputStopped.store(true, std::memory_order_relaxed); }

void installConsole(JSContextRef context, JSObjectRef global) {
    JSObjectRef console = JSObjectMake(context, nullptr, nullptr);
    installPrinters(context, console);
    setProperty(context, global, "console", console, kJSPropertyAttributeDontEnum);
}

JSValueRef printNothing(JSContextRef context, JSObjectRef /*function*/, JSObjectRef /*thisObject*/,
                        size_t /*count*/, const JSValueRef /*arguments*/[],
                        JSValueRef* /*exception*/) {
    return JSValueMakeUndefined(context);
}

void silenceConsole(JSContextRef context, JSObjectRef global) {
    JSValueRef console = getProperty(context, global, "console");
    if (!JSValueIsObject(context, console)) {
        return;
    }
    JSObjectRef object = JSValueToObject(context, console, nullptr);
    for (const char* level : {"log", "info", "warn", "error"}) {
        setProperty(context, object, level,
                    JSObjectMakeFunctionWithCallback(context, nullptr, printNothing));
    }
}

void wrapConsole(JSContextRef context, JSObjectRef global) {
    JSValueRef console = getProperty(context, global, "console");
    if (!JSValueIsObject(context, console)) {
        installConsole(context, global);
        return;
    }
    JSObjectRef printers = JSObjectMake(context, nullptr, nullptr);
    installPrinters(context, printers);
    static const char kWrapper[] =
        "(function (console, printers) {\n"
        "    ['log', 'info', 'warn', 'error'].forEach(function (level) {\n"
        "        var engine = console[level], print = printers[level];\n"
        "        console[level] = function () {\n"
        "            print.apply(undefined, arguments);\n"
        "            return engine.apply(console, arguments);\n"
        "        };\n"
        "    });\n"
        "})";
    JSValueRef exception = nullptr;
    JSValueRef wrapper =
        JSEvaluateScript(context, JsString(kWrapper).get(), nullptr, nullptr, 1, &exception);
    const JSValueRef arguments[] = {console, printers};
    JSObjectCallAsFunction(context, JSValueToObject(context, wrapper, nullptr), nullptr, 2,
                           arguments, &exception);
    if (exception) {
        LoggerW("cannot wrap the page's console: " << toStdString(context, exception));
    }
}

}  // namespace Runtime
}  // namespace Kv
