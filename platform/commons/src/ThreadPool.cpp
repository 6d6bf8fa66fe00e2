#include <Commons/ThreadPool.h>

#include <dpl/assert.h>
#include <dpl/main_loop.h>

namespace WrtDeviceApis {
namespace Commons {

DPL::Thread* ThreadPool::getThreadRef(ThreadEnum::Enumeration kind) {
    AssertMsg(kind == ThreadEnum::NULL_THREAD, "Unknown thread kind");
    return &DPL::MainLoop::Instance();
}

}  // namespace Commons
}  // namespace WrtDeviceApis
