#include <dpl/assert.h>
#include <dpl/main_loop.h>

#include <Ecore.h>

#include <sys/eventfd.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace DPL {

namespace {

using Clock = std::chrono::steady_clock;

// A task waiting for its due time on an ecore timer.
struct TimedTask {
    Clock::time_point due;
    Thread::Task task;
    Ecore_Timer* timer = nullptr;
};

double secondsUntil(Clock::time_point due) {
    return std::chrono::duration<double>(due - Clock::now()).count();
}

}  // namespace

struct MainLoopCallbacks {
    static Eina_Bool onWakeUp(void* data, Ecore_Fd_Handler* /*handler*/) {
        static_cast<MainLoop*>(data)->drain();
        return ECORE_CALLBACK_RENEW;
    }

    // ecore measures timers from the loop's last wake-up, which can be earlier
    // than the moment the timer was added; a timer that fires before the task's
    // due time is re-armed for the rest.
    static Eina_Bool onTimer(void* data) {
        auto* timed = static_cast<TimedTask*>(data);
        const double remaining = secondsUntil(timed->due);
        if (remaining > 0) {
            ecore_timer_interval_set(timed->timer, remaining);
            return ECORE_CALLBACK_RENEW;
        }
        Thread::Task task = std::move(timed->task);
        delete timed;
        task();
        return ECORE_CALLBACK_CANCEL;
    }
};

MainLoop& MainLoop::Instance() {
    // Never destroyed: tasks may still be pushed from static destructors.
    static MainLoop* loop = new MainLoop;
    return *loop;
}

MainLoop::MainLoop() : m_loopThread(std::this_thread::get_id()) {
    setenv("ECORE_NO_SYSTEM_MODULES", "1", 0);
    ecore_init();
    m_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_wakeFd < 0) {
        std::fprintf(stderr, "MainLoop: eventfd failed: %s\n", std::strerror(errno));
        std::abort();
    }
    ecore_main_fd_handler_add(m_wakeFd, ECORE_FD_READ, MainLoopCallbacks::onWakeUp, this, nullptr,
                              nullptr);
}

void MainLoop::PushEvent(Task task) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back(std::move(task));
    }
    wake();
}

void MainLoop::PushTimedEvent(double dueTime, Task task) {
    AssertMsg(dueTime >= 0, "Due time must be non-negative");
    const Clock::time_point due = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                     std::chrono::duration<double>(dueTime));
    // ecore timers may only be made on the loop's thread.
    PushEvent([this, due, task = std::move(task)]() mutable { startTimer(due, std::move(task)); });
}

bool MainLoop::IsCurrent() const { return std::this_thread::get_id() == m_loopThread; }

void MainLoop::wake() {
    const uint64_t one = 1;
    ssize_t written;
    do {
        written = write(m_wakeFd, &one, sizeof one);
    } while (written < 0 && errno == EINTR);
    // EAGAIN means the counter is saturated: the loop is woken already.
}

void MainLoop::drain() {
    uint64_t count = 0;
    while (read(m_wakeFd, &count, sizeof count) < 0 && errno == EINTR) {
    }
    std::vector<Task> tasks;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        tasks.swap(m_queue);
    }
    for (Task& task : tasks) {
        task();
    }
}

void MainLoop::startTimer(Clock::time_point due, Task task) {
    auto* timed = new TimedTask{due, std::move(task)};
    timed->timer =
        ecore_timer_add(std::max(secondsUntil(due), 0.0), MainLoopCallbacks::onTimer, timed);
}

}  // namespace DPL
