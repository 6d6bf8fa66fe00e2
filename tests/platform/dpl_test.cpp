#include "MainLoopRunner.h"

#include <dpl/assert.h>
#include <dpl/enable_shared_from_this.h>
#include <dpl/main_loop.h>
#include <dpl/mutex.h>
#include <dpl/shared_ptr.h>
#include <dpl/singleton.h>
#include <dpl/waitable_event.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

struct Counted {
    static std::atomic<int> constructions;
    Counted() {
        std::this_thread::sleep_for(10ms);  // widens the window for a racing second construction
        ++constructions;
    }
    int value = 7;
};
std::atomic<int> Counted::constructions{0};

struct LoudAtExit {
    ~LoudAtExit() { std::fputs("singleton destroyed at exit\n", stderr); }
};

// A singleton whose constructor uses another: the one it uses must outlive it.
struct Used {
    ~Used() { std::fputs("used destroyed\n", stderr); }
};
struct User {
    User() { DPL::Singleton<Used>::Instance(); }
    ~User() { std::fputs("user destroyed\n", stderr); }
};

struct Renewed {
    static int made;
    static int destroyed;
    Renewed() : number(++made) {}
    ~Renewed() { ++destroyed; }
    int number;
};
int Renewed::made = 0;
int Renewed::destroyed = 0;

struct Node : DPL::EnableSharedFromThis<Node> {
    DPL::SharedPtr<Node> self() { return shared_from_this(); }
};

}  // namespace

TEST(DplSingletonTest, InstanceIsMadeOnceOnFirstUseEvenFromManyThreads) {
    EXPECT_EQ(Counted::constructions, 0);
    std::vector<std::thread> threads;
    std::vector<Counted*> seen(8, nullptr);
    threads.reserve(seen.size());
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&seen, i] { seen[i] = &DPL::Singleton<Counted>::Instance(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Counted::constructions, 1);
    for (Counted* instance : seen) {
        EXPECT_EQ(instance, &DPL::Singleton<Counted>::Instance());
    }
    EXPECT_EQ(DPL::Singleton<Counted>::Instance().value, 7);
}

TEST(DplSingletonDeathTest, InstanceIsDestroyedAtProcessExit) {
    EXPECT_EXIT(
        {
            DPL::Singleton<LoudAtExit>::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "singleton destroyed at exit");
}

TEST(DplSingletonDeathTest, ASingletonThatAnotherOnesConstructorUsesOutlivesIt) {
    EXPECT_EXIT(
        {
            DPL::Singleton<User>::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "user destroyed\nused destroyed\n");
}

TEST(DplSingletonTest, RenewingForTestsMakesAFreshInstanceInPlaceOfTheOld) {
    Renewed& first = DPL::Singleton<Renewed>::Instance();
    const int firstNumber = first.number;
    DPL::Singleton<Renewed>::RenewForTests();
    EXPECT_EQ(Renewed::destroyed, 1);
    EXPECT_EQ(DPL::Singleton<Renewed>::Instance().number, firstNumber + 1);
}

TEST(DplSharedPtrTest, EnableSharedFromThisSharesOwnership) {
    auto node = std::make_shared<Node>();
    DPL::SharedPtr<Node> again = node->self();
    EXPECT_EQ(again.get(), node.get());
    EXPECT_EQ(node.use_count(), 2);
    DPL::SharedPtr<Node> cast = DPL::StaticPointerCast<Node>(again);
    EXPECT_EQ(cast.get(), node.get());
}

TEST(DplMutexTest, ScopedLockSerialisesThreads) {
    DPL::Mutex mutex;
    long counter = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                DPL::Mutex::ScopedLock lock(&mutex);
                ++counter;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 80000);
}

TEST(DplWaitableEventTest, SignalFromAnotherThreadWakesTheWaiter) {
    DPL::WaitableEvent event;
    EXPECT_FALSE(event.IsSignaled());
    std::thread signaller([&] {
        std::this_thread::sleep_for(20ms);
        event.Signal();
    });
    event.Wait();
    EXPECT_TRUE(event.IsSignaled());
    signaller.join();
}

TEST(DplWaitableEventTest, StaysSignalledUntilReset) {
    DPL::WaitableEvent event;
    EXPECT_FALSE(event.WaitFor(10ms));
    event.Signal();
    EXPECT_TRUE(event.WaitFor(0ms));
    EXPECT_TRUE(event.WaitFor(0ms));
    event.Reset();
    EXPECT_FALSE(event.WaitFor(10ms));
}

TEST(DplMainLoopTest, PushedTaskRunsLaterOnTheLoopInPushOrder) {
    DPL::MainLoop& loop = DPL::MainLoop::Instance();
    EXPECT_TRUE(loop.IsCurrent());
    std::vector<int> order;
    loop.PushEvent([&] { order.push_back(1); });
    loop.PushEvent([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(DplMainLoopTest, TaskFromAnotherThreadRunsOnTheLoopThread) {
    DPL::MainLoop& loop = DPL::MainLoop::Instance();
    std::atomic<bool> ran{false};
    std::thread::id ranOn;
    bool currentFromWorker = true;
    std::thread worker([&] {
        currentFromWorker = loop.IsCurrent();
        loop.PushEvent([&] {
            ranOn = std::this_thread::get_id();
            ran = true;
        });
    });
    worker.join();
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return ran.load(); }));
    EXPECT_FALSE(currentFromWorker);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(DplMainLoopTest, TaskPushedByARunningTaskRunsAfterIt) {
    DPL::MainLoop& loop = DPL::MainLoop::Instance();
    std::vector<int> order;
    loop.PushEvent([&] {
        loop.PushEvent([&] { order.push_back(2); });
        order.push_back(1);
    });
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(DplMainLoopTest, TimedTasksRunInDueOrderAfterTheirDueTime) {
    DPL::MainLoop& loop = DPL::MainLoop::Instance();
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::pair<int, std::chrono::steady_clock::duration>> runs;
    auto record = [&](int id) { runs.emplace_back(id, std::chrono::steady_clock::now() - start); };
    loop.PushTimedEvent(0.12, [&] { record(120); });
    loop.PushTimedEvent(0.04, [&] { record(40); });
    loop.PushTimedEvent(0.08, [&] { record(80); });
    loop.PushTimedEvent(0, [&] { record(0); });
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return runs.size() == 4; }));
    const int expected[] = {0, 40, 80, 120};
    for (size_t i = 0; i < runs.size(); ++i) {
        EXPECT_EQ(runs[i].first, expected[i]);
        EXPECT_GE(runs[i].second, std::chrono::milliseconds(expected[i]));
    }
}

TEST(DplMainLoopDeathTest, NegativeDueTimeIsAnAssertionFailure) {
    EXPECT_DEATH(DPL::MainLoop::Instance().PushTimedEvent(-1, [] {}),
                 "Assertion failed: Due time must be non-negative");
}

TEST(DplAssertDeathTest, FailedAssertNamesTheConditionAndAborts) {
    const int answer = 41;
    EXPECT_DEATH(Assert(answer == 42), "Assertion failed: answer == 42 \\(dpl_test.cpp:[0-9]+");
}
