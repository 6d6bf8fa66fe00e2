// Request events. A request event carries a handling type, a state, an
// exception code, private data and a cancelled flag; each operation's event
// class derives from IEvent<Self> and adds its own input and output fields.
//
// States: STATE_INITIAL (made, not posted) -> STATE_REQUEST_SEND (posted,
// waiting for or inside the receiver) -> STATE_ANSWER_SEND (receiver done,
// answer on its way) -> STATE_ANSWER_RECEIVED (answer handed to the answer
// receiver, or to the synchronous caller). Only the receivers move the state.
#ifndef KV_PLATFORM_COMMONS_IEVENT_H
#define KV_PLATFORM_COMMONS_IEVENT_H

#include <Commons/Exception.h>
#include <dpl/shared_ptr.h>
#include <dpl/thread.h>
#include <dpl/waitable_event.h>

#include <memory>
#include <mutex>

namespace WrtDeviceApis {
namespace Commons {

// Whatever the poster wants to travel with an event and come back with its
// answer, usually the script call's callbacks.
class IEventPrivateData {
public:
    virtual ~IEventPrivateData() = default;
};

class IEventController {
public:
    enum HandlingType {
        HANDLING_SYNCHRONOUS = 0,
        HANDLING_ASYNCHRONOUS = 1,
        HANDLING_SYNCHRONOUS_MANUAL_ANSWER = 2,
        HANDLING_ASYNCHRONOUS_MANUAL_ANSWER = 3,
    };

    enum State {
        STATE_INITIAL,
        STATE_REQUEST_SEND,
        STATE_ANSWER_SEND,
        STATE_ANSWER_RECEIVED,
    };

    IEventController() = default;
    virtual ~IEventController() = default;
    IEventController(const IEventController&) = delete;
    IEventController& operator=(const IEventController&) = delete;

    HandlingType getHandlingType() const;
    void setHandlingType(HandlingType type);
    bool isSynchronous() const;
    bool isManualAnswer() const;

    State getState() const;

    ExceptionCodes::Enumeration getExceptionCode() const;
    void setExceptionCode(ExceptionCodes::Enumeration code);

    DPL::SharedPtr<IEventPrivateData> getPrivateData() const;
    void setPrivateData(const DPL::SharedPtr<IEventPrivateData>& data);

    // Marks the request cancelled. A cancelled request that the receiver has
    // not started is skipped, and a cancelled answer is not delivered. Returns
    // false when the answer had been received already.
    bool cancelRequest();
    bool checkCancelled() const;

    // For the receivers: state changes and the wait of a synchronous caller.
    void setState(State state);
    void signalAnswer() { m_answered.Signal(); }
    void waitForAnswer() { m_answered.Wait(); }

private:
    mutable std::mutex m_mutex;
    HandlingType m_handlingType = HANDLING_ASYNCHRONOUS;
    State m_state = STATE_INITIAL;
    ExceptionCodes::Enumeration m_exceptionCode = ExceptionCodes::None;
    DPL::SharedPtr<IEventPrivateData> m_privateData;
    bool m_cancelled = false;
    DPL::WaitableEvent m_answered;
};

template <class Event>
class EventAnswerReceiver;

namespace Detail {

// Where an asynchronous answer goes: the answer receiver and its thread. The
// receiver clears `receiver` when it dies, so an answer that arrives later is
// dropped instead of reaching a dead object. Read and cleared on `thread` only.
template <class Event>
struct AnswerLink {
    EventAnswerReceiver<Event>* receiver;
    DPL::Thread* thread;
};

}  // namespace Detail

template <class Super>
class IEvent : public IEventController {
public:
    // The poster waits in PostRequest until the receiver is done.
    void setForSynchronousCall() { setHandlingType(HANDLING_SYNCHRONOUS); }

    // The answer is handed to `receiver` on its thread, after PostRequest
    // returned. `Receiver` is an EventAnswerReceiver<Super>.
    template <class Receiver>
    void setForAsynchronousCall(Receiver* receiver) {
        setHandlingType(HANDLING_ASYNCHRONOUS);
        setAnswerReceiver(receiver);
    }

    template <class Receiver>
    void setAnswerReceiver(Receiver* receiver) {
        EventAnswerReceiver<Super>* base = receiver;
        std::lock_guard<std::mutex> lock(m_linkMutex);
        m_answerLink = base != nullptr ? base->answerLink() : nullptr;
    }

    std::weak_ptr<Detail::AnswerLink<Super>> answerLink() const {
        std::lock_guard<std::mutex> lock(m_linkMutex);
        return m_answerLink;
    }

private:
    mutable std::mutex m_linkMutex;
    std::weak_ptr<Detail::AnswerLink<Super>> m_answerLink;
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
