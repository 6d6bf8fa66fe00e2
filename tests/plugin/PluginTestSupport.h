// Native records for the script layer's tests: peer agents, accessories and
// tokens as the bridge would make them.
#ifndef KV_TESTS_PLUGIN_PLUGIN_TEST_SUPPORT_H
#define KV_TESTS_PLUGIN_PLUGIN_TEST_SUPPORT_H

#include "KvpClientDouble.h"

#include <KvPeerAccessory.h>
#include <KvPeerAgent.h>
#include <PeerAgentWrapper.h>

#include <memory>
#include <string>

namespace PluginTest {

using namespace DeviceAPI::KVP;

inline KvPeerAccessoryPtr makeAccessory(int transportType = 1) {
    return std::make_shared<KvPeerAccessory>("00:11:22:33:44:55", "Watch", "product-7",
                                             transportType, "vendor-9");
}

// A peer agent whose library record carries these texts.
inline KvPeerAgentPtr makePeer(const std::string& peerId, const std::string& appName = "Peer app",
                               unsigned long maxAllowedDataSize = 4096) {
    const KvpDouble::Peer record(11, peerId, "/kvtest/hello", appName, "2.0", "Watch", 1);
    return std::make_shared<KvPeerAgent>(std::make_shared<PeerAgentWrapper>(record.get(), false),
                                         makeAccessory(), maxAllowedDataSize);
}

}  // namespace PluginTest

#endif
