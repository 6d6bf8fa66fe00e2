#include "TimerRegistry.h"

#include "CallbackGuard.h"

#include <kv-runtime/ScriptEnvironment.h>

#include <Logger.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace Kv {
namespace Runtime {

struct TimerRegistry::Timer {
    TimerRegistry* owner;
    int id;
    JSObjectRef callback;
    std::vector<JSValueRef> arguments;
    bool repeat;
    bool firing = false;
    bool cancelled = false;
    Ecore_Timer* handle = nullptr;
};

TimerRegistry::TimerRegistry(ScriptEnvironment& environment) : m_environment(environment) {}

TimerRegistry::~TimerRegistry() { clearAll(); }

int TimerRegistry::add(JSObjectRef callback, double delayMs, std::vector<JSValueRef> arguments,
                       bool repeat) {
    if (std::isnan(delayMs) || delayMs < 0) {
        delayMs = 0;
    }
    if (repeat && delayMs < 1) {
        delayMs = 1;
    }
    JSContextRef context = m_environment.context();
    const int id = m_nextId;
    m_nextId = m_nextId == std::numeric_limits<int>::max() ? 1 : m_nextId + 1;
    auto timer = std::make_unique<Timer>(Timer{this, id, callback, std::move(arguments), repeat});
    JSValueProtect(context, timer->callback);
    for (JSValueRef argument : timer->arguments) {
        JSValueProtect(context, argument);
    }
    timer->handle = ecore_timer_add(delayMs / 1000.0, onTimer, timer.get());
    m_timers[id] = std::move(timer);
    return id;
}

void TimerRegistry::clear(int id) {
    auto found = m_timers.find(id);
    if (found == m_timers.end()) {
        return;
    }
    if (found->second->firing) {
        found->second->cancelled = true;  // fire() drops it when the callback returns
        return;
    }
    release(*found->second);
    m_timers.erase(found);
}

void TimerRegistry::clearAll() {
    for (auto& entry : m_timers) {
        release(*entry.second);
    }
    m_timers.clear();
}

void TimerRegistry::release(Timer& timer) {
    if (timer.handle) {
        ecore_timer_del(timer.handle);
        timer.handle = nullptr;
    }
    JSContextRef context = m_environment.context();
    JSValueUnprotect(context, timer.callback);
    for (JSValueRef argument : timer.arguments) {
        JSValueUnprotect(context, argument);
    }
}

Eina_Bool TimerRegistry::onTimer(void* data) {
    auto* timer = static_cast<Timer*>(data);
    return timer->owner->fire(*timer) ? ECORE_CALLBACK_RENEW : ECORE_CALLBACK_CANCEL;
}

bool TimerRegistry::fire(Timer& timer) {
    // Timers that were due in the same loop turn as an exit still fire
    // unless they are stopped here.
    if (!m_environment.exitControl().exitRequested()) {
        timer.firing = true;
        JSValueRef exception = nullptr;
        JSObjectCallAsFunction(m_environment.context(), timer.callback, nullptr,
                               timer.arguments.size(), timer.arguments.data(), &exception);
        timer.firing = false;
        if (exception) {
            m_environment.reportUncaught(exception);
        }
    }
    const bool goesOn =
        timer.repeat && !timer.cancelled && !m_environment.exitControl().exitRequested();
    if (!goesOn) {
        timer.handle = nullptr;  // ecore deletes it when we return CANCEL
        const int id = timer.id;
        release(timer);
        m_timers.erase(id);
    }
    return goesOn;
}

namespace {

TimerRegistry& registryOf(JSContextRef context) {
    ScriptEnvironment* environment = ScriptEnvironment::from(context);
    if (!environment) {
        throw std::logic_error("timers are not available in this context");
    }
    return environment->timers();
}

template <bool repeat>
JSValueRef setTimer(JSContextRef context, JSObjectRef /*function*/, JSObjectRef /*thisObject*/,
                    size_t count, const JSValueRef arguments[], JSValueRef* exception) {
    return guardCallback(context, exception, [&]() -> JSValueRef {
        const char* name = repeat ? "setInterval" : "setTimeout";
        if (count < 1 || !JSValueIsObject(context, arguments[0]) ||
            !JSObjectIsFunction(context, JSValueToObject(context, arguments[0], nullptr))) {
            *exception = makeError(context, std::string(name) + ": the callback must be a function",
                                   "TypeError");
            return JSValueMakeUndefined(context);
        }
        JSObjectRef callback = JSValueToObject(context, arguments[0], nullptr);
        const double delay = count > 1 ? JSValueToNumber(context, arguments[1], nullptr) : 0;
        std::vector<JSValueRef> extra;
        for (size_t i = 2; i < count; ++i) {
            extra.push_back(arguments[i]);
        }
        const int id = registryOf(context).add(callback, delay, std::move(extra), repeat);
        return JSValueMakeNumber(context, id);
    });
}

JSValueRef clearTimer(JSContextRef context, JSObjectRef /*function*/, JSObjectRef /*thisObject*/,
                      size_t count, const JSValueRef arguments[], JSValueRef* exception) {
    return guardCallback(context, exception, [&] {
        if (count > 0 && JSValueIsNumber(context, arguments[0])) {
            const double id = JSValueToNumber(context, arguments[0], nullptr);
            if (id >= 1 && id <= std::numeric_limits<int>::max()) {
                registryOf(context).clear(static_cast<int>(id));
            }
        }
        return JSValueMakeUndefined(context);
    });
}

}  // namespace

void TimerRegistry::install(JSContextRef context, JSObjectRef global) {
    setFunction(context, global, "setTimeout", setTimer<false>);
    setFunction(context, global, "setInterval", setTimer<true>);
    setFunction(context, global, "clearTimeout", clearTimer);
    setFunction(context, global, "clearInterval", clearTimer);
}

}  // namespace Runtime
}  // namespace Kv
