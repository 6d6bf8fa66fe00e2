// The storage of the current device, as apps and services see it.
#ifndef KV_PLATFORM_DEVICE_STORAGE_H
#define KV_PLATFORM_DEVICE_STORAGE_H

#include <cstdint>
#include <optional>
#include <string>

namespace Kv {
namespace Device {

// The free space, in bytes, for files written into `folder` (a path as this
// process sees it): what its file system has, or less when the device folder
// holds kStorageFreeFile, whose number is the free storage the device
// pretends to have. Nothing when the folder's file system can't be asked.
std::optional<std::uint64_t> freeSpace(const std::string& folder);

// The free storage the device pretends to have (kStorageFreeFile), if any.
std::optional<std::uint64_t> emulatedFreeSpace();
// A file of `bytes` was stored: the emulated free storage, if any, shrinks
// by as much (never below 0).
void takeEmulatedSpace(std::uint64_t bytes);

}  // namespace Device
}  // namespace Kv

#endif
