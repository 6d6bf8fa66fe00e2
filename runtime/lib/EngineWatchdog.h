// The engine's watchdog, exported by the script engine's library without a
// public declaration: once a script has run for `limit` seconds without
// returning, the callback decides whether it is terminated (true) or may go
// on for another `limit` (false).
#ifndef KV_RUNTIME_ENGINE_WATCHDOG_H
#define KV_RUNTIME_ENGINE_WATCHDOG_H

#include <JavaScriptCore/JavaScript.h>

extern "C" {
typedef bool (*JSShouldTerminateCallback)(JSContextRef context, void* data);
void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                         JSShouldTerminateCallback callback, void* data);
void JSContextGroupClearExecutionTimeLimit(JSContextGroupRef group);
}

#endif
