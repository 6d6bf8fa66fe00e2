// Process-wide preparation of the script engine. Call prepareScriptEngine()
// on the main loop's thread before the first JavaScriptCore call of the
// process, including the loading of a plug-in (plug-ins may create their
// script classes when they are loaded).
#ifndef KV_RUNTIME_SCRIPT_ENGINE_H
#define KV_RUNTIME_SCRIPT_ENGINE_H

#include <JavaScriptCore/JavaScript.h>

namespace Kv {
namespace Runtime {

// The signal the engine uses to suspend threads for garbage collection
// unless JSC_SIGNAL_FOR_GC names another: a real-time signal that ecore
// leaves alone (ecore handles SIGUSR1, the engine's own default).
int defaultGcSignal();

// Ends every script of `context`'s group (all the contexts of one engine)
// at its next function call or loop turn, and any that starts later: for an
// app that has ended while its contexts live on.
void stopAllScripts(JSContextRef context);

// Once per process: initialises the main loop (and with it ecore) through
// DPL::MainLoop, then gives the engine its thread-suspension signal, the one
// JSC_SIGNAL_FOR_GC names or else defaultGcSignal(). Engines that export
// JSConfigureSignalForGC get it through that call; older engines through the
// variable, which is set when it is not.
void prepareScriptEngine();

}  // namespace Runtime
}  // namespace Kv

#endif
