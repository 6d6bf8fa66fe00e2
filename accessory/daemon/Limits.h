// The daemon's bounds: against a misbehaving local process, and the back-pressure
// that keeps its memory bounded under load.
#ifndef KV_ACCESSORYD_LIMITS_H
#define KV_ACCESSORYD_LIMITS_H

#include <chrono>
#include <cstddef>

namespace Kv {
namespace Accessory {

// Sessions of one user at a time on the apps' socket.
inline constexpr std::size_t kMaxSessionsPerUser = 128;
// Bytes that all app sessions together may hold in frames they only partly sent.
inline constexpr std::size_t kMaxPartialFrameBytes = std::size_t{64} * 1024 * 1024;

// Back-pressure. A session that has this much of data queued on the link
// behind it stops being read; it is read again once the link is down to the
// second bound. The link is likewise not read while an app has more than the
// first bound of events queued, until it has read them down to the second.
inline constexpr std::size_t kPauseSendersAbove = std::size_t{8} * 1024 * 1024;
inline constexpr std::size_t kResumeSendersBelow = std::size_t{2} * 1024 * 1024;
// An app that holds up the link and has not read its events down in this
// time has stopped reading: its session is ended.
inline constexpr std::chrono::seconds kSlowReaderGrace(10);

// Each end of the device link pings the other this often; a link on which
// nothing has been heard for the limit is given up (the other device went
// away without closing, or the link stalled for longer).
inline constexpr std::chrono::seconds kLinkPingInterval(1);
inline constexpr std::chrono::seconds kLinkSilenceLimit(6);

// How long the link key waits for the apps to hear of a detach (each app's
// library confirms it) before it is written all the same.
inline constexpr std::chrono::milliseconds kDetachNoticeLimit(1000);

}  // namespace Accessory
}  // namespace Kv

#endif
