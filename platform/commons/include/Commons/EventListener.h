// The receiving end of listener events, bound at construction to the thread
// of a kind. It must be destroyed on that thread; events queued for it after
// that are dropped.
#ifndef KV_PLATFORM_COMMONS_EVENT_LISTENER_H
#define KV_PLATFORM_COMMONS_EVENT_LISTENER_H

#include <Commons/ThreadPool.h>
#include <dpl/shared_ptr.h>

#include <memory>

namespace WrtDeviceApis {
namespace Commons {

template <class Event>
class EventListener;

namespace Detail {

// The listener and its thread; `listener` is cleared when the listener dies.
// Read and cleared on `thread` only.
template <class Event>
struct ListenerLink {
    EventListener<Event>* listener;
    DPL::Thread* thread;
};

}  // namespace Detail

template <class Event>
class EventListener {
public:
    explicit EventListener(ThreadEnum::Enumeration kind)
        : m_link(std::make_shared<Detail::ListenerLink<Event>>(
              Detail::ListenerLink<Event>{this, ThreadPool::getThreadRef(kind)})) {}

    virtual ~EventListener() { m_link->listener = nullptr; }

    EventListener(const EventListener&) = delete;
    EventListener& operator=(const EventListener&) = delete;

    virtual void onAnswerReceived(const DPL::SharedPtr<Event>& event) = 0;

    const DPL::SharedPtr<Detail::ListenerLink<Event>>& listenerLink() const { return m_link; }

private:
    DPL::SharedPtr<Detail::ListenerLink<Event>> m_link;
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
