// The process's ecore main loop as a DPL::Thread. Tasks from any thread go
// into a locked queue and wake the loop through an eventfd; the loop drains
// the queue by swapping it under the lock and running the tasks unlocked.
//
// MainLoop::Instance() must first be called on the thread that runs the
// ecore main loop; it initialises ecore (with ECORE_NO_SYSTEM_MODULES=1 unless
// the environment says otherwise) and is never destroyed.
#ifndef KV_PLATFORM_DPL_MAIN_LOOP_H
#define KV_PLATFORM_DPL_MAIN_LOOP_H

#include <dpl/thread.h>

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace DPL {

class MainLoop : public Thread {
public:
    static MainLoop& Instance();

    void PushEvent(Task task) override;
    void PushTimedEvent(double dueTime, Task task) override;
    bool IsCurrent() const override;

private:
    MainLoop();
    ~MainLoop() override = default;

    friend struct MainLoopCallbacks;

    void wake();
    void drain();
    void startTimer(std::chrono::steady_clock::time_point due, Task task);

    std::thread::id m_loopThread;
    int m_wakeFd = -1;
    std::mutex m_mutex;
    std::vector<Task> m_queue;
};

}  // namespace DPL

#endif
