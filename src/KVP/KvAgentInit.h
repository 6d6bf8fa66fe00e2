// The description of one local service agent as the application's service
// profile declares it, with its channels and transports. A record is made by
// KvServiceProfileLoader, shared by the agent it describes, and handed with
// the agent to the registration with the accessory service.
#ifndef KVP_KV_AGENT_INIT_H
#define KVP_KV_AGENT_INIT_H

#include <dpl/shared_ptr.h>

#include <cstdint>
#include <string>
#include <vector>

#include "KvTypes.h"

namespace DeviceAPI {
namespace KVP {

// One channel of a service. A new channel asks for a high data rate, high
// priority and reliable delivery; id 0 is never a valid channel.
struct KvChannel {
    std::uint16_t id = 0;
    KvDataRate dataRate = KV_DATA_RATE_HIGH;
    KvPriority priority = KV_PRIORITY_HIGH;
    KvReliability reliability = KV_RELIABILITY_ENABLE;
};

// One service profile entry, with the values an entry gets when the profile
// leaves them out.
struct KvAgentInit {
    std::string id;
    std::string name;
    KvRole role = KV_ROLE_CONSUMER;
    KvServiceLimit serviceLimit = KV_SERVICE_LIMIT_ANY;
    std::vector<KvChannel> channels;
    std::vector<KvTransportType> transportTypes;
    std::uint16_t serviceTimeout = 30;
};

typedef DPL::SharedPtr<KvAgentInit> KvAgentInitPtr;
typedef std::vector<KvAgentInitPtr> KvAgentInitList;
typedef DPL::SharedPtr<KvAgentInitList> KvAgentInitListPtr;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
