#include "KvpTestSupport.h"

#include <Commons/Exception.h>

using namespace KvpTest;

namespace {

KvPeerAgentPtr peerAgent(const KvpDouble::Peer& record) {
    return std::make_shared<KvPeerAgent>(std::make_shared<PeerAgentWrapper>(record.get(), false),
                                         nullptr, 0);
}

}  // namespace

TEST(PeerAgentWrapperTest, CopyKeepsAtMost255CharactersOfEachText) {
    const std::string longText(300, 'x');
    const KvpDouble::Peer record(7, longText, "profile");
    PeerAgentWrapper wrapper(record.get(), false);
    const kvp_peer_agent_t* copy = wrapper.getPeerAgent();
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, record.get());
    EXPECT_EQ(std::string(copy->peerId), longText.substr(0, 255));
    EXPECT_EQ(std::string(copy->profileId), "profile");
    EXPECT_EQ(copy->peerAgentId, 7u);
    EXPECT_EQ(copy->accessoryId, 1u);
}

TEST(PeerAgentWrapperTest, NullTextsBecomeEmptyInTheCopy) {
    kvp_peer_agent_t bare{};
    bare.peerAgentId = 3;
    kvp_peer_agent_t* copy = PeerAgentWrapper::duplicate(&bare);
    ASSERT_NE(copy, nullptr);
    for (const char* text :
         {copy->peerId, copy->appName, copy->profileId, copy->profileVersion, copy->deviceName}) {
        ASSERT_NE(text, nullptr);
        EXPECT_STREQ(text, "");
    }
    PeerAgentWrapper::release(copy);
}

TEST(PeerAgentWrapperTest, NullRecordLogsWrongParam) {
    DlogCapture log;
    PeerAgentWrapper empty(nullptr, false);
    EXPECT_EQ(empty.getPeerAgent(), nullptr);
    EXPECT_EQ(PeerAgentWrapper::duplicate(nullptr), nullptr);
    EXPECT_EQ(log.count("Wrong param"), 2u);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "Wrong param"));
}

TEST(PeerAgentWrapperTest, AdoptedRecordIsKeptAsItIs) {
    const KvpDouble::Peer record(9, "peer", "profile");
    kvp_peer_agent_t* duplicate = PeerAgentWrapper::duplicate(record.get());
    PeerAgentWrapper wrapper(duplicate, true);
    EXPECT_EQ(wrapper.getPeerAgent(), duplicate);
}

TEST(KvPeerAgentTest, SamePeerMeansEqualPeerIdsWhateverElseDiffers) {
    const auto first = peerAgent(KvpDouble::Peer(1, "peer.id", "a", "App A", "1.0", "Device A"));
    const auto second = peerAgent(KvpDouble::Peer(2, "peer.id", "b", "App B", "2.0", "Device B"));
    const auto otherCase = peerAgent(KvpDouble::Peer(1, "Peer.Id", "a"));
    EXPECT_TRUE(first->isSamePeer(*second));
    EXPECT_FALSE(first->isSamePeer(*otherCase));
}

TEST(KvPeerAgentTest, ReadsTheRecordAndTheAccessory) {
    auto accessory =
        std::make_shared<KvPeerAccessory>("02:00", "Phone", "P1", KV_TRANSPORT_WIFI, "V1");
    const KvpDouble::Peer record(5, "peer", "profile", "App", "3.1", "Phone");
    KvPeerAgent peer(std::make_shared<PeerAgentWrapper>(record.get(), false), accessory, 65536);
    EXPECT_EQ(peer.getPeerAgentId(), 5u);
    EXPECT_EQ(peer.getPeerId(), "peer");
    EXPECT_EQ(peer.getAppName(), "App");
    EXPECT_EQ(peer.getProfileId(), "profile");
    EXPECT_EQ(peer.getProfileVersion(), "3.1");
    EXPECT_EQ(peer.getMaxAllowedDataSize(), 65536u);
    EXPECT_EQ(peer.getPeerAccessory()->getTransportType(), KV_TRANSPORT_WIFI);
    EXPECT_EQ(peer.getPeerAccessory()->getDeviceName(), "Phone");
}

TEST(KvPeerAgentTest, EmptyRecordRaisesNullPointer) {
    KvPeerAgent peer(std::make_shared<PeerAgentWrapper>(nullptr, false), nullptr, 0);
    EXPECT_EQ(peer.getRecord(), nullptr);
    EXPECT_THROW(peer.getPeerId(), WrtDeviceApis::Commons::NullPointerException);
}

TEST(KvAuthenticationTokenTest, KeepsKeyAndType) {
    KvAuthenticationToken token("key", KV_AUTHENTICATION_TYPE_NONE);
    EXPECT_EQ(token.getKey(), "key");
    EXPECT_EQ(token.getAuthenticationType(), 0);
}
