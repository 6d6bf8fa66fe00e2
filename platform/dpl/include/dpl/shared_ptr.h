// Reference-counted handles: the standard library's shared pointer under the
// names the platform code uses.
#ifndef KV_PLATFORM_DPL_SHARED_PTR_H
#define KV_PLATFORM_DPL_SHARED_PTR_H

#include <memory>

namespace DPL {

template <typename T>
using SharedPtr = std::shared_ptr<T>;

template <typename Target, typename Source>
SharedPtr<Target> StaticPointerCast(const SharedPtr<Source>& pointer) {
    return std::static_pointer_cast<Target>(pointer);
}

template <typename Target, typename Source>
SharedPtr<Target> DynamicPointerCast(const SharedPtr<Source>& pointer) {
    return std::dynamic_pointer_cast<Target>(pointer);
}

}  // namespace DPL

#endif
