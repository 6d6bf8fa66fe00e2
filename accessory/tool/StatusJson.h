// A daemon's status report as one JSON object, for scripts: the same parts
// as the text of `kv-accessory status`.
//   {"device": NAME,
//    "link": {"configured", "state": "up"|"down", "enabled", "address", "peer",
//             "security": "tls"|"none", "secure", "peer_certificate"},
//    "sessions": N,
//    "agents": [{"id", "app", "profile", "role": "consumer"|"provider"}],
//    "connections": [{"id", "agent", "state": "asking"|"indicated"|"open",
//                     "peer": {"device", "app", "agent", "profile"}}],
//    "transfers": [{"id", "agent", "direction": "sending"|"receiving",
//                   "state": "offered"|"flowing", "path", "size", "done", "progress"}],
//    "queued_for_apps": BYTES, "queued_for_link": BYTES, "heap_in_use": BYTES}
#ifndef KV_ACCESSORY_TOOL_STATUS_JSON_H
#define KV_ACCESSORY_TOOL_STATUS_JSON_H

#include <kv-accessory/Codec.h>

#include <string>

namespace Kv {
namespace Accessory {

std::string statusJson(const wire::StatusReport& report);

}  // namespace Accessory
}  // namespace Kv

#endif
