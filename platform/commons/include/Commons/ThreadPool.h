// The threads that receivers and controllers are bound to, by kind. Kind 0,
// NULL_THREAD, is the process's ecore main loop: the thread that runs the
// script. It is the only kind this runtime has.
#ifndef KV_PLATFORM_COMMONS_THREAD_POOL_H
#define KV_PLATFORM_COMMONS_THREAD_POOL_H

#include <dpl/thread.h>

namespace WrtDeviceApis {
namespace Commons {

class ThreadEnum {
public:
    enum Enumeration {
        NULL_THREAD = 0,
    };
};

class ThreadPool {
public:
    // The thread of the given kind, made on first use. The first call must be
    // made on the main loop's thread.
    static DPL::Thread* getThreadRef(ThreadEnum::Enumeration kind);
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
