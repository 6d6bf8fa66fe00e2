// An emitter that delivers at once: emit() copies the event, stamps the
// emitter's private data on the copy and calls the listener's
// onAnswerReceived with it directly, on the emitting thread, while holding the
// emitter's mutex. The listener has run by the time emit() returns, so the
// caller must already be on the script's thread. Without a listener the copy
// is dropped.
#ifndef KVP_LISTENER_EVENT_DIRECT_EMITTER_H
#define KVP_LISTENER_EVENT_DIRECT_EMITTER_H

#include <Commons/EventListener.h>
#include <Commons/IEvent.h>
#include <Commons/ListenerEventEmitter.h>
#include <dpl/mutex.h>
#include <dpl/shared_ptr.h>

#include <memory>

namespace DeviceAPI {
namespace KVP {

template <class T>
class ListenerEventDirectEmitter : public WrtDeviceApis::Commons::ListenerEventEmitter<T> {
public:
    typedef WrtDeviceApis::Commons::ListenerEventEmitter<T> Base;
    typedef WrtDeviceApis::Commons::EventListener<T> Listener;
    typedef DPL::SharedPtr<WrtDeviceApis::Commons::IEventPrivateData> PrivateData;

    ListenerEventDirectEmitter() = default;
    ~ListenerEventDirectEmitter() override = default;

    void setEventPrivateData(const PrivateData& data) override {
        DPL::Mutex::ScopedLock lock(&m_mutex);
        m_privateData = data;
    }

    PrivateData getEventPrivateData() override {
        DPL::Mutex::ScopedLock lock(&m_mutex);
        return m_privateData;
    }

    void setListener(Listener* listener) override {
        DPL::Mutex::ScopedLock lock(&m_mutex);
        m_listener = listener;
    }

    void emit(const DPL::SharedPtr<T>& event) override {
        DPL::Mutex::ScopedLock lock(&m_mutex);
        DPL::SharedPtr<T> copy(new T(*event));
        if (m_listener == nullptr) {
            return;
        }
        copy->setPrivateData(m_privateData);
        m_listener->onAnswerReceived(copy);
    }

    typename Base::IdType getId() override { return reinterpret_cast<typename Base::IdType>(this); }

private:
    DPL::Mutex m_mutex;
    Listener* m_listener = nullptr;
    PrivateData m_privateData;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
