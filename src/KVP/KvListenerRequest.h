// The shared handling of a "set listener" request: the request's emitter
// replaces the object's one; a request without an emitter fails with code 6
// after the log line `failure` followed by "Invalid arguments.".
#ifndef KVP_KV_LISTENER_REQUEST_H
#define KVP_KV_LISTENER_REQUEST_H

#include <Commons/Exception.h>
#include <Logger.h>
#include <dpl/shared_ptr.h>

namespace DeviceAPI {
namespace KVP {

template <class Event, class Emitter>
void takeListenerEmitter(const DPL::SharedPtr<Event>& event, Emitter& slot, const char* failure) {
    using WrtDeviceApis::Commons::ExceptionCodes;
    try {
        if (event->emitter == nullptr) {
            ThrowMsg(WrtDeviceApis::Commons::InvalidArgumentException, "Invalid arguments.");
        }
        slot = event->emitter;
        event->setExceptionCode(ExceptionCodes::None);
    } catch (const WrtDeviceApis::Commons::Exception& exception) {
        LoggerE(failure << exception.GetMessage());
        event->setExceptionCode(ExceptionCodes::UnknownException);
    }
}

}  // namespace KVP
}  // namespace DeviceAPI

#endif
