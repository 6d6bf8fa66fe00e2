#include "TimeLimit.h"

#include <Logger.h>

// The engine's watchdog, exported by the library without a public
// declaration: once a script has run for `limit` seconds without returning,
// the callback decides whether it is terminated (true) or may go on for
// another `limit` (false).
extern "C" {
typedef bool (*JSShouldTerminateCallback)(JSContextRef context, void* data);
void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                         JSShouldTerminateCallback callback, void* data);
void JSContextGroupClearExecutionTimeLimit(JSContextGroupRef group);
}

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
