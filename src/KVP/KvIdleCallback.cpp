#include "KvIdleCallback.h"

#include <Logger.h>

#include <Ecore.h>

#include <deque>
#include <exception>

namespace DeviceAPI {
namespace KVP {

namespace {

std::deque<std::function<void()>>& pendingCalls() {
    static std::deque<std::function<void()>> calls;
    return calls;
}

bool idlerAdded = false;

// Runs the calls queued so far; calls they post wait for the next idle turn.
Eina_Bool runPendingCalls(void* /*data*/) {
    idlerAdded = false;
    std::deque<std::function<void()>> calls;
    calls.swap(pendingCalls());
    for (const std::function<void()>& call : calls) {
        try {
            call();
        } catch (const std::exception& exception) {
            LoggerE("idle callback failed: " << exception.what());
        }
    }
    return ECORE_CALLBACK_CANCEL;
}

}  // namespace

void KvIdleQueue::post(std::function<void()> call) {
    pendingCalls().push_back(std::move(call));
    if (!idlerAdded) {
        idlerAdded = ecore_idler_add(runPendingCalls, nullptr) != nullptr;
    }
}

}  // namespace KVP
}  // namespace DeviceAPI
