#include "KvpTestSupport.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

using namespace KvpTest;

namespace {

struct Callbacks : WrtDeviceApis::Commons::IEventPrivateData {};

DPL::SharedPtr<EventKvSocketDataReceiveListener> dataEvent(const std::string& data) {
    auto event = std::make_shared<EventKvSocketDataReceiveListener>();
    event->channelId = 104;
    event->data = data;
    return event;
}

}  // namespace

TEST(DirectEmitterTest, EventWithoutAListenerIsDroppedWithoutError) {
    KvSocketDataReceiveEmitter emitter;
    DlogCapture log;
    emitter.emit(dataEvent("nobody"));
    EXPECT_TRUE(log.lines().empty());
}

TEST(DirectEmitterTest, EventWithoutAListenerIsNotKeptForALaterListener) {
    KvSocketDataReceiveEmitter emitter;
    emitter.emit(dataEvent("nobody"));
    RecordingListener<EventKvSocketDataReceiveListener> listener;
    emitter.setListener(&listener);
    emitter.setEventPrivateData(std::make_shared<Callbacks>());
    EXPECT_TRUE(listener.events.empty()) << "setting a listener delivers nothing";
    emitter.emit(dataEvent("later"));
    ASSERT_EQ(listener.events.size(), 1u);
    EXPECT_EQ(listener.events[0]->data, "later");
    KvTest::runMainLoopFor(std::chrono::milliseconds(20));
    EXPECT_EQ(listener.events.size(), 1u) << "nothing is delivered on a later turn either";
    EXPECT_EQ(listener.events[0]->data, "later");
}

TEST(DirectEmitterTest, ListenerRunsInsideEmitWithAStampedCopy) {
    RecordingListener<EventKvSocketDataReceiveListener> listener;
    KvSocketDataReceiveEmitter emitter;
    const auto callbacks = std::make_shared<Callbacks>();
    emitter.setListener(&listener);
    emitter.setEventPrivateData(callbacks);
    const auto event = dataEvent("now");
    emitter.emit(event);
    ASSERT_EQ(listener.events.size(), 1u) << "delivered before emit returned";
    EXPECT_NE(listener.events[0], event);
    EXPECT_EQ(listener.events[0]->data, "now");
    EXPECT_EQ(listener.events[0]->getPrivateData(), callbacks);
    EXPECT_EQ(event->getPrivateData(), nullptr) << "the caller's event is left as it was";
    EXPECT_EQ(emitter.getEventPrivateData(), callbacks);
}

TEST(DirectEmitterTest, EmittingTheSameEventTwiceDeliversTwoIndependentCopies) {
    RecordingListener<EventKvSocketDataReceiveListener> listener;
    KvSocketDataReceiveEmitter emitter;
    emitter.setListener(&listener);
    const auto event = dataEvent("first");
    emitter.emit(event);
    event->data = "second";
    emitter.emit(event);
    ASSERT_EQ(listener.events.size(), 2u);
    EXPECT_NE(listener.events[0], listener.events[1]);
    EXPECT_EQ(listener.events[0]->data, "first");
    EXPECT_EQ(listener.events[1]->data, "second");
}

TEST(DirectEmitterTest, IdentityIsTheEmittersAddress) {
    KvSocketDataReceiveEmitter first;
    KvSocketDataReceiveEmitter second;
    EXPECT_EQ(first.getId(), reinterpret_cast<std::uintptr_t>(&first));
    EXPECT_NE(first.getId(), second.getId());
}

TEST(DirectEmitterTest, WorksThroughTheCommonsEmitterInterface) {
    RecordingListener<EventKvSocketDataReceiveListener> listener;
    KvSocketDataReceiveEmitter direct;
    WrtDeviceApis::Commons::ListenerEventEmitter<EventKvSocketDataReceiveListener>& emitter =
        direct;
    emitter.setListener(&listener);
    emitter.emit(dataEvent("virtual"));
    EXPECT_EQ(listener.events.size(), 1u);
}

TEST(DirectEmitterTest, EmissionsFromManyThreadsAreSerialised) {
    struct CountingListener : RecordingListener<EventKvSocketDataReceiveListener> {
        std::atomic<int> inside{0};
        std::atomic<bool> overlapped{false};
        std::atomic<int> total{0};
        void onAnswerReceived(const DPL::SharedPtr<EventKvSocketDataReceiveListener>&) override {
            if (++inside > 1) {
                overlapped = true;
            }
            std::this_thread::yield();
            --inside;
            ++total;
        }
    } listener;
    KvSocketDataReceiveEmitter emitter;
    emitter.setListener(&listener);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                emitter.emit(dataEvent("x"));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(listener.total, 2000);
    EXPECT_FALSE(listener.overlapped);
}
