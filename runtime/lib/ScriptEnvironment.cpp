#include <kv-runtime/ScriptEnvironment.h>

#include <kv-runtime/Console.h>
#include <kv-runtime/RuntimeObject.h>
#include <kv-runtime/ScriptError.h>
#include "ShutdownTriggers.h"
#include "TimeLimit.h"
#include "TimerRegistry.h"

#include <kv-runtime/JsValues.h>
#include <kv-runtime/ScriptEngine.h>

#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <Logger.h>

#include <cstdio>

namespace Kv {
namespace Runtime {

using WrtDeviceApis::CommonsJavaScript::ScriptExceptionHost;

namespace {

// The class of every app's global object. It only serves to carry the
// owning ScriptEnvironment as the global object's private data; it is made
// once and kept for the life of the process.
JSClassRef globalClass() {
    static JSClassRef theClass = [] {
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = "Global";
        return JSClassCreate(&definition);
    }();
    return theClass;
}

}  // namespace

ScriptEnvironment::ScriptEnvironment() {
    prepareScriptEngine();
    m_context = JSGlobalContextCreate(globalClass());
    JSObjectSetPrivate(JSContextGetGlobalObject(m_context), this);
    m_timers = std::make_unique<TimerRegistry>(*this);
    installGlobals();
    // What a plug-in's callback throws is uncaught as much as what a timer
    // callback throws, and is reported the same way; once the app is ending,
    // plug-ins call none of its callbacks.
    ScriptExceptionHost::attach(
        m_context, [this](JSValueRef exception) { reportUncaught(exception); },
        [this] { return !m_exit.exitRequested(); });
}

ScriptEnvironment::~ScriptEnvironment() {
    ScriptExceptionHost::detach(m_context);
    m_timeLimit.reset();
    m_timers.reset();
    JSValueUnprotect(m_context, m_exitMarker);
    JSObjectSetPrivate(JSContextGetGlobalObject(m_context), nullptr);
    JSGlobalContextRelease(m_context);
}

ScriptEnvironment* ScriptEnvironment::from(JSContextRef context) {
    if (!context) {
        return nullptr;
    }
    JSObjectRef global = JSContextGetGlobalObject(context);
    if (!JSValueIsObjectOfClass(context, global, globalClass())) {
        return nullptr;
    }
    return static_cast<ScriptEnvironment*>(JSObjectGetPrivate(global));
}

void ScriptEnvironment::installGlobals() {
    JSObjectRef global = JSContextGetGlobalObject(m_context);
    installConsole(m_context, global);
    TimerRegistry::install(m_context, global);
    m_exitMarker = makeExitMarker(m_context);
    JSValueProtect(m_context, m_exitMarker);
    installRuntimeObject(m_context, global, *this);
}

void ScriptEnvironment::exitRequested(int code) { m_exit.requestExit(ExitReason::Script, code); }

void ScriptEnvironment::setArguments(const std::vector<std::string>& arguments) {
    setRuntimeArguments(m_context, JSContextGetGlobalObject(m_context), arguments);
}

bool ScriptEnvironment::evaluate(const std::string& source, const std::string& fileName) {
    m_scriptName = fileName;
    JSValueRef exception = nullptr;
    JSEvaluateScript(m_context, JsString(source).get(), nullptr, JsString(fileName).get(), 1,
                     &exception);
    if (!exception || JSValueIsStrictEqual(m_context, exception, m_exitMarker)) {
        return true;
    }
    reportUncaught(exception);
    return false;
}

void ScriptEnvironment::setTimeLimit(double seconds) {
    m_timeLimit = std::make_unique<TimeLimit>(m_context, m_exit, seconds);
}

int ScriptEnvironment::run() {
    ShutdownTriggers triggers(m_exit);
    m_exit.runLoop();
    return m_exit.exitCode();
}

void ScriptEnvironment::reportUncaught(JSValueRef exception) {
    if (JSValueIsStrictEqual(m_context, exception, m_exitMarker) ||
        m_exit.reason() == ExitReason::Timeout) {
        return;  // runtime.exit unwinding the script, or the watchdog stopping it
    }
    const std::string report =
        formatUncaught(describeException(m_context, exception, m_scriptName));
    std::fprintf(stderr, "%s\n", report.c_str());
    std::fflush(stderr);
    LoggerE(report);
    m_exit.requestExit(ExitReason::Uncaught);
}

size_t ScriptEnvironment::pendingTimers() const { return m_timers->pending(); }

void ScriptEnvironment::collectGarbage() { JSGarbageCollect(m_context); }

}  // namespace Runtime
}  // namespace Kv
