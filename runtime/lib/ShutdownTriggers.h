// The signals that end a running app while its main loop runs: SIGINT,
// SIGTERM and SIGQUIT, taken through ecore's exit-signal event so that the
// app's stop hooks still run.
#ifndef KV_RUNTIME_SHUTDOWN_TRIGGERS_H
#define KV_RUNTIME_SHUTDOWN_TRIGGERS_H

#include <kv-runtime/ExitControl.h>

#include <Ecore.h>

namespace Kv {
namespace Runtime {

class ShutdownTriggers {
public:
    explicit ShutdownTriggers(ExitControl& exit);
    ~ShutdownTriggers();
    ShutdownTriggers(const ShutdownTriggers&) = delete;
    ShutdownTriggers& operator=(const ShutdownTriggers&) = delete;

private:
    static Eina_Bool onExitSignal(void* data, int type, void* event);

    ExitControl& m_exit;
    Ecore_Event_Handler* m_signalHandler = nullptr;
};

}  // namespace Runtime
}  // namespace Kv

#endif
