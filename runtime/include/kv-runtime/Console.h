// The script global `console` of every app: log and info print a line to
// stdout, warn and error to stderr; each line is also logged (info, info,
// warning, error). Arguments are joined by blanks: strings as they are, plain
// objects and arrays as JSON, everything else as String(value).
#ifndef KV_RUNTIME_CONSOLE_H
#define KV_RUNTIME_CONSOLE_H

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace Kv {
namespace Runtime {

// Installs `console` in a context that has none (the script host's).
void installConsole(JSContextRef context, JSObjectRef global);

// Makes console.log, info, warn and error of a context that has its own
// console (a page's) print as above first, then do what they did before (the
// engine's console keeps its messages for the page's inspector).
void wrapConsole(JSContextRef context, JSObjectRef global);

// Makes console.log, info, warn and error of a context print nothing: for a
// document whose app has ended while the context lives on (set natively, so
// it works where no script may run any more).
void silenceConsole(JSContextRef context, JSObjectRef global);

// Stops every console of this process for good: from then on its log, info,
// warn and error print nothing (for an app that has ended while the engine
// may still run a little of its script).
void stopConsoleOutput();

// The text console.log prints for these arguments.
std::string formatConsoleArguments(JSContextRef context, size_t count, const JSValueRef values[]);

}  // namespace Runtime
}  // namespace Kv

#endif
