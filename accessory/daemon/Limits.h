// The daemon's bounds against a misbehaving local process.
#ifndef KV_ACCESSORYD_LIMITS_H
#define KV_ACCESSORYD_LIMITS_H

#include <cstddef>

namespace Kv {
namespace Accessory {

// Sessions of one user at a time on the apps' socket.
inline constexpr std::size_t kMaxSessionsPerUser = 128;
// Bytes that all app sessions together may hold in frames they only partly sent.
inline constexpr std::size_t kMaxPartialFrameBytes = 64u * 1024u * 1024u;

}  // namespace Accessory
}  // namespace Kv

#endif
