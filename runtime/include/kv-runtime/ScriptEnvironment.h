// The script side of a running app: one global context and the globals every
// app gets besides the plug-ins' objects:
//   console.log/info/warn/error   log/info print to stdout, warn/error to
//                                 stderr; every line is also logged
//   setTimeout/clearTimeout, setInterval/clearInterval   on ecore timers
//   runtime.exit([code])          ends the app with `code` (default 0)
//   runtime.args                  the app's arguments, an array of strings
// An uncaught exception, at top level, in a timer callback or in a callback
// that a plug-in calls (handed over through the platform's
// ScriptExceptionHost, to which the environment attaches itself for its
// context), is reported on stderr as "Uncaught <message> at line <n> in
// <file>" and ends the app with exit code 1.
//
// Make and use it on the main loop's thread. Making one prepares the script
// engine (see ScriptEngine.h).
#ifndef KV_RUNTIME_SCRIPT_ENVIRONMENT_H
#define KV_RUNTIME_SCRIPT_ENVIRONMENT_H

#include <kv-runtime/ExitControl.h>
#include <kv-runtime/ScriptHost.h>

#include <JavaScriptCore/JavaScript.h>

#include <memory>
#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

class TimeLimit;
class TimerRegistry;

class ScriptEnvironment : public ScriptHost {
public:
    ScriptEnvironment();
    // Cancels the pending timers, releasing their callbacks, then releases the
    // global context. The engine finalises the context's objects here.
    ~ScriptEnvironment() override;
    ScriptEnvironment(const ScriptEnvironment&) = delete;
    ScriptEnvironment& operator=(const ScriptEnvironment&) = delete;

    // The environment that owns the global context of `context`, or null.
    static ScriptEnvironment* from(JSContextRef context);

    JSGlobalContextRef context() const { return m_context; }

    // Evaluates `source` as the script `fileName` (the name errors carry).
    // Returns false when it threw; the exception is then reported as uncaught.
    // A script that ends itself with runtime.exit did not throw.
    bool evaluate(const std::string& source, const std::string& fileName);

    // Sets runtime.args to `arguments` (an empty array until then).
    void setArguments(const std::vector<std::string>& arguments);

    // Ends the app with exit code 124 once `seconds` have passed from now:
    // in the main loop, or by stopping a script that runs that long without
    // returning. Set it before evaluating the script.
    void setTimeLimit(double seconds);

    // Runs the main loop until the app ends: runtime.exit, an uncaught
    // exception, SIGINT, SIGTERM, SIGQUIT, or the time limit. Returns the
    // exit code. A loop without pending timers keeps waiting.
    int run();

    // Reports `exception` on stderr and in the log, and ends the app with
    // exit code 1. The marker that runtime.exit throws, and the stop of a
    // script that ran past the time limit, are not reported.
    void reportUncaught(JSValueRef exception);

    ExitControl& exitControl() { return m_exit; }
    const ExitControl& exitControl() const { return m_exit; }
    TimerRegistry& timers() { return *m_timers; }
    size_t pendingTimers() const;
    // The file name of the script last evaluated.
    const std::string& scriptName() const { return m_scriptName; }

    // Asks the engine for a garbage collection now.
    void collectGarbage();

    // ScriptHost: runtime.exit ends the app with the code; the marker it
    // throws is not reported.
    void exitRequested(int code) override;
    JSObjectRef exitMarker() const override { return m_exitMarker; }

private:
    void installGlobals();

    JSGlobalContextRef m_context = nullptr;
    ExitControl m_exit;
    std::unique_ptr<TimerRegistry> m_timers;
    std::unique_ptr<TimeLimit> m_timeLimit;
    std::string m_scriptName;
    JSObjectRef m_exitMarker = nullptr;
};

}  // namespace Runtime
}  // namespace Kv

#endif
