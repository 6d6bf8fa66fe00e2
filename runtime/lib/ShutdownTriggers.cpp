#include "ShutdownTriggers.h"

#include <Logger.h>

namespace Kv {
namespace Runtime {

ShutdownTriggers::ShutdownTriggers(ExitControl& exit) : m_exit(exit) {
    m_signalHandler = ecore_event_handler_add(ECORE_EVENT_SIGNAL_EXIT, onExitSignal, this);
}

ShutdownTriggers::~ShutdownTriggers() {
    if (m_signalHandler) {
        ecore_event_handler_del(m_signalHandler);
    }
}

Eina_Bool ShutdownTriggers::onExitSignal(void* data, int /*type*/, void* event) {
    auto* self = static_cast<ShutdownTriggers*>(data);
    const auto* signal = static_cast<const Ecore_Event_Signal_Exit*>(event);
    ExitReason reason = ExitReason::Quit;
    if (signal->interrupt) {
        reason = ExitReason::Interrupt;
    } else if (signal->terminate) {
        reason = ExitReason::Terminate;
    }
    LoggerI("exit signal received");
    self->m_exit.requestExit(reason);
    return ECORE_CALLBACK_PASS_ON;
}

}  // namespace Runtime
}  // namespace Kv
