#include <kv-device/Memory.h>
#include <malloc.h>

namespace Kv {
namespace Device {

namespace {

// Allocations below this size come from the heap (glibc's default is 128 KiB,
// adapting upwards only after such a block has been freed).
constexpr int kMapThreshold = 64 * 1024 * 1024;
// Free memory at the top of the heap is returned to the system only above
// this much.
constexpr int kTrimThreshold = 128 * 1024 * 1024;

}  // namespace

void keepLargeAllocationsInTheHeap() {
    mallopt(M_MMAP_THRESHOLD, kMapThreshold);
    mallopt(M_TRIM_THRESHOLD, kTrimThreshold);
}

}  // namespace Device
}  // namespace Kv
