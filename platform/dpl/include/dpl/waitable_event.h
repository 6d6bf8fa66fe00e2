// A manual-reset event: Signal() wakes every waiter and keeps the event
// signalled until Reset().
#ifndef KV_PLATFORM_DPL_WAITABLE_EVENT_H
#define KV_PLATFORM_DPL_WAITABLE_EVENT_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace DPL {

class WaitableEvent {
public:
    WaitableEvent() = default;
    WaitableEvent(const WaitableEvent&) = delete;
    WaitableEvent& operator=(const WaitableEvent&) = delete;

    void Signal();
    void Reset();
    bool IsSignaled() const;
    // Blocks until the event is signalled.
    void Wait();
    // Blocks until the event is signalled or the time is up; true when signalled.
    bool WaitFor(std::chrono::milliseconds timeout);

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_signaled = false;
};

}  // namespace DPL

#endif
