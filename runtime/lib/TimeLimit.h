// The time an app may run, counted from when the limit is set. When it has
// passed the app ends with ExitReason::Timeout, whether the app is waiting
// in the main loop (an ecore timer notices) or busy in a script that does
// not return (the engine's watchdog stops the script).
#ifndef KV_RUNTIME_TIME_LIMIT_H
#define KV_RUNTIME_TIME_LIMIT_H

#include <kv-runtime/ExitControl.h>

#include <JavaScriptCore/JavaScript.h>

#include <Ecore.h>

#include <chrono>

namespace Kv {
namespace Runtime {

class TimeLimit {
public:
    TimeLimit(JSGlobalContextRef context, ExitControl& exit, double seconds);
    ~TimeLimit();
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

private:
    static Eina_Bool onTimer(void* data);
    static bool shouldTerminate(JSContextRef context, void* data);
    void expire();

    JSContextGroupRef m_group;
    ExitControl& m_exit;
    std::chrono::steady_clock::time_point m_deadline;
    Ecore_Timer* m_timer = nullptr;
};

}  // namespace Runtime
}  // namespace Kv

#endif
