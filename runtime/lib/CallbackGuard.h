// Keeps C++ exceptions out of the script engine: every native function the
// runtime gives to scripts runs its body through guardCallback, which turns
// an escaping exception into a script Error thrown to the caller.
#ifndef KV_RUNTIME_CALLBACK_GUARD_H
#define KV_RUNTIME_CALLBACK_GUARD_H

#include <kv-runtime/JsValues.h>

#include <Logger.h>

#include <exception>

namespace Kv {
namespace Runtime {

template <typename Body>
JSValueRef guardCallback(JSContextRef context, JSValueRef* exception, Body&& body) {
    try {
        return body();
    } catch (const std::exception& error) {
        LoggerE("native function failed: " << error.what());
        *exception = makeError(context, error.what());
    } catch (...) {
        LoggerE("native function failed with an unknown exception");
        *exception = makeError(context, "internal error");
    }
    return JSValueMakeUndefined(context);
}

}  // namespace Runtime
}  // namespace Kv

#endif
