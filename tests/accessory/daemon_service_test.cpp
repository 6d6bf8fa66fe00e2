// The accessory daemons of two linked devices, driven by scripted app
// sessions: registration, discovery, connections and data.
#include <gtest/gtest.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kvp-client-stub-api.h>
#include <vconf.h>

#include "AccessoryTestSupport.h"

namespace KvTest {
namespace {

class DaemonServiceTest : public testing::Test {
protected:
    void SetUp() override {
        devices.start();
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
        provider = std::make_unique<WireClient>(devices.beta(), kProviderApp);
    }

    // A connection on /test/echo: the consumer's and the provider's ids.
    std::pair<std::uint32_t, std::uint32_t> openEcho() {
        return openConnection(*consumer, *provider, "/test/echo");
    }

    DevicePair devices;
    std::unique_ptr<WireClient> consumer;
    std::unique_ptr<WireClient> provider;
};

TEST_F(DaemonServiceTest, RegistersTheAgentsOfTheInstalledProfile) {
    EXPECT_NE(consumer->registerAgent("/test/echo"), 0u);
    wire::Request unknown;
    unknown.mutable_register_agent()->set_profile_id("/test/missing");
    EXPECT_EQ(consumer->call(unknown).result(), 0);
    auto confirm =
        consumer->waitEvent([](const wire::Event& e) { return e.has_register_confirm(); });
    ASSERT_TRUE(confirm.has_value());
    EXPECT_EQ(confirm->register_confirm().result(), -2);
}

TEST_F(DaemonServiceTest, RefusesRegistrationOfAProcessThatRunsNoApp) {
    onDevice(devices.alpha(), [] { Kv::Device::unregisterRunningApp(getpid()); });
    WireClient stranger(devices.alpha(), "");
    wire::Request request;
    request.mutable_register_agent()->set_profile_id("/test/echo");
    EXPECT_EQ(stranger.call(request).result(), -1);
}

TEST_F(DaemonServiceTest, FindsThePeerOfTheSameProfileAndOppositeRole) {
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    const std::uint32_t providerAgent = provider->registerAgent("/test/echo");
    int status = -1;
    const std::vector<wire::PeerAgent> peers = consumer->findPeers(agent, &status);
    EXPECT_EQ(status, 4);
    ASSERT_EQ(peers.size(), 1u);
    EXPECT_EQ(peers[0].peer_agent_id(), providerAgent);
    EXPECT_EQ(peers[0].profile_id(), "/test/echo");
    EXPECT_EQ(peers[0].profile_version(), "2.0");
    EXPECT_EQ(peers[0].device_name(), "beta");
    EXPECT_EQ(peers[0].app_name(), "App provider");
}

TEST_F(DaemonServiceTest, ReportsNoPeerWhenNoneImplementsTheProfile) {
    const std::uint32_t agent = consumer->registerAgent("/test/lonely");
    int status = -1;
    EXPECT_TRUE(consumer->findPeers(agent, &status).empty());
    EXPECT_EQ(status, 2);
}

TEST_F(DaemonServiceTest, ReportsNoDeviceWhenTheLinkIsDown) {
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    devices.setLink(devices.alpha(), false);
    ASSERT_TRUE(devices.waitLinked(devices.alpha(), false));
    wire::Request request;
    request.mutable_find_peers()->set_agent_id(agent);
    EXPECT_EQ(consumer->call(request).result(), wire::RESULT_NO_DEVICE);
    // The reply is the whole answer: no search event follows it.
    EXPECT_FALSE(consumer->waitEvent([](const wire::Event& e) { return e.has_peer_found(); },
                                     milliseconds(300)));
}

TEST_F(DaemonServiceTest, AnUnknownAgentIsAnInvalidArgument) {
    wire::Request request;
    request.mutable_find_peers()->set_agent_id(999);
    EXPECT_EQ(consumer->call(request).result(), -2);
}

TEST_F(DaemonServiceTest, TellsPeersWhenAnAgentComesAndGoes) {
    consumer->registerAgent("/test/echo");
    const std::uint32_t providerAgent = provider->registerAgent("/test/echo");
    auto available = consumer->waitEvent([](const wire::Event& e) { return e.has_peer_changed(); });
    ASSERT_TRUE(available.has_value());
    EXPECT_EQ(available->peer_changed().status(), wire::PEER_AVAILABLE);
    EXPECT_EQ(available->peer_changed().peer().peer_agent_id(), providerAgent);
    wire::Request request;
    request.mutable_deregister_agent()->set_agent_id(providerAgent);
    EXPECT_EQ(provider->call(request).result(), 0);
    auto gone = consumer->waitEvent([](const wire::Event& e) { return e.has_peer_changed(); });
    ASSERT_TRUE(gone.has_value());
    EXPECT_EQ(gone->peer_changed().status(), wire::PEER_GONE);
}

TEST_F(DaemonServiceTest, MakesAConnectionThePeerAccepts) {
    const auto [consumerConnection, providerConnection] = openEcho();
    EXPECT_NE(consumerConnection, 0u);
    EXPECT_NE(providerConnection, 0u);
}

TEST_F(DaemonServiceTest, ReportsARejectedConnection) {
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    const std::uint32_t providerAgent = provider->registerAgent("/test/echo");
    const auto peers = consumer->findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    wire::Request request;
    request.mutable_create_connection()->set_agent_id(agent);
    *request.mutable_create_connection()->mutable_peer() = peers[0];
    ASSERT_EQ(consumer->call(request).result(), 0);
    auto indication = provider->waitEvent(isConnectionRequest());
    ASSERT_TRUE(indication.has_value());
    EXPECT_EQ(indication->connection_requested().peer().app_name(), "App consumer");
    EXPECT_EQ(
        provider->answer(providerAgent, indication->connection_requested().connection_id(), false),
        0);
    auto confirm = consumer->waitEvent([](const wire::Event& e) { return e.has_create_confirm(); });
    ASSERT_TRUE(confirm.has_value());
    EXPECT_EQ(confirm->create_confirm().status(), wire::CONNECTION_REJECTED);
}

TEST_F(DaemonServiceTest, ConnectionTimesOutAfterTheProfileTimeout) {
    const std::uint32_t agent = consumer->registerAgent("/test/slow");
    provider->registerAgent("/test/slow");
    const auto peers = consumer->findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    const auto started = std::chrono::steady_clock::now();
    auto confirm = consumer->connect(agent, peers[0]);
    ASSERT_TRUE(confirm.has_value());
    EXPECT_EQ(confirm->status(), wire::CONNECTION_NO_RESPONSE);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(900));
    auto indication = provider->waitEvent(isConnectionRequest());
    ASSERT_TRUE(indication.has_value());
    const std::uint32_t late = indication->connection_requested().connection_id();
    EXPECT_TRUE(provider->waitEvent(isTerminated(late)).has_value());
}

TEST_F(DaemonServiceTest, RefusesAConnectionBeyondTheServiceLimit) {
    AppProcess second(devices.beta(), kSecondProviderApp, "/test/single");
    ASSERT_TRUE(second.ready());
    const std::uint32_t agent = consumer->registerAgent("/test/single");
    const std::uint32_t providerAgent = provider->registerAgent("/test/single");
    const auto peers = consumer->findPeers(agent);
    ASSERT_EQ(peers.size(), 2u);
    const wire::PeerAgent& mine = peers[0].peer_agent_id() == providerAgent ? peers[0] : peers[1];
    const wire::PeerAgent& other = peers[0].peer_agent_id() == providerAgent ? peers[1] : peers[0];
    wire::Request request;
    request.mutable_create_connection()->set_agent_id(agent);
    *request.mutable_create_connection()->mutable_peer() = mine;
    ASSERT_EQ(consumer->call(request).result(), 0);
    auto indication = provider->waitEvent(isConnectionRequest());
    ASSERT_TRUE(indication.has_value());
    provider->answer(providerAgent, indication->connection_requested().connection_id(), true);
    auto first = consumer->waitEvent([](const wire::Event& e) { return e.has_create_confirm(); });
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first->create_confirm().status(), wire::CONNECTION_MADE);
    auto beyond = consumer->connect(agent, other);
    ASSERT_TRUE(beyond.has_value());
    EXPECT_EQ(beyond->status(), wire::CONNECTION_ALREADY_EXISTS);
    auto again = consumer->connect(agent, mine);
    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(again->status(), wire::CONNECTION_ALREADY_EXISTS);
}

TEST_F(DaemonServiceTest, AStalePeerRecordIsAnInvalidPeer) {
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    provider->registerAgent("/test/echo");
    auto peers = consumer->findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    peers[0].set_accessory_id(peers[0].accessory_id() + 7);
    auto confirm = consumer->connect(agent, peers[0]);
    ASSERT_TRUE(confirm.has_value());
    EXPECT_EQ(confirm->status(), wire::CONNECTION_INVALID_PEER_AGENT);
}

TEST_F(DaemonServiceTest, DeliversDataInOrderAndUnchangedOnEveryChannel) {
    const auto [consumerConnection, providerConnection] = openEcho();
    // With the round's digit, the largest data a send may carry.
    std::string big(KVP_MAX_DATA_SIZE - 1, 'x');
    for (std::size_t i = 0; i < big.size(); ++i) {
        big[i] = static_cast<char>(i * 31 % 251);
    }
    const std::string withZero("ab\0cd", 5);
    std::vector<std::pair<std::uint32_t, std::string>> sent;
    for (int round = 0; round < 3; ++round) {
        sent.emplace_back(101, "low " + std::to_string(round));
        sent.emplace_back(102, big + std::to_string(round));
        sent.emplace_back(101, withZero);
        sent.emplace_back(102, "high " + std::to_string(round));
    }
    for (const auto& [channel, data] : sent) {
        ASSERT_EQ(consumer->sendData(consumerConnection, channel, data), 0);
    }
    std::map<std::uint32_t, std::vector<std::string>> expected, received;
    for (const auto& [channel, data] : sent) {
        expected[channel].push_back(data);
    }
    for (std::size_t i = 0; i < sent.size(); ++i) {
        auto event = provider->waitEvent(isData(providerConnection));
        ASSERT_TRUE(event.has_value()) << "message " << i;
        received[event->data().channel_id()].push_back(event->data().data());
    }
    EXPECT_EQ(received, expected);
}

TEST_F(DaemonServiceTest, RefusesDataOnAChannelOutsideTheProfile) {
    const auto [consumerConnection, providerConnection] = openEcho();
    EXPECT_EQ(consumer->sendData(consumerConnection, 7, "x"), -2);
    EXPECT_EQ(consumer->sendData(consumerConnection + 100, 101, "x"), -2);
    EXPECT_EQ(provider->sendData(providerConnection, 102, "back"), 0);
    auto event = consumer->waitEvent(isData(consumerConnection));
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->data().data(), "back");
}

TEST_F(DaemonServiceTest, TerminationReachesBothEnds) {
    const auto [consumerConnection, providerConnection] = openEcho();
    wire::Request request;
    request.mutable_terminate_connection()->set_connection_id(providerConnection);
    EXPECT_EQ(provider->call(request).result(), 0);
    auto local = provider->waitEvent(isTerminated(providerConnection));
    auto remote = consumer->waitEvent(isTerminated(consumerConnection));
    ASSERT_TRUE(local.has_value());
    ASSERT_TRUE(remote.has_value());
    EXPECT_EQ(remote->terminated().reason(), wire::TERMINATION_CLOSED);
    // Ending it again succeeds and ends nothing more.
    EXPECT_EQ(provider->call(request).result(), wire::RESULT_SUCCESS);
    EXPECT_FALSE(provider->waitEvent(isTerminated(providerConnection), milliseconds(300)));
    EXPECT_FALSE(consumer->waitEvent(isTerminated(consumerConnection), milliseconds(300)));
}

TEST_F(DaemonServiceTest, AnotherAppsConnectionCannotBeEnded) {
    const auto [consumerConnection, providerConnection] = openEcho();
    wire::Request request;
    request.mutable_terminate_connection()->set_connection_id(providerConnection);
    WireClient stranger(devices.beta(), kSecondProviderApp);
    EXPECT_EQ(stranger.call(request).result(), wire::RESULT_INVALID);
    EXPECT_FALSE(consumer->waitEvent(isTerminated(consumerConnection), milliseconds(300)));
}

TEST_F(DaemonServiceTest, WritesTheLinkStateToVconf) {
    int value = -1;
    onDevice(devices.beta(), [&] { vconf_get_int("memory/private/kvp/conn_status", &value); });
    EXPECT_EQ(value, 1);
    devices.setLink(devices.beta(), false);
    ASSERT_TRUE(devices.waitLinked(devices.beta(), false));
    onDevice(devices.beta(), [&] { vconf_get_int("memory/private/kvp/conn_status", &value); });
    EXPECT_EQ(value, 0);
}

TEST_F(DaemonServiceTest, DescribesTheLinkedAccessory) {
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    provider->registerAgent("/test/echo");
    const auto peers = consumer->findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    wire::Request request;
    request.mutable_get_accessory()->set_accessory_id(peers[0].accessory_id());
    const wire::Reply reply = consumer->call(request);
    EXPECT_EQ(reply.result(), 0);
    EXPECT_EQ(reply.accessory().transport_type(), 3);
    EXPECT_EQ(reply.accessory().product_id(), "beta");
    EXPECT_GE(reply.accessory().max_data_size(), 1024u * 1024u);
}

}  // namespace
}  // namespace KvTest
