#include "TimeLimit.h"

#include "EngineWatchdog.h"

#include <Logger.h>

namespace Kv {
namespace Runtime {

TimeLimit::TimeLimit(JSGlobalContextRef context, ExitControl& exit, double seconds)
    : m_group(JSContextGetGroup(context)),
      m_exit(exit),
      m_deadline(std::chrono::steady_clock::now() +
                 std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                     std::chrono::duration<double>(seconds))) {
    m_timer = ecore_timer_add(seconds, onTimer, this);
    JSContextGroupSetExecutionTimeLimit(m_group, seconds, shouldTerminate, this);
}

TimeLimit::~TimeLimit() {
    JSContextGroupClearExecutionTimeLimit(m_group);
    if (m_timer) {
        ecore_timer_del(m_timer);
    }
}

void TimeLimit::expire() {
    if (!m_exit.exitRequested()) {
        LoggerW("the app's time limit has passed");
    }
    m_exit.requestExit(ExitReason::Timeout);
}

Eina_Bool TimeLimit::onTimer(void* data) {
    auto* self = static_cast<TimeLimit*>(data);
    self->m_timer = nullptr;  // ecore deletes the timer when we return CANCEL
    self->expire();
    return ECORE_CALLBACK_CANCEL;
}

bool TimeLimit::shouldTerminate(JSContextRef /*context*/, void* data) {
    auto* self = static_cast<TimeLimit*>(data);
    if (std::chrono::steady_clock::now() < self->m_deadline) {
        return false;
    }
    self->expire();
    return true;
}

}  // namespace Runtime
}  // namespace Kv
