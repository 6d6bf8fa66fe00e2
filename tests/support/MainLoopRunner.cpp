#include "MainLoopRunner.h"

#include <dpl/main_loop.h>

#include <Ecore.h>

namespace KvTest {

namespace {

struct Wait {
    const std::function<bool()>* done;
    std::chrono::steady_clock::time_point deadline;
};

Eina_Bool checkWait(void* data) {
    auto* wait = static_cast<Wait*>(data);
    if ((*wait->done)() || std::chrono::steady_clock::now() >= wait->deadline) {
        ecore_main_loop_quit();
        return ECORE_CALLBACK_CANCEL;
    }
    return ECORE_CALLBACK_RENEW;
}

}  // namespace

bool runMainLoopUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    DPL::MainLoop::Instance();  // ecore is initialised by the loop's first use
    Wait wait{&done, std::chrono::steady_clock::now() + timeout};
    ecore_timer_add(0.001, checkWait, &wait);
    ecore_main_loop_begin();
    return done();
}

void runMainLoopFor(std::chrono::milliseconds duration) {
    runMainLoopUntil([] { return false; }, duration);
}

}  // namespace KvTest
