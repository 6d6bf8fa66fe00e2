#include <dpl/waitable_event.h>

namespace DPL {

void WaitableEvent::Signal() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_signaled = true;
    }
    m_condition.notify_all();
}

void WaitableEvent::Reset() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_signaled = false;
}

bool WaitableEvent::IsSignaled() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_signaled;
}

void WaitableEvent::Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_condition.wait(lock, [this] { return m_signaled; });
}

bool WaitableEvent::WaitFor(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_condition.wait_for(lock, timeout, [this] { return m_signaled; });
}

}  // namespace DPL
