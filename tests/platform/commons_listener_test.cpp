#include "MainLoopRunner.h"

#include <Commons/EventListener.h>
#include <Commons/ListenerEvent.h>
#include <Commons/ListenerEventEmitter.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace WrtDeviceApis::Commons;

namespace {

class EventDataReceived : public ListenerEvent<EventDataReceived> {
public:
    std::string data;
};
using EventDataReceivedPtr = DPL::SharedPtr<EventDataReceived>;

struct Callbacks : IEventPrivateData {};

class DataListener : public EventListener<EventDataReceived> {
public:
    DataListener() : EventListener<EventDataReceived>(ThreadEnum::NULL_THREAD) {}

    std::vector<EventDataReceivedPtr> events;
    std::vector<std::thread::id> threads;

    void onAnswerReceived(const EventDataReceivedPtr& event) override {
        events.push_back(event);
        threads.push_back(std::this_thread::get_id());
    }
};

EventDataReceivedPtr makeEvent(const std::string& data) {
    auto event = std::make_shared<EventDataReceived>();
    event->data = data;
    return event;
}

}  // namespace

TEST(CommonsListenerTest, ListenerEventStartsWithoutErrorOrPrivateData) {
    const EventDataReceivedPtr event = makeEvent("x");
    EXPECT_EQ(event->getExceptionCode(), ExceptionCodes::None);
    EXPECT_EQ(event->getPrivateData(), nullptr);
}

TEST(CommonsListenerTest, EmitQueuesAStampedCopyOntoTheListenersLoop) {
    DataListener listener;
    ListenerEventEmitter<EventDataReceived> emitter;
    const auto callbacks = std::make_shared<Callbacks>();
    emitter.setListener(&listener);
    emitter.setEventPrivateData(callbacks);
    EXPECT_EQ(emitter.getEventPrivateData(), callbacks);

    const EventDataReceivedPtr event = makeEvent("payload");
    emitter.emit(event);
    EXPECT_TRUE(listener.events.empty()) << "delivered inside emit";
    event->data = "changed after emit";

    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !listener.events.empty(); }));
    ASSERT_EQ(listener.events.size(), 1u);
    EXPECT_NE(listener.events[0], event);
    EXPECT_EQ(listener.events[0]->data, "payload");
    EXPECT_EQ(listener.events[0]->getPrivateData(), callbacks);
    EXPECT_EQ(event->getPrivateData(), nullptr);
}

TEST(CommonsListenerTest, EmitFromAnotherThreadArrivesOnTheLoop) {
    DataListener listener;
    ListenerEventEmitter<EventDataReceived> emitter;
    emitter.setListener(&listener);
    std::thread([&] { emitter.emit(makeEvent("from worker")); }).join();
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !listener.events.empty(); }));
    EXPECT_EQ(listener.threads[0], std::this_thread::get_id());
    EXPECT_EQ(listener.events[0]->data, "from worker");
}

TEST(CommonsListenerTest, EmitWithoutListenerIsDropped) {
    ListenerEventEmitter<EventDataReceived> emitter;
    emitter.emit(makeEvent("nobody"));
    DataListener listener;
    emitter.setListener(&listener);
    KvTest::runMainLoopFor(20ms);
    EXPECT_TRUE(listener.events.empty());
}

TEST(CommonsListenerTest, EventsQueuedForAListenerThatIsGoneAreDropped) {
    ListenerEventEmitter<EventDataReceived> emitter;
    {
        DataListener listener;
        emitter.setListener(&listener);
        emitter.emit(makeEvent("late"));
    }
    KvTest::runMainLoopFor(20ms);  // under ASan, a delivery here would be a use after free
    SUCCEED();
}

TEST(CommonsListenerTest, EmittersHaveDistinctIds) {
    ListenerEventEmitter<EventDataReceived> first;
    ListenerEventEmitter<EventDataReceived> second;
    EXPECT_NE(first.getId(), second.getId());
    EXPECT_EQ(first.getId(), first.getId());
}
