// The script global `console`: log and info print a line to stdout, warn and
// error to stderr; each line is also logged (info, info, warning, error).
// Arguments are joined by blanks: strings as they are, plain objects and
// arrays as JSON, everything else as String(value).
#ifndef KV_RUNTIME_CONSOLE_H
#define KV_RUNTIME_CONSOLE_H

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace Kv {
namespace Runtime {

void installConsole(JSContextRef context, JSObjectRef global);

// The text console.log prints for these arguments.
std::string formatConsoleArguments(JSContextRef context, size_t count, const JSValueRef values[]);

}  // namespace Runtime
}  // namespace Kv

#endif
