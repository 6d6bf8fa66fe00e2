// A remote service agent: the library's record of it (kept in a wrapper and
// handed back to the library unchanged) and what the service told of its
// device.
#ifndef KVP_KV_PEER_AGENT_H
#define KVP_KV_PEER_AGENT_H

#include "KvPeerAccessory.h"
#include "PeerAgentWrapper.h"

#include <dpl/shared_ptr.h>

#include <string>

namespace DeviceAPI {
namespace KVP {

class KvPeerAgent {
public:
    KvPeerAgent(PeerAgentWrapperPtr record, KvPeerAccessoryPtr accessory,
                unsigned long maxAllowedDataSize);

    // The library's record; never null for a peer agent made by the bridge.
    const kvp_peer_agent_t* getRecord() const;
    const PeerAgentWrapperPtr& getWrapper() const { return m_record; }

    // Readers of the record; they raise NullPointerException for an empty one.
    unsigned int getPeerAgentId() const;
    std::string getPeerId() const;
    std::string getAppName() const;
    std::string getProfileId() const;
    std::string getProfileVersion() const;

    const KvPeerAccessoryPtr& getPeerAccessory() const { return m_accessory; }
    unsigned long getMaxAllowedDataSize() const { return m_maxAllowedDataSize; }

    // Same remote agent: equal peer ids, compared byte by byte.
    bool isSamePeer(const KvPeerAgent& other) const;

private:
    const kvp_peer_agent_t& record() const;

    PeerAgentWrapperPtr m_record;
    KvPeerAccessoryPtr m_accessory;
    unsigned long m_maxAllowedDataSize;
};

typedef DPL::SharedPtr<KvPeerAgent> KvPeerAgentPtr;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
