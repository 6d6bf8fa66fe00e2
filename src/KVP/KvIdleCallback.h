// Runs a handler of a native object later, once, when the main loop is idle.
// The pending call keeps a shared reference to its target, so the object lives
// until the handler has run. Used wherever an answer must not be delivered
// inside the request that caused it. Posted handlers run in the order they
// were posted, whatever their target.
#ifndef KVP_KV_IDLE_CALLBACK_H
#define KVP_KV_IDLE_CALLBACK_H

#include <dpl/shared_ptr.h>

#include <functional>
#include <utility>

namespace DeviceAPI {
namespace KVP {

// The queue behind KvIdleCallback: one main-loop idler drains it in order.
class KvIdleQueue {
public:
    // Queues `call`; main-loop thread only.
    static void post(std::function<void()> call);
};

template <class Target>
class KvIdleCallback {
public:
    typedef std::function<void(Target&)> Handler;

    // Queues `handler(*target)` to run once when the main loop is idle.
    static void post(const DPL::SharedPtr<Target>& target, Handler handler) {
        KvIdleQueue::post([target, handler = std::move(handler)] { handler(*target); });
    }
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
