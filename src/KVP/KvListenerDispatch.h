// The common path of a listener event on the script side: take the script
// callbacks that travel as the event's private data, read the type code of
// the event's information record and call the controller's handler for that
// kind of notification.
//   "no callback manager"   the event carries no JSCallbacksManager
//   "wrong type"            the event carries no information record
//   "Wrong type"            the record's type code has no handler
// Nothing is called back in these cases. A failure inside a handler is
// logged as "error during processing answer" and goes no further.
#ifndef KVP_KV_LISTENER_DISPATCH_H
#define KVP_KV_LISTENER_DISPATCH_H

#include "JSCallbacksManager.h"
#include "KvListenerBinding.h"

#include <Commons/Exception.h>
#include <Logger.h>
#include <dpl/shared_ptr.h>

#include <cstddef>
#include <exception>

namespace DeviceAPI {
namespace KVP {

// The script callbacks that `event` carries, or null (logged).
template <class Event>
JSCallbacksManagerPtr callbacksOf(const DPL::SharedPtr<Event>& event) {
    JSCallbacksManagerPtr callbacks =
        DPL::DynamicPointerCast<JSCallbacksManager>(event->getPrivateData());
    if (callbacks == nullptr) {
        LoggerE("no callback manager");
    }
    return callbacks;
}

// The record `info` as the subclass `Record` its type code announced, or null
// (logged as "Event info type is wrong.") when it is not one.
template <class Record, class Info>
const Record* infoAs(const Info& info) {
    const Record* record = dynamic_cast<const Record*>(&info);
    if (record == nullptr) {
        LoggerE("Event info type is wrong.");
    }
    return record;
}

// Runs `handle` and logs what it throws.
template <class Handle>
void runListenerHandler(Handle&& handle) {
    try {
        handle();
    } catch (const WrtDeviceApis::Commons::Exception& error) {
        LoggerE("error during processing answer : " << error.GetMessage());
    } catch (const std::exception& error) {
        LoggerE("error during processing answer : " << error.what());
    } catch (...) {
        LoggerE("error during processing answer");
    }
}

// Delivers `event`, which arrived through the emitter bound in `binding`, to
// the handler of `controller` for its record's type code. The emitter is kept
// alive until the delivery is over (see KvListenerBinding).
template <class Controller, class Event, class Info, size_t N>
void dispatchListenerEvent(Controller& controller, KvListenerBinding<Event>& binding,
                           const DPL::SharedPtr<Event>& event,
                           void (Controller::*const (&handlers)[N])(JSCallbacksManager&,
                                                                    const Info&)) {
    typename KvListenerBinding<Event>::EmitterPtr delivering = binding.hold();
    const JSCallbacksManagerPtr callbacks = callbacksOf(event);
    if (callbacks != nullptr) {
        runListenerHandler([&] {
            const DPL::SharedPtr<Info> info = event->info;
            if (info == nullptr) {
                LoggerE("wrong type");
                return;
            }
            const int type = info->getType();
            if (type < 0 || static_cast<size_t>(type) >= N) {
                LoggerE("Wrong type");
                return;
            }
            (controller.*handlers[type])(*callbacks, *info);
        });
    }
    KvListenerBinding<Event>::keepUntilNextTurn(std::move(delivering));
}

}  // namespace KVP
}  // namespace DeviceAPI

#endif
