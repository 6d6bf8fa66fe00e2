// A thread that runs an event loop: other threads hand it work as tasks, which
// it runs one at a time, in the order they were pushed, on its own thread.
#ifndef KV_PLATFORM_DPL_THREAD_H
#define KV_PLATFORM_DPL_THREAD_H

#include <functional>

namespace DPL {

class Thread {
public:
    using Task = std::function<void()>;

    virtual ~Thread() = default;

    // Queues `task` to run later on this thread, never inside this call, even
    // when called from this thread. Safe from any thread.
    virtual void PushEvent(Task task) = 0;
    // Queues `task` to run on this thread once `dueTime` seconds (>= 0) have
    // passed. Safe from any thread.
    virtual void PushTimedEvent(double dueTime, Task task) = 0;
    // True when called on this thread.
    virtual bool IsCurrent() const = 0;
};

}  // namespace DPL

#endif
