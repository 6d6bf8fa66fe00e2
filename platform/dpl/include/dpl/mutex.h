// A non-recursive mutex with a scoped lock:
//   DPL::Mutex::ScopedLock lock(&m_mutex);
#ifndef KV_PLATFORM_DPL_MUTEX_H
#define KV_PLATFORM_DPL_MUTEX_H

#include <mutex>

namespace DPL {

class Mutex {
public:
    class ScopedLock {
    public:
        explicit ScopedLock(Mutex* mutex) : m_lock(mutex->m_mutex) {}
        ScopedLock(const ScopedLock&) = delete;
        ScopedLock& operator=(const ScopedLock&) = delete;

    private:
        std::lock_guard<std::mutex> m_lock;
    };

    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

}  // namespace DPL

#endif
