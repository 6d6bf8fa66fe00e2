// A daemon's status report as people read it: one "name: value" line for
// each part (device, link, security, sessions, agents, connections,
// transfers, heap in use), with a line below for each agent, connection and
// transfer. The daemon sends this text along with the report; the tool
// prints it.
#ifndef KV_ACCESSORY_STATUS_TEXT_H
#define KV_ACCESSORY_STATUS_TEXT_H

#include <string>

#include "kv_accessory.pb.h"

namespace Kv {
namespace Accessory {

std::string statusText(const ::kv::accessory::wire::StatusReport& report);

// "open", "asking", "indicated".
const char* stageName(::kv::accessory::wire::ConnectionStage stage);

}  // namespace Accessory
}  // namespace Kv

#endif
