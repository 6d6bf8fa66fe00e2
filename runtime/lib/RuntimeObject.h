// The script global `runtime`, through which an app ends itself:
//   runtime.exit()       ends the app with exit code 0
//   runtime.exit(code)   ends it with `code`, an integer from 0 to 255
//   runtime.args         the app's arguments, an array of strings
//   runtime.now()        milliseconds since the process started, a number
//                        with the monotonic clock's full resolution
// The call does not return: it unwinds the running script with a marker
// value that the runtime recognises and does not report, and no further
// script code runs except `finally` blocks (and `catch` blocks, which see the
// marker) on the way out. A bad code throws a RangeError and ends nothing.
#ifndef KV_RUNTIME_RUNTIME_OBJECT_H
#define KV_RUNTIME_RUNTIME_OBJECT_H

#include <JavaScriptCore/JavaScript.h>

#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

// Installs `runtime` and returns the marker that runtime.exit throws; the
// caller protects it for the context's lifetime.
JSObjectRef installRuntimeObject(JSContextRef context, JSObjectRef global);

// Replaces runtime.args of `global` with an array of `arguments`.
void setRuntimeArguments(JSContextRef context, JSObjectRef global,
                         const std::vector<std::string>& arguments);

}  // namespace Runtime
}  // namespace Kv

#endif
