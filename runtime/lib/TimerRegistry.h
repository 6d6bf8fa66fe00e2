// The timers behind setTimeout and setInterval. Each script timer is one
// ecore timer; its callback and arguments are protected from the garbage
// collector while it is pending. Ids are positive and shared by both kinds,
// as clearTimeout and clearInterval are interchangeable.
#ifndef KV_RUNTIME_TIMER_REGISTRY_H
#define KV_RUNTIME_TIMER_REGISTRY_H

#include <JavaScriptCore/JavaScript.h>

#include <Ecore.h>

#include <map>
#include <memory>
#include <vector>

namespace Kv {
namespace Runtime {

class ScriptEnvironment;

class TimerRegistry {
public:
    explicit TimerRegistry(ScriptEnvironment& environment);
    // Cancels every pending timer and releases its values.
    ~TimerRegistry();
    TimerRegistry(const TimerRegistry&) = delete;
    TimerRegistry& operator=(const TimerRegistry&) = delete;

    // Starts a timer that calls `callback(...arguments)` after `delayMs`
    // milliseconds (negative or NaN counts as 0), and again every `delayMs`
    // (at least 1) when `repeat` is set. Returns its id.
    int add(JSObjectRef callback, double delayMs, std::vector<JSValueRef> arguments, bool repeat);
    // Cancels the timer `id`; unknown ids are ignored. A timer cleared from
    // its own callback does not fire again.
    void clear(int id);
    void clearAll();
    size_t pending() const { return m_timers.size(); }

    // Installs setTimeout, clearTimeout, setInterval and clearInterval.
    static void install(JSContextRef context, JSObjectRef global);

private:
    struct Timer;

    static Eina_Bool onTimer(void* data);
    // Calls the timer's callback; returns true when the timer goes on.
    bool fire(Timer& timer);
    void release(Timer& timer);

    ScriptEnvironment& m_environment;
    std::map<int, std::unique_ptr<Timer>> m_timers;
    int m_nextId = 1;
};

}  // namespace Runtime
}  // namespace Kv

#endif
