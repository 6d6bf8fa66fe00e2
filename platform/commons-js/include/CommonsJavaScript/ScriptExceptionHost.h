// Exceptions that a script callback throws when native code calls it (a
// plug-in's listener, a request's success or error callback) have no script
// caller to catch them. They belong to the host that owns the script
// context, which reports them as it reports its own uncaught exceptions.
//
// A host attaches itself to each global context it makes and detaches before
// it releases the context:
//   ScriptExceptionHost::attach(context, [this](JSValueRef exception) {
//       reportUncaught(exception);
//   });
//   ...
//   ScriptExceptionHost::detach(context);
// and native code that called a callback hands over what it threw:
//   JSObjectCallAsFunction(context, callback, thisObject, count, arguments, &exception);
//   if (exception != nullptr) {
//       ScriptExceptionHost::reportUncaught(context, exception);
//   }
// Where no host is attached (a plug-in's unit test has none), the exception
// is only logged.
//
// A host also tells whether its script still runs: once the app is ending
// (it asked to exit, or an uncaught exception ends it), native code calls no
// more of its callbacks, even those of events it had queued already:
//   if (!ScriptExceptionHost::scriptRuns(context)) {
//       return;  // the app is ending
//   }
// Use from the thread that runs the contexts' scripts.
#ifndef KV_PLATFORM_COMMONS_JS_SCRIPT_EXCEPTION_HOST_H
#define KV_PLATFORM_COMMONS_JS_SCRIPT_EXCEPTION_HOST_H

#include <JavaScriptCore/JavaScript.h>

#include <functional>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

class ScriptExceptionHost {
public:
    // What a host does with an exception thrown in one of its contexts.
    typedef std::function<void(JSValueRef exception)> Reporter;
    // Whether the host's script still runs.
    typedef std::function<bool()> Running;

    ScriptExceptionHost() = delete;

    // Makes `reporter` the one that takes the exceptions thrown in `context`
    // (any context of the same global context), replacing an earlier one;
    // `running`, when given, tells whether the script still runs.
    static void attach(JSGlobalContextRef context, Reporter reporter, Running running = {});

    // Forgets the reporter of `context`, if any.
    static void detach(JSGlobalContextRef context);

    // Hands `exception`, thrown by a callback that native code called in
    // `context`, to the context's host. Without a host it is logged at error
    // level as "Uncaught exception in a script callback: " and its text.
    // Returns whether a host took it. Never throws.
    static bool reportUncaught(JSContextRef context, JSValueRef exception);

    // False once the host of `context` says its script has ended; true
    // without a host or without its word. Never throws.
    static bool scriptRuns(JSContextRef context);
};

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
