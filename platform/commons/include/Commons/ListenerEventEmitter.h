// Emits listener events to one listener. emit() copies the event, stamps the
// emitter's private data on the copy and queues it onto the listener's
// thread, so the listener runs later, on its own loop. Safe from any thread.
//
// The operations are virtual so that an emitter with another way of delivery
// can take its place where a ListenerEventEmitter is expected.
#ifndef KV_PLATFORM_COMMONS_LISTENER_EVENT_EMITTER_H
#define KV_PLATFORM_COMMONS_LISTENER_EVENT_EMITTER_H

#include <Commons/EventListener.h>
#include <Commons/IEvent.h>
#include <dpl/shared_ptr.h>

#include <cstdint>
#include <memory>
#include <mutex>

namespace WrtDeviceApis {
namespace Commons {

template <class Event>
class ListenerEventEmitter {
public:
    using IdType = std::uintptr_t;

    ListenerEventEmitter() = default;
    virtual ~ListenerEventEmitter() = default;
    ListenerEventEmitter(const ListenerEventEmitter&) = delete;
    ListenerEventEmitter& operator=(const ListenerEventEmitter&) = delete;

    virtual void setEventPrivateData(const DPL::SharedPtr<IEventPrivateData>& data) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_privateData = data;
    }

    virtual DPL::SharedPtr<IEventPrivateData> getEventPrivateData() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_privateData;
    }

    // Call on the listener's thread; null clears the listener.
    virtual void setListener(EventListener<Event>* listener) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_listener = listener != nullptr ? listener->listenerLink() : nullptr;
    }

    virtual void emit(const DPL::SharedPtr<Event>& event) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const DPL::SharedPtr<Detail::ListenerLink<Event>> target = m_listener.lock();
        if (target == nullptr) {
            return;
        }
        auto copy = std::make_shared<Event>(*event);
        copy->setPrivateData(m_privateData);
        target->thread->PushEvent([target, copy] {
            if (target->listener != nullptr) {
                target->listener->onAnswerReceived(copy);
            }
        });
    }

    // Tells emitters apart: the emitter's own address.
    virtual IdType getId() { return reinterpret_cast<IdType>(this); }

private:
    std::mutex m_mutex;
    std::weak_ptr<Detail::ListenerLink<Event>> m_listener;
    DPL::SharedPtr<IEventPrivateData> m_privateData;
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
