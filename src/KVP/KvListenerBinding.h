// The link between a controller and the emitter that a native object delivers
// one kind of listener event through.
//
// A script method that sets a listener hands the native object a new emitter
// with attach() (made by make()): the controller is its listener and the
// script callbacks are its private data.
// The callbacks hold the script object itself (their `this` object), so the
// script object, and with it the controller, stays alive for as long as the
// native object keeps the emitter: a listener keeps working after the
// application dropped its last reference to the object, and the emitter never
// points to a dead controller. Setting another listener releases the emitter,
// which lets the older script object be collected.
//
// The binding itself only watches the emitter (a weak reference), so that it
// forms no cycle with the callbacks, and it takes care of two hazards of the
// direct emitter, which calls the listener while holding its own lock:
//   - a callback that sets a new listener makes the native object drop the
//     emitter that is still delivering; hold() and keepUntilNextTurn() keep
//     it until the next turn of the main loop;
//   - cutting the emitter from its listener takes that lock, so release()
//     does it on the next turn of the main loop, never inside a delivery.
#ifndef KVP_KV_LISTENER_BINDING_H
#define KVP_KV_LISTENER_BINDING_H

#include "ListenerEventDirectEmitter.h"

#include <Commons/EventListener.h>
#include <Commons/EventReceiver.h>
#include <Commons/Exception.h>
#include <Commons/IEvent.h>
#include <Commons/ThreadPool.h>
#include <dpl/shared_ptr.h>

#include <memory>
#include <utility>

namespace DeviceAPI {
namespace KVP {

template <class Event>
class KvListenerBinding {
public:
    typedef ListenerEventDirectEmitter<Event> Emitter;
    typedef DPL::SharedPtr<Emitter> EmitterPtr;
    typedef DPL::SharedPtr<WrtDeviceApis::Commons::IEventPrivateData> Callbacks;

    KvListenerBinding() = default;
    KvListenerBinding(const KvListenerBinding&) = delete;
    KvListenerBinding& operator=(const KvListenerBinding&) = delete;

    // The emitter is cut from its listener and its callbacks when the
    // controller goes. While the callbacks hold the controller's script
    // object the object can go only when the script context itself goes, and
    // the callbacks must not outlive the context.
    ~KvListenerBinding() {
        if (const EmitterPtr emitter = m_emitter.lock()) {
            emitter->setListener(nullptr);
            emitter->setEventPrivateData(nullptr);
        }
    }

    // A new emitter that delivers to `listener` with `callbacks` as the private
    // data of every event.
    static EmitterPtr make(WrtDeviceApis::Commons::EventListener<Event>* listener,
                           const Callbacks& callbacks) {
        EmitterPtr emitter = std::make_shared<Emitter>();
        emitter->setListener(listener);
        emitter->setEventPrivateData(callbacks);
        return emitter;
    }

    // Remembers the emitter that the native object took.
    void bind(const EmitterPtr& emitter) { m_emitter = emitter; }

    // Hands `receiver` a new emitter (see make()) through a `Request` handled
    // in place, and binds it when the receiver took it. Answers the request's
    // outcome.
    template <class Request, class Receiver>
    WrtDeviceApis::Commons::ExceptionCodes::Enumeration attach(
        Receiver& receiver, WrtDeviceApis::Commons::EventListener<Event>* listener,
        const Callbacks& callbacks) {
        auto request = std::make_shared<Request>();
        request->emitter = make(listener, callbacks);
        request->setForSynchronousCall();
        static_cast<WrtDeviceApis::Commons::EventRequestReceiver<Request>&>(receiver).PostRequest(
            request);
        const auto outcome = request->getExceptionCode();
        if (outcome == WrtDeviceApis::Commons::ExceptionCodes::None) {
            bind(request->emitter);
        }
        return outcome;
    }

    // The bound emitter, held for the length of one delivery; hand it to
    // keepUntilNextTurn() when the delivery is over.
    EmitterPtr hold() const { return m_emitter.lock(); }

    // Releases a held emitter on the next turn of the main loop when nobody
    // else holds it any more (the callback replaced the listener), so that it
    // outlives the delivery that is still running inside it.
    static void keepUntilNextTurn(EmitterPtr emitter) {
        if (emitter == nullptr || emitter.use_count() > 1) {
            return;
        }
        mainLoop()->PushEvent([kept = std::move(emitter)] {});
    }

    // Cuts the bound emitter from its listener and its callbacks on the next
    // turn of the main loop; the callbacks release the script object then.
    void release() {
        std::weak_ptr<Emitter> watched = m_emitter;
        mainLoop()->PushEvent([watched] {
            if (const EmitterPtr emitter = watched.lock()) {
                emitter->setListener(nullptr);
                emitter->setEventPrivateData(nullptr);
            }
        });
    }

private:
    static DPL::Thread* mainLoop() {
        return WrtDeviceApis::Commons::ThreadPool::getThreadRef(
            WrtDeviceApis::Commons::ThreadEnum::NULL_THREAD);
    }

    std::weak_ptr<Emitter> m_emitter;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
