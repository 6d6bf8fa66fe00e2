// Lets an object hand out shared pointers to itself; the standard library's
// enable_shared_from_this under the platform's name.
#ifndef KV_PLATFORM_DPL_ENABLE_SHARED_FROM_THIS_H
#define KV_PLATFORM_DPL_ENABLE_SHARED_FROM_THIS_H

#include <dpl/shared_ptr.h>

namespace DPL {

template <typename T>
using EnableSharedFromThis = std::enable_shared_from_this<T>;

}  // namespace DPL

#endif
