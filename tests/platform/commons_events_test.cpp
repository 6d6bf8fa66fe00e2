#include "MainLoopRunner.h"

#include <Commons/EventReceiver.h>
#include <Commons/IEvent.h>
#include <Commons/ThreadPool.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace WrtDeviceApis::Commons;

namespace {

class EventEcho : public IEvent<EventEcho> {
public:
    std::string input;
    std::string output;
    std::chrono::steady_clock::time_point posted;
};
using EventEchoPtr = DPL::SharedPtr<EventEcho>;

struct Token : IEventPrivateData {
    explicit Token(int value) : value(value) {}
    int value;
};

// A native object: echoes its input, or fails, or answers later from a
// worker thread when the event asks for a manual answer.
class Echo : public EventRequestReceiver<EventEcho> {
public:
    Echo() : EventRequestReceiver<EventEcho>(ThreadEnum::NULL_THREAD) {}
    ~Echo() override {
        for (auto& worker : workers) {
            worker.join();
        }
    }

    std::vector<std::string> received;
    std::vector<IEventController::State> statesSeen;
    std::vector<std::thread::id> threadsSeen;
    std::optional<std::string> throwMessage;
    bool switchToAsynchronousManualAnswer = false;
    std::vector<std::thread> workers;

protected:
    void OnRequestReceived(const EventEchoPtr& event) override {
        received.push_back(event->input);
        statesSeen.push_back(event->getState());
        threadsSeen.push_back(std::this_thread::get_id());
        if (throwMessage) {
            ThrowMsg(InvalidArgumentException, *throwMessage);
        }
        if (switchToAsynchronousManualAnswer) {
            event->setHandlingType(IEventController::HANDLING_ASYNCHRONOUS_MANUAL_ANSWER);
        }
        if (event->isManualAnswer()) {
            workers.emplace_back([this, event] {
                std::this_thread::sleep_for(10ms);
                event->output = "manual " + event->input;
                ManualAnswer(event);
            });
            return;
        }
        event->output = "echo " + event->input;
    }
};

// A controller: records every answer it receives.
class EchoController : public EventAnswerReceiver<EventEcho> {
public:
    EchoController() : EventAnswerReceiver<EventEcho>(ThreadEnum::NULL_THREAD) {}

    std::vector<EventEchoPtr> answers;
    std::vector<IEventController::State> statesSeen;
    std::vector<std::thread::id> threadsSeen;

protected:
    void OnAnswerReceived(const EventEchoPtr& event) override {
        answers.push_back(event);
        statesSeen.push_back(event->getState());
        threadsSeen.push_back(std::this_thread::get_id());
    }
};

EventEchoPtr makeEvent(const std::string& input) {
    auto event = std::make_shared<EventEcho>();
    event->input = input;
    return event;
}

}  // namespace

TEST(CommonsEventTest, NewEventIsInitialAndClean) {
    const EventEchoPtr event = makeEvent("x");
    EXPECT_EQ(event->getState(), IEventController::STATE_INITIAL);
    EXPECT_EQ(event->getExceptionCode(), ExceptionCodes::None);
    EXPECT_EQ(event->getPrivateData(), nullptr);
    EXPECT_FALSE(event->checkCancelled());
}

TEST(CommonsEventTest, HandlingTypesTellSynchronousAndManualApart) {
    const EventEchoPtr event = makeEvent("x");
    event->setHandlingType(IEventController::HANDLING_SYNCHRONOUS);
    EXPECT_TRUE(event->isSynchronous());
    EXPECT_FALSE(event->isManualAnswer());
    event->setHandlingType(IEventController::HANDLING_ASYNCHRONOUS);
    EXPECT_FALSE(event->isSynchronous());
    event->setHandlingType(IEventController::HANDLING_SYNCHRONOUS_MANUAL_ANSWER);
    EXPECT_TRUE(event->isSynchronous());
    EXPECT_TRUE(event->isManualAnswer());
    event->setHandlingType(IEventController::HANDLING_ASYNCHRONOUS_MANUAL_ANSWER);
    EXPECT_FALSE(event->isSynchronous());
    EXPECT_TRUE(event->isManualAnswer());
}

TEST(CommonsEventTest, AsynchronousRequestIsHandledOnTheLoopAfterPostRequestReturns) {
    Echo echo;
    EchoController controller;
    const EventEchoPtr event = makeEvent("hello");
    event->setForAsynchronousCall(&controller);
    event->setPrivateData(std::make_shared<Token>(5));

    echo.PostRequest(event);
    EXPECT_TRUE(echo.received.empty()) << "handled inside PostRequest";
    EXPECT_EQ(event->getState(), IEventController::STATE_REQUEST_SEND);

    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !controller.answers.empty(); }));
    EXPECT_EQ(echo.statesSeen, std::vector{IEventController::STATE_REQUEST_SEND});
    EXPECT_EQ(echo.threadsSeen[0], std::this_thread::get_id());
    ASSERT_EQ(controller.answers.size(), 1u);
    EXPECT_EQ(controller.answers[0], event);
    EXPECT_EQ(controller.statesSeen[0], IEventController::STATE_ANSWER_RECEIVED);
    EXPECT_EQ(controller.threadsSeen[0], std::this_thread::get_id());
    EXPECT_EQ(event->output, "echo hello");
    EXPECT_EQ(event->getExceptionCode(), ExceptionCodes::None);
    auto token = DPL::DynamicPointerCast<Token>(event->getPrivateData());
    ASSERT_NE(token, nullptr);
    EXPECT_EQ(token->value, 5);
}

TEST(CommonsEventTest, AnswerIsOnItsWayBetweenReceiverAndController) {
    Echo echo;
    EchoController controller;
    const EventEchoPtr event = makeEvent("x");
    event->setForAsynchronousCall(&controller);
    echo.PostRequest(event);
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !echo.received.empty(); }));
    // The answer is queued behind the request; it may already have arrived in
    // the same loop turn, but never before the receiver ran.
    const auto state = event->getState();
    EXPECT_TRUE(state == IEventController::STATE_ANSWER_SEND ||
                state == IEventController::STATE_ANSWER_RECEIVED);
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !controller.answers.empty(); }));
    EXPECT_EQ(event->getState(), IEventController::STATE_ANSWER_RECEIVED);
}

TEST(CommonsEventTest, AsynchronousRequestsAreHandledInPostOrder) {
    Echo echo;
    EchoController controller;
    for (const char* input : {"a", "b", "c"}) {
        const EventEchoPtr event = makeEvent(input);
        event->setForAsynchronousCall(&controller);
        echo.PostRequest(event);
    }
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return controller.answers.size() == 3; }));
    EXPECT_EQ(echo.received, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(controller.answers[2]->output, "echo c");
}

TEST(CommonsEventTest, SynchronousRequestOnTheLoopThreadIsHandledInPlace) {
    Echo echo;
    const EventEchoPtr event = makeEvent("now");
    event->setForSynchronousCall();
    echo.PostRequest(event);
    EXPECT_EQ(echo.received, std::vector<std::string>{"now"});
    EXPECT_EQ(event->output, "echo now");
    EXPECT_EQ(event->getState(), IEventController::STATE_ANSWER_RECEIVED);
}

TEST(CommonsEventTest, SynchronousRequestFromAnotherThreadWaitsForTheLoop) {
    Echo echo;
    const EventEchoPtr event = makeEvent("far");
    event->setForSynchronousCall();
    std::atomic<bool> returned{false};
    std::thread caller([&] {
        echo.PostRequest(event);
        returned = true;
    });
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(returned.load()) << "returned before the loop handled the request";
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return returned.load(); }));
    caller.join();
    EXPECT_EQ(echo.threadsSeen[0], std::this_thread::get_id());
    EXPECT_EQ(event->output, "echo far");
    EXPECT_EQ(event->getState(), IEventController::STATE_ANSWER_RECEIVED);
}

TEST(CommonsEventTest, ManualAnswerFromAWorkerThreadArrivesOnTheLoop) {
    Echo echo;
    EchoController controller;
    const EventEchoPtr event = makeEvent("later");
    event->setHandlingType(IEventController::HANDLING_ASYNCHRONOUS_MANUAL_ANSWER);
    event->setAnswerReceiver(&controller);
    echo.PostRequest(event);
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !echo.received.empty(); }));
    EXPECT_EQ(event->getState(), IEventController::STATE_REQUEST_SEND)
        << "a manual-answer event waits for its answer";
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !controller.answers.empty(); }));
    EXPECT_EQ(controller.threadsSeen[0], std::this_thread::get_id());
    EXPECT_EQ(event->output, "manual later");
    EXPECT_EQ(event->getState(), IEventController::STATE_ANSWER_RECEIVED);
}

TEST(CommonsEventTest, SynchronousManualAnswerBlocksTheCallerUntilAnswered) {
    Echo echo;
    const EventEchoPtr event = makeEvent("wait");
    event->setHandlingType(IEventController::HANDLING_SYNCHRONOUS_MANUAL_ANSWER);
    echo.PostRequest(event);
    EXPECT_EQ(event->output, "manual wait");
    EXPECT_EQ(event->getState(), IEventController::STATE_ANSWER_RECEIVED);
}

TEST(CommonsEventTest, ReceiverCanTurnASynchronousRequestIntoALaterManualAnswer) {
    Echo echo;
    EchoController controller;
    echo.switchToAsynchronousManualAnswer = true;
    const EventEchoPtr event = makeEvent("deferred");
    event->setForSynchronousCall();
    event->setAnswerReceiver(&controller);
    echo.PostRequest(event);
    EXPECT_EQ(echo.received, std::vector<std::string>{"deferred"});
    EXPECT_EQ(event->getState(), IEventController::STATE_REQUEST_SEND);
    EXPECT_TRUE(controller.answers.empty());
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !controller.answers.empty(); }));
    EXPECT_EQ(event->output, "manual deferred");
    EXPECT_EQ(event->getState(), IEventController::STATE_ANSWER_RECEIVED);
}

TEST(CommonsEventTest, TimedRequestsAreDeliveredAfterTheirDueTimeInDueOrder) {
    Echo echo;
    EchoController controller;
    const auto start = std::chrono::steady_clock::now();
    const std::vector<std::pair<std::string, double>> requests = {
        {"slow", 0.12}, {"quick", 0.03}, {"middle", 0.07}};
    std::vector<EventEchoPtr> events;
    for (const auto& [input, due] : requests) {
        EventEchoPtr event = makeEvent(input);
        event->setForAsynchronousCall(&controller);
        echo.PostRequest(event, due);
        events.push_back(event);
    }
    EXPECT_TRUE(echo.received.empty());
    std::vector<std::chrono::steady_clock::duration> handledAfter;
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] {
        while (handledAfter.size() < echo.received.size()) {
            handledAfter.push_back(std::chrono::steady_clock::now() - start);
        }
        return controller.answers.size() == 3;
    }));
    EXPECT_EQ(echo.received, (std::vector<std::string>{"quick", "middle", "slow"}));
    EXPECT_GE(handledAfter[0], 30ms);
    EXPECT_GE(handledAfter[1], 70ms);
    EXPECT_GE(handledAfter[2], 120ms);
}

TEST(CommonsEventTest, ExceptionLeavingTheReceiverBecomesTheEventsCode) {
    Echo echo;
    EchoController controller;
    echo.throwMessage = "bad channel";
    DlogCapture log;
    const EventEchoPtr event = makeEvent("x");
    event->setForAsynchronousCall(&controller);
    echo.PostRequest(event);
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !controller.answers.empty(); }));
    EXPECT_EQ(event->getExceptionCode(), ExceptionCodes::InvalidArgumentException);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "bad channel"));
}

TEST(CommonsEventTest, CancelledRequestIsNotHandledNorAnswered) {
    Echo echo;
    EchoController controller;
    const EventEchoPtr event = makeEvent("x");
    event->setForAsynchronousCall(&controller);
    echo.PostRequest(event);
    EXPECT_TRUE(event->cancelRequest());
    KvTest::runMainLoopFor(50ms);
    EXPECT_TRUE(echo.received.empty());
    EXPECT_TRUE(controller.answers.empty());
}

TEST(CommonsEventTest, AnsweredRequestCannotBeCancelled) {
    Echo echo;
    const EventEchoPtr event = makeEvent("x");
    event->setForSynchronousCall();
    echo.PostRequest(event);
    EXPECT_FALSE(event->cancelRequest());
}

TEST(CommonsEventTest, AnswerForAControllerThatIsGoneIsDropped) {
    Echo echo;
    const EventEchoPtr event = makeEvent("x");
    {
        EchoController controller;
        event->setForAsynchronousCall(&controller);
        echo.PostRequest(event);
    }
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !echo.received.empty(); }));
    KvTest::runMainLoopFor(20ms);
    EXPECT_EQ(event->getState(), IEventController::STATE_ANSWER_SEND);
}

TEST(CommonsEventTest, RequestForAReceiverThatIsGoneFailsWithUnknownCode) {
    EchoController controller;
    const EventEchoPtr event = makeEvent("x");
    event->setForAsynchronousCall(&controller);
    {
        Echo echo;
        echo.PostRequest(event);
    }
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return !controller.answers.empty(); }));
    EXPECT_EQ(event->getExceptionCode(), ExceptionCodes::UnknownException);
}

TEST(CommonsThreadPoolTest, KindZeroIsTheMainLoop) {
    DPL::Thread* thread = ThreadPool::getThreadRef(ThreadEnum::NULL_THREAD);
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(thread->IsCurrent());
    bool currentElsewhere = true;
    std::thread([&] { currentElsewhere = thread->IsCurrent(); }).join();
    EXPECT_FALSE(currentElsewhere);
    EXPECT_EQ(thread, ThreadPool::getThreadRef(ThreadEnum::NULL_THREAD));
}

TEST(CommonsEventDeathTest, PostingAnEventTwiceIsAnAssertionFailure) {
    EXPECT_DEATH(
        {
            Echo echo;
            const EventEchoPtr event = makeEvent("x");
            echo.PostRequest(event);
            echo.PostRequest(event);
        },
        "Assertion failed: Only an event in STATE_INITIAL can be posted");
}

TEST(CommonsEventDeathTest, ManualAnswerToAnOrdinaryEventIsAnAssertionFailure) {
    EXPECT_DEATH(
        {
            Echo echo;
            const EventEchoPtr event = makeEvent("x");
            echo.PostRequest(event);
            echo.ManualAnswer(event);
        },
        "Assertion failed: Manual answer to an event not posted for one");
}

TEST(CommonsEventDeathTest, NegativeDueTimeIsAnAssertionFailure) {
    EXPECT_DEATH(
        {
            Echo echo;
            echo.PostRequest(makeEvent("x"), -0.5);
        },
        "Assertion failed: Due time must be non-negative");
}
