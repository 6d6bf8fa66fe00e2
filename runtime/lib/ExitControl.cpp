#include <kv-runtime/ExitControl.h>

#include <Ecore.h>
#include <Logger.h>

namespace Kv {
namespace Runtime {

int exitCodeFor(ExitReason reason) {
    switch (reason) {
        case ExitReason::None:
        case ExitReason::Script:
        case ExitReason::Closed:
            return 0;
        case ExitReason::Uncaught:
            return 1;
        case ExitReason::Interrupt:
            return 130;
        case ExitReason::Terminate:
            return 143;
        case ExitReason::Quit:
            return 131;
        case ExitReason::Timeout:
            return 124;
    }
    return 1;
}

void ExitControl::requestExit(ExitReason reason, int code) {
    if (exitRequested()) {
        return;
    }
    LoggerI("exit requested, code " << code);
    m_reason = reason;
    m_code = code;
    if (m_looping) {
        ecore_main_loop_quit();
    }
}

void ExitControl::runLoop() {
    // Someone else may quit the loop (ecore does on a signal it handles by
    // default); only an exit request ends the app.
    while (!exitRequested()) {
        m_looping = true;
        ecore_main_loop_begin();
        m_looping = false;
    }
}

}  // namespace Runtime
}  // namespace Kv
