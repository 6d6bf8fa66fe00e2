#include "KvPeerAgent.h"

#include <Commons/Exception.h>

#include <utility>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::NullPointerException;

KvPeerAgent::KvPeerAgent(PeerAgentWrapperPtr record, KvPeerAccessoryPtr accessory,
                         unsigned long maxAllowedDataSize)
    : m_record(std::move(record)),
      m_accessory(std::move(accessory)),
      m_maxAllowedDataSize(maxAllowedDataSize) {}

const kvp_peer_agent_t* KvPeerAgent::getRecord() const {
    return m_record != nullptr ? m_record->getPeerAgent() : nullptr;
}

const kvp_peer_agent_t& KvPeerAgent::record() const {
    const kvp_peer_agent_t* peer = getRecord();
    if (peer == nullptr) {
        ThrowMsg(NullPointerException, "Peer agent record is null");
    }
    return *peer;
}

unsigned int KvPeerAgent::getPeerAgentId() const { return record().peerAgentId; }

std::string KvPeerAgent::getPeerId() const { return record().peerId; }

std::string KvPeerAgent::getAppName() const { return record().appName; }

std::string KvPeerAgent::getProfileId() const { return record().profileId; }

std::string KvPeerAgent::getProfileVersion() const { return record().profileVersion; }

bool KvPeerAgent::isSamePeer(const KvPeerAgent& other) const {
    return getPeerId() == other.getPeerId();
}

}  // namespace KVP
}  // namespace DeviceAPI
