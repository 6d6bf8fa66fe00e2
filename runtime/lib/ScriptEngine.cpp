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

// Gives the engine its signal; false when the engine runs already, with the
// signal it started with.
bool configureGcSignal() {
    const int fromEnvironment = signalFromEnvironment();
    const int signal = fromEnvironment ? fromEnvironment : defaultGcSignal();
    auto configure =
        reinterpret_cast<ConfigureSignalForGc>(dlsym(RTLD_DEFAULT, "JSConfigureSignalForGC"));
    if (configure) {
        // The engine's option parser also reads JSC_* variables and reports
        // this one as an invalid option on stderr, so it is not set here.
        if (!configure(signal)) {
            LoggerI(
                "the script engine started before its GC signal could be set: it keeps its own");
            return false;
        }
    } else if (!fromEnvironment) {
        setenv(kGcSignalVariable, std::to_string(signal).c_str(), 0);
    }
    LoggerD("script engine suspends threads with signal " << signal);
    return true;
}

// The signal an engine that started on its own suspends threads with.
int engineStartedSignal() {
    const int fromEnvironment = signalFromEnvironment();
    return fromEnvironment ? fromEnvironment : SIGUSR1;
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
        //
        // An engine that started before (a plug-in linked into the program
        // made its script classes when it was loaded) has its signal and its
        // handler already: ecore's must not replace that handler.
        struct sigaction engineHandler {};
        sigaction(engineStartedSignal(), nullptr, &engineHandler);
        DPL::MainLoop::Instance();
        if (!configureGcSignal() && engineHandler.sa_handler != SIG_DFL &&
            engineHandler.sa_handler != SIG_IGN) {
            sigaction(engineStartedSignal(), &engineHandler, nullptr);
        }
        return true;
    }();
    (void)prepared;
}

}  // namespace Runtime
}  // namespace Kv
