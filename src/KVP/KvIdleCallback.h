// Runs a handler of a native object later, once, when the main loop is idle.
// The pending call keeps a shared reference to its target, so the object lives
// until the handler has run. Used wherever an answer must not be delivered
// inside the request that caused it.
#ifndef KVP_KV_IDLE_CALLBACK_H
#define KVP_KV_IDLE_CALLBACK_H

#include <Logger.h>
#include <dpl/shared_ptr.h>

#include <Ecore.h>

#include <exception>
#include <functional>
#include <utility>

namespace DeviceAPI {
namespace KVP {

template <class Target>
class KvIdleCallback {
public:
    typedef std::function<void(Target&)> Handler;

    // Queues `handler(*target)` as a one-shot idler of the main loop.
    static void post(const DPL::SharedPtr<Target>& target, Handler handler) {
        auto* pending = new KvIdleCallback(target, std::move(handler));
        ecore_idler_add(&KvIdleCallback::run, pending);
    }

private:
    KvIdleCallback(DPL::SharedPtr<Target> target, Handler handler)
        : m_target(std::move(target)), m_handler(std::move(handler)) {}

    static Eina_Bool run(void* data) {
        auto* pending = static_cast<KvIdleCallback*>(data);
        try {
            pending->m_handler(*pending->m_target);
        } catch (const std::exception& exception) {
            LoggerE("idle callback failed: " << exception.what());
        }
        delete pending;
        return ECORE_CALLBACK_CANCEL;
    }

    DPL::SharedPtr<Target> m_target;
    Handler m_handler;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
