// The script global `runtime`, through which an app learns its arguments and
// ends itself:
//   runtime.exit()       ends the app with exit code 0
//   runtime.exit(code)   ends it with `code`, an integer from 0 to 255
//   runtime.args         the app's arguments, an array of strings
//   runtime.now()        milliseconds since the process started, a number
//                        with the monotonic clock's full resolution
// The call does not return: it unwinds the running script with the host's
// exit marker, which the host recognises and does not report, and no further
// script code runs except `finally` blocks (and `catch` blocks, which see the
// marker) on the way out. A bad code throws a RangeError and ends nothing.
#ifndef KV_RUNTIME_RUNTIME_OBJECT_H
#define KV_RUNTIME_RUNTIME_OBJECT_H

#include <kv-runtime/ScriptHost.h>

#include <JavaScriptCore/JavaScript.h>

#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

// A new exit marker for `context`: an object whose String() is
// "runtime.exit". The host protects it for as long as the context lives.
JSObjectRef makeExitMarker(JSContextRef context);

// Installs `runtime` in `global` (read-only, undeletable), with empty
// arguments. runtime.exit reaches `host`, which must outlive the context's
// use of it.
void installRuntimeObject(JSContextRef context, JSObjectRef global, ScriptHost& host);

// Cuts runtime.exit of `global` off its host, before the host goes while the
// context may live on (a page's frame that another frame still reaches):
// later calls throw an Error and reach nothing.
void releaseRuntimeObject(JSContextRef context, JSObjectRef global);

// Replaces runtime.args of `global` with an array of `arguments`.
void setRuntimeArguments(JSContextRef context, JSObjectRef global,
                         const std::vector<std::string>& arguments);

}  // namespace Runtime
}  // namespace Kv

#endif
