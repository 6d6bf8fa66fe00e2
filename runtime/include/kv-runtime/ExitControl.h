// How and with which code an app ends. The first request wins; it quits the
// main loop when the loop is running.
#ifndef KV_RUNTIME_EXIT_CONTROL_H
#define KV_RUNTIME_EXIT_CONTROL_H

namespace Kv {
namespace Runtime {

enum class ExitReason {
    None,       // still running
    Script,     // the app called runtime.exit(code)
    Uncaught,   // an uncaught script exception; code 1
    Interrupt,  // SIGINT; code 130
    Terminate,  // SIGTERM; code 143
    Quit,       // SIGQUIT; code 131
    Timeout,    // the run's time limit passed; code 124
    Closed,     // the app's window was closed; code 0
};

// The exit code that goes with a reason other than Script.
int exitCodeFor(ExitReason reason);

class ExitControl {
public:
    // Records the request unless one was made before, and quits the main
    // loop if it is running.
    void requestExit(ExitReason reason, int code);
    void requestExit(ExitReason reason) { requestExit(reason, exitCodeFor(reason)); }

    bool exitRequested() const { return m_reason != ExitReason::None; }
    ExitReason reason() const { return m_reason; }
    int exitCode() const { return m_code; }

    // Runs the ecore main loop until an exit is requested; returns at once
    // when one was requested before.
    void runLoop();

private:
    ExitReason m_reason = ExitReason::None;
    int m_code = 0;
    bool m_looping = false;
};

}  // namespace Runtime
}  // namespace Kv

#endif
