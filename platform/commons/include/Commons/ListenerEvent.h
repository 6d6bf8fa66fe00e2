// Listener events: notifications that flow from a native object to whoever
// listens. Each notification kind derives from ListenerEvent<Self> and adds
// its payload. Events are copied on emission, so they must be copyable.
#ifndef KV_PLATFORM_COMMONS_LISTENER_EVENT_H
#define KV_PLATFORM_COMMONS_LISTENER_EVENT_H

#include <Commons/Exception.h>
#include <Commons/IEvent.h>
#include <dpl/shared_ptr.h>

namespace WrtDeviceApis {
namespace Commons {

template <class Super>
class ListenerEvent {
public:
    ListenerEvent() = default;
    ListenerEvent(const ListenerEvent&) = default;
    ListenerEvent& operator=(const ListenerEvent&) = default;
    virtual ~ListenerEvent() = default;

    ExceptionCodes::Enumeration getExceptionCode() const { return m_exceptionCode; }
    void setExceptionCode(ExceptionCodes::Enumeration code) { m_exceptionCode = code; }

    DPL::SharedPtr<IEventPrivateData> getPrivateData() const { return m_privateData; }
    void setPrivateData(const DPL::SharedPtr<IEventPrivateData>& data) { m_privateData = data; }

private:
    ExceptionCodes::Enumeration m_exceptionCode = ExceptionCodes::None;
    DPL::SharedPtr<IEventPrivateData> m_privateData;
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
