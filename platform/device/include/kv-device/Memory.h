// How the programs of a device use memory.
#ifndef KV_PLATFORM_DEVICE_MEMORY_H
#define KV_PLATFORM_DEVICE_MEMORY_H

namespace Kv {
namespace Device {

// Keeps large allocations (message buffers of a megabyte and more) in the
// heap, where freed memory is reused, instead of mapping fresh pages for each
// and unmapping them when freed: a stream of large messages otherwise spends
// much of its time in page faults. Call it first thing in main.
void keepLargeAllocationsInTheHeap();

}  // namespace Device
}  // namespace Kv

#endif
