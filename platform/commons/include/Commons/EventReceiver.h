// Request receivers and answer receivers, both bound at construction to the
// thread of a kind (ThreadPool). A receiver and the objects it answers must be
// destroyed on that thread.
//
// EventRequestReceiver<E>::PostRequest(event) moves the event to
// STATE_REQUEST_SEND and hands it to the receiver's thread, where
// OnRequestReceived runs:
//   - asynchronous handling: later on the receiver's loop, never inside
//     PostRequest; the answer then goes to the event's answer receiver on
//     that receiver's thread;
//   - synchronous handling: PostRequest blocks until the receiver is done
//     (on the receiver's thread itself it runs the receiver in place);
//   - manual-answer handling: the answer leaves only when the receiver calls
//     ManualAnswer(event), from any thread. A receiver may switch a request
//     posted synchronously to HANDLING_ASYNCHRONOUS_MANUAL_ANSWER: the caller
//     then returns as soon as the receiver does, and the answer goes to the
//     event's answer receiver later.
#ifndef KV_PLATFORM_COMMONS_EVENT_RECEIVER_H
#define KV_PLATFORM_COMMONS_EVENT_RECEIVER_H

#include <Commons/IEvent.h>
#include <Commons/ThreadPool.h>
#include <Logger.h>
#include <dpl/assert.h>

#include <memory>

namespace WrtDeviceApis {
namespace Commons {

template <class Event>
class EventAnswerReceiver {
public:
    explicit EventAnswerReceiver(ThreadEnum::Enumeration kind)
        : m_link(std::make_shared<Detail::AnswerLink<Event>>(
              Detail::AnswerLink<Event>{this, ThreadPool::getThreadRef(kind)})) {}

    virtual ~EventAnswerReceiver() { m_link->receiver = nullptr; }

    EventAnswerReceiver(const EventAnswerReceiver&) = delete;
    EventAnswerReceiver& operator=(const EventAnswerReceiver&) = delete;

    const DPL::SharedPtr<Detail::AnswerLink<Event>>& answerLink() const { return m_link; }

    // Hands the answer to OnAnswerReceived; called on the receiver's thread.
    void ReceiveAnswer(const DPL::SharedPtr<Event>& event) {
        event->setState(IEventController::STATE_ANSWER_RECEIVED);
        OnAnswerReceived(event);
    }

protected:
    virtual void OnAnswerReceived(const DPL::SharedPtr<Event>& event) = 0;

private:
    DPL::SharedPtr<Detail::AnswerLink<Event>> m_link;
};

template <class Event>
class EventRequestReceiver {
public:
    explicit EventRequestReceiver(ThreadEnum::Enumeration kind = ThreadEnum::NULL_THREAD)
        : m_link(std::make_shared<Link>(Link{this, ThreadPool::getThreadRef(kind)})) {}

    virtual ~EventRequestReceiver() { m_link->receiver = nullptr; }

    EventRequestReceiver(const EventRequestReceiver&) = delete;
    EventRequestReceiver& operator=(const EventRequestReceiver&) = delete;

    void PostRequest(const DPL::SharedPtr<Event>& event) {
        markPosted(event);
        if (!event->isSynchronous()) {
            pushToReceiver(event);
            return;
        }
        if (m_link->thread->IsCurrent()) {
            process(event);
        } else {
            pushToReceiver(event);
        }
        event->waitForAnswer();
        if (event->isSynchronous()) {
            event->setState(IEventController::STATE_ANSWER_RECEIVED);
        }
    }

    // Posts an asynchronous request that reaches the receiver once `dueTime`
    // seconds have passed.
    void PostRequest(const DPL::SharedPtr<Event>& event, double dueTime) {
        AssertMsg(dueTime >= 0, "Due time must be non-negative");
        AssertMsg(!event->isSynchronous(), "A timed request must be asynchronous");
        markPosted(event);
        const auto link = m_link;
        m_link->thread->PushTimedEvent(dueTime, [link, event] { handle(link, event); });
    }

    // Sends the answer of an event posted for manual answer. Any thread.
    void ManualAnswer(const DPL::SharedPtr<Event>& event) {
        AssertMsg(event->isManualAnswer(), "Manual answer to an event not posted for one");
        AssertMsg(event->getState() == IEventController::STATE_REQUEST_SEND,
                  "Manual answer to an event that is not waiting for one");
        answer(event);
    }

protected:
    virtual void OnRequestReceived(const DPL::SharedPtr<Event>& event) = 0;

private:
    struct Link {
        EventRequestReceiver* receiver;
        DPL::Thread* thread;
    };

    static void markPosted(const DPL::SharedPtr<Event>& event) {
        AssertMsg(event != nullptr, "Posting a null event");
        AssertMsg(event->getState() == IEventController::STATE_INITIAL,
                  "Only an event in STATE_INITIAL can be posted");
        event->setState(IEventController::STATE_REQUEST_SEND);
    }

    void pushToReceiver(const DPL::SharedPtr<Event>& event) {
        const auto link = m_link;
        m_link->thread->PushEvent([link, event] { handle(link, event); });
    }

    // Runs on the receiver's thread.
    static void handle(const DPL::SharedPtr<Link>& link, const DPL::SharedPtr<Event>& event) {
        if (link->receiver == nullptr) {
            LoggerW("request receiver is gone; the request fails");
            event->setExceptionCode(ExceptionCodes::UnknownException);
            answer(event);
            return;
        }
        link->receiver->process(event);
    }

    void process(const DPL::SharedPtr<Event>& event) {
        if (event->checkCancelled()) {
            if (event->isSynchronous()) {
                event->signalAnswer();
            }
            return;
        }
        const bool postedSynchronously = event->isSynchronous();
        runReceiver(event);
        if (!event->isManualAnswer()) {
            answer(event);
        } else if (postedSynchronously && !event->isSynchronous()) {
            // The receiver turned the request into an asynchronous manual
            // answer: the caller goes on, the answer comes later.
            event->signalAnswer();
        }
    }

    // A receiver should not let an exception out; one that does fails its
    // event instead of unwinding through the event loop.
    void runReceiver(const DPL::SharedPtr<Event>& event) {
        try {
            OnRequestReceived(event);
        } catch (const Exception& exception) {
            LoggerE("request receiver let an exception out: " << exception.GetMessage());
            event->setExceptionCode(exception.getCode());
        } catch (const std::exception& exception) {
            LoggerE("request receiver let an exception out: " << exception.what());
            event->setExceptionCode(ExceptionCodes::UnknownException);
        }
    }

    static void answer(const DPL::SharedPtr<Event>& event) {
        event->setState(IEventController::STATE_ANSWER_SEND);
        if (event->isSynchronous()) {
            event->signalAnswer();
            return;
        }
        const DPL::SharedPtr<Detail::AnswerLink<Event>> target = event->answerLink().lock();
        if (target == nullptr) {
            return;
        }
        target->thread->PushEvent([target, event] {
            if (target->receiver != nullptr && !event->checkCancelled()) {
                target->receiver->ReceiveAnswer(event);
            }
        });
    }

    DPL::SharedPtr<Link> m_link;
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
