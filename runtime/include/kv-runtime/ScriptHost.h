// What the script globals of the runtime need of the host that runs a script
// context: the script host's ScriptEnvironment for a script-only app, or one
// frame of a page for an app that is a page.
#ifndef KV_RUNTIME_SCRIPT_HOST_H
#define KV_RUNTIME_SCRIPT_HOST_H

#include <JavaScriptCore/JavaScript.h>

namespace Kv {
namespace Runtime {

class ScriptHost {
public:
    virtual ~ScriptHost() = default;

    // runtime.exit(code): the app asks to end with `code`, from 0 to 255.
    // Called from inside the script; the host ends the app once the script
    // has unwound.
    virtual void exitRequested(int code) = 0;

    // The value runtime.exit throws in this host's context to unwind the
    // script. A host never reports it as an uncaught exception.
    virtual JSObjectRef exitMarker() const = 0;
};

}  // namespace Runtime
}  // namespace Kv

#endif
