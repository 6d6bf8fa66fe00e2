#include <kv-runtime/ScriptEngine.h>

#include "EngineWatchdog.h"

#include <dpl/main_loop.h>

#include <Logger.h>

#include <dlfcn.h>
#include <csignal>
#include <cstdlib>
#include <string>

namespace Kv {
namespace Runtime {

namespace {

const char kGcSignalVariable[] = "JSC_SIGNAL_FOR_GC";

// The engine's call that sets the thread-suspension signal; recent engines
// export it (without a public declaration), older ones only read the
// environment variable.
using ConfigureSignalForGc = bool (*)(int signal);

int signalFromEnvironment() {
    const char* value = std::getenv(kGcSignalVariable);
    if (!value || !*value) {
        return 0;
    }
    char* end = nullptr;
    const long signal = std::strtol(value, &end, 10);
    return *end == '\0' && signal > 0 && signal <= SIGRTMAX ? static_cast<int>(signal) : 0;
}

void configureGcSignal() {
    const int fromEnvironment = signalFromEnvironment();
    const int signal = fromEnvironment ? fromEnvironment : defaultGcSignal();
    auto configure =
        reinterpret_cast<ConfigureSignalForGc>(dlsym(RTLD_DEFAULT, "JSConfigureSignalForGC"));
    if (configure) {
        // The engine's option parser also reads JSC_* variables and reports
        // this one as an invalid option on stderr, so it is not set here.
        if (!configure(signal)) {
            LoggerW("the script engine was started before its GC signal could be set");
        }
    } else if (!fromEnvironment) {
        setenv(kGcSignalVariable, std::to_string(signal).c_str(), 0);
    }
    LoggerD("script engine suspends threads with signal " << signal);
}

}  // namespace

int defaultGcSignal() { return SIGRTMIN + 4; }

void stopAllScripts(JSContextRef context) {
    JSContextGroupSetExecutionTimeLimit(
        JSContextGetGroup(JSContextGetGlobalContext(context)), 0,
        [](JSContextRef, void*) { return true; }, nullptr);
}

void prepareScriptEngine() {
    static const bool prepared = [] {
        // The loop comes first: it initialises ecore, which installs its own
        // signal handlers, among them one for SIGUSR1, the engine's default
        // signal for suspending threads during garbage collection. The engine
        // gets a real-time signal that no one else handles instead, or a
        // collection that suspends a thread would never see it resume.
        DPL::MainLoop::Instance();
        configureGcSignal();
        return true;
    }();
    (void)prepared;
}

}  // namespace Runtime
}  // namespace Kv
