// ecore's loop inside GLib's: every kind of ecore work is serviced while
// GLib owns the thread, promptly and without spinning, and the signal
// handlers the process had stay its own.
#include <EcoreGlibSource.h>

#include <dpl/main_loop.h>

#include <Ecore.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

namespace {

using Kv::Page::EcoreGlibSource;
using Clock = std::chrono::steady_clock;

void ownHandler(int) {}

// Before ecore starts, the process gives SIGUSR1 (the engine's signal for
// suspending threads) and SIGTERM handlers of its own, as the engine does.
class AttachedOnce : public ::testing::Environment {
public:
    void SetUp() override {
        struct sigaction action {};
        action.sa_handler = ownHandler;
        sigemptyset(&action.sa_mask);
        sigaction(SIGUSR1, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
        EcoreGlibSource::attach();
    }
};
const auto* const attachedOnce = ::testing::AddGlobalTestEnvironment(new AttachedOnce);

// One blocking turn of GLib's loop at a time, as the engine's process runs
// it, until `done`; false after `limit`.
bool blockUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    bool timedOut = false;
    const guint guard = g_timeout_add(
        static_cast<guint>(limit.count()),
        [](gpointer data) -> gboolean {
            *static_cast<bool*>(data) = true;
            return G_SOURCE_REMOVE;
        },
        &timedOut);
    while (!done() && !timedOut) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (!timedOut) {
        g_source_remove(guard);
    }
    return done();
}

TEST(EcoreGlibSource, KeepsTheSignalHandlersTheProcessHad) {
    for (const int signal : {SIGUSR1, SIGTERM}) {
        struct sigaction now {};
        sigaction(signal, nullptr, &now);
        EXPECT_EQ(now.sa_handler, ownHandler) << "signal " << signal;
    }
}

TEST(EcoreGlibSource, RunsAnFdHandlerWhenItsDescriptorBecomesReady) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    bool read = false;
    Ecore_Fd_Handler* handler = ecore_main_fd_handler_add(
        fds[0], ECORE_FD_READ,
        [](void* data, Ecore_Fd_Handler* h) -> Eina_Bool {
            char byte;
            EXPECT_EQ(::read(ecore_main_fd_handler_fd_get(h), &byte, 1), 1);
            *static_cast<bool*>(data) = true;
            return ECORE_CALLBACK_RENEW;
        },
        &read, nullptr, nullptr);
    blockUntil([] { return false; }, std::chrono::milliseconds(50));  // settle and sleep
    std::thread writer([fd = fds[1]] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(::write(fd, "x", 1), 1);
    });
    EXPECT_TRUE(blockUntil([&] { return read; }, std::chrono::seconds(5)));
    writer.join();
    ecore_main_fd_handler_del(handler);
    close(fds[0]);
    close(fds[1]);
}

TEST(EcoreGlibSource, RunsATimerWhenItIsDueAndNotBefore) {
    const auto start = Clock::now();
    Clock::time_point fired;
    ecore_timer_add(
        0.3,
        [](void* data) -> Eina_Bool {
            *static_cast<Clock::time_point*>(data) = Clock::now();
            return ECORE_CALLBACK_CANCEL;
        },
        &fired);
    ASSERT_TRUE(blockUntil([&] { return fired != Clock::time_point(); }, std::chrono::seconds(5)));
    EXPECT_GE(fired - start, std::chrono::milliseconds(290));
}

TEST(EcoreGlibSource, RunsAnIdlerThatCodeOutsideEcoreAdded) {
    // The page's script runs in the engine's own sources and may add ecore
    // work there; GLib then has nothing of ecore's to wait for.
    bool idled = false;
    g_timeout_add(
        50,
        [](gpointer data) -> gboolean {
            ecore_idler_add(
                [](void* flag) -> Eina_Bool {
                    *static_cast<bool*>(flag) = true;
                    return ECORE_CALLBACK_CANCEL;
                },
                data);
            return G_SOURCE_REMOVE;
        },
        &idled);
    EXPECT_TRUE(blockUntil([&] { return idled; }, std::chrono::seconds(2)));
}

TEST(EcoreGlibSource, RunsTasksThatOtherThreadsPostToThePlatformLoop) {
    std::atomic<int> ran{0};
    std::thread poster([&] {
        for (int i = 0; i < 100; ++i) {
            DPL::MainLoop::Instance().PushEvent([&ran] { ++ran; });
        }
    });
    poster.join();
    EXPECT_TRUE(blockUntil([&] { return ran == 100; }, std::chrono::seconds(5)));
}

TEST(EcoreGlibSource, SleepsWhileEcoreHasNothingDue) {
    blockUntil([] { return false; }, std::chrono::milliseconds(100));
    const std::uint64_t before = EcoreGlibSource::iterations();
    blockUntil([] { return false; }, std::chrono::milliseconds(500));
    // Without work, only the turns that follow another source's dispatch
    // run ecore: none here but the guard's own.
    EXPECT_LE(EcoreGlibSource::iterations() - before, 2u);
}

TEST(EcoreGlibSource, RunsEcoreOnceAfterEachTurnOfOtherSources) {
    int ticks = 0;
    const guint ticker = g_timeout_add(
        20,
        [](gpointer data) -> gboolean {
            ++*static_cast<int*>(data);
            return G_SOURCE_CONTINUE;
        },
        &ticks);
    const std::uint64_t before = EcoreGlibSource::iterations();
    blockUntil([&] { return ticks >= 10; }, std::chrono::seconds(5));
    g_source_remove(ticker);
    const std::uint64_t ran = EcoreGlibSource::iterations() - before;
    EXPECT_GE(ran, 10u);
    EXPECT_LE(ran, 22u);
}

}  // namespace
