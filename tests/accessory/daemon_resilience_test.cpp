// What the daemons do when an app dies, the link goes and comes back, a
// daemon is killed, or a session breaks the wire format.
#include <gtest/gtest.h>
#include <kv-device/Device.h>
#include <sys/socket.h>

#include "AccessoryTestSupport.h"
#include "DaemonConnection.h"

namespace KvTest {
namespace {

class DaemonResilienceTest : public testing::Test {
protected:
    void SetUp() override {
        devices.start();
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
    }

    // Opens /test/echo from the consumer to an app process on beta that
    // accepts; returns the consumer's connection id.
    std::uint32_t openTo(WireClient& provider) {
        const std::uint32_t agent = consumer->registerAgent("/test/echo");
        const std::uint32_t providerAgent = provider.registerAgent("/test/echo");
        const auto peers = consumer->findPeers(agent);
        EXPECT_EQ(peers.size(), 1u);
        wire::Request request;
        request.mutable_create_connection()->set_agent_id(agent);
        *request.mutable_create_connection()->mutable_peer() = peers.at(0);
        EXPECT_EQ(consumer->call(request).result(), 0);
        auto indication = provider.waitEvent(isConnectionRequest());
        EXPECT_TRUE(indication.has_value());
        providerConnection = indication->connection_requested().connection_id();
        provider.answer(providerAgent, providerConnection, true);
        auto confirm =
            consumer->waitEvent([](const wire::Event& e) { return e.has_create_confirm(); });
        EXPECT_TRUE(confirm.has_value());
        EXPECT_EQ(confirm->create_confirm().status(), wire::CONNECTION_MADE);
        return confirm->create_confirm().connection_id();
    }

    DevicePair devices;
    std::unique_ptr<WireClient> consumer;
    std::uint32_t providerConnection = 0;
};

TEST_F(DaemonResilienceTest, AnAppThatDiesLosesItsConnectionsAndAgents) {
    auto provider = std::make_unique<WireClient>(devices.beta(), kProviderApp);
    const std::uint32_t connection = openTo(*provider);
    provider.reset();  // the app's process goes: its session closes
    auto ended = consumer->waitEvent(isTerminated(connection));
    ASSERT_TRUE(ended.has_value());
    EXPECT_EQ(ended->terminated().reason(), wire::TERMINATION_CLOSED);
    auto gone = consumer->waitEvent([](const wire::Event& e) {
        return e.has_peer_changed() && e.peer_changed().status() == wire::PEER_GONE;
    });
    EXPECT_TRUE(gone.has_value());
}

// A detach ends every connection at once: the connections are not reported
// one by one besides it.
TEST_F(DaemonResilienceTest, LinkLossIsOneDetachOnBothDevicesAndTheLinkReturns) {
    WireClient provider(devices.beta(), kProviderApp);
    const std::uint32_t connection = openTo(provider);
    devices.setLink(devices.beta(), false);
    EXPECT_TRUE(consumer->waitEvent(isDeviceStatus(wire::DEVICE_DETACHED)).has_value());
    EXPECT_TRUE(provider.waitEvent(isDeviceStatus(wire::DEVICE_DETACHED)).has_value());
    EXPECT_FALSE(consumer->waitEvent(isTerminated(connection), milliseconds(300)));
    EXPECT_FALSE(provider.waitEvent(isTerminated(providerConnection), milliseconds(300)));

    devices.setLink(devices.beta(), true);
    auto attached = consumer->waitEvent(isDeviceStatus(wire::DEVICE_ATTACHED), milliseconds(8000));
    ASSERT_TRUE(attached.has_value());
    EXPECT_EQ(attached->device_status().device_type(), wire::DEVICE_TYPE_WIFI);
    EXPECT_TRUE(
        provider.waitEvent(isDeviceStatus(wire::DEVICE_ATTACHED), milliseconds(8000)).has_value());
}

// A stall past supervision is a silent link on both devices, whichever end
// gives it up first: the end that does so sends nothing, not even the
// link's end, while the stall lasts, so the other finds the silence itself.
// Each device's stall is tried once.
TEST_F(DaemonResilienceTest, AStallPastSupervisionIsASilentLinkOnBothDevices) {
    WireClient provider(devices.beta(), kProviderApp);
    const auto isSilent = [](const wire::Event& event) {
        return event.has_service_error() &&
               event.service_error().code() == wire::SERVICE_ERROR_LINK_SILENT;
    };
    for (const std::string& stalled : {devices.beta(), devices.alpha()}) {
        WireClient tool(stalled, "");
        wire::Request stall;
        stall.mutable_fault()->set_action(wire::LinkFault::STALL);
        stall.mutable_fault()->set_stall_ms(8000);
        ASSERT_EQ(tool.call(stall).result(), 0);
        EXPECT_TRUE(consumer->waitEvent(isSilent, milliseconds(12000)).has_value()) << stalled;
        EXPECT_TRUE(provider.waitEvent(isSilent, milliseconds(12000)).has_value()) << stalled;
        ASSERT_TRUE(devices.waitLinked(devices.alpha(), true, std::chrono::seconds(15)));
        ASSERT_TRUE(devices.waitLinked(devices.beta(), true, std::chrono::seconds(15)));
    }
}

// A fault armed for a moment that never came is forgotten on request, so
// that it can't fire in a later run; one armed afterwards fires as asked.
TEST_F(DaemonResilienceTest, ADisarmedFaultNeverFires) {
    WireClient provider(devices.beta(), kProviderApp);
    const std::uint32_t connection = openTo(provider);
    WireClient tool(devices.alpha(), "");
    const auto dropAfter = [&tool](std::uint32_t messages) {
        wire::Request drop;
        drop.mutable_fault()->set_action(wire::LinkFault::DROP);
        drop.mutable_fault()->set_after_messages(messages);
        drop.mutable_fault()->set_channel_id(101);
        return tool.call(drop).result();
    };
    ASSERT_EQ(dropAfter(2), 0);
    wire::Request disarm;
    disarm.mutable_fault()->set_action(wire::LinkFault::DISARM);
    ASSERT_EQ(tool.call(disarm).result(), 0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(consumer->sendData(connection, 101, "m" + std::to_string(i)), 0);
        ASSERT_TRUE(provider.waitEvent(isData(providerConnection)).has_value());
    }
    EXPECT_FALSE(consumer->waitEvent(isDeviceStatus(wire::DEVICE_DETACHED), milliseconds(300)));

    ASSERT_EQ(dropAfter(1), 0);
    ASSERT_EQ(consumer->sendData(connection, 101, "last"), 0);
    EXPECT_TRUE(consumer->waitEvent(isDeviceStatus(wire::DEVICE_DETACHED)).has_value());
}

TEST_F(DaemonResilienceTest, AKilledDaemonEndsTheConnectionsOfTheOtherDevice) {
    auto provider = std::make_unique<WireClient>(devices.beta(), kProviderApp);
    const std::uint32_t connection = openTo(*provider);
    devices.killBeta();
    EXPECT_TRUE(provider->waitClosed());
    EXPECT_TRUE(consumer->waitEvent(isDeviceStatus(wire::DEVICE_DETACHED)).has_value());
    EXPECT_FALSE(consumer->waitEvent(isTerminated(connection), milliseconds(300)));

    provider.reset();
    devices.startBeta();
    EXPECT_TRUE(
        consumer->waitEvent(isDeviceStatus(wire::DEVICE_ATTACHED), milliseconds(8000)).has_value());
}

TEST_F(DaemonResilienceTest, AnOversizedFrameClosesOnlyThatSession) {
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    Kv::Accessory::DaemonConnection rogue(devices.alpha() + "/" + Kv::Device::kAccessorySocket);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    rogue.write(std::string("\x7f\xff\xff\xff", 4), deadline);
    EXPECT_TRUE(rogue.waitReadable(deadline));
    EXPECT_THROW(rogue.readAvailable(), std::runtime_error);
    // The other session and its agent are untouched.
    int status = -1;
    consumer->findPeers(agent, &status);
    EXPECT_EQ(status, 2);
}

TEST_F(DaemonResilienceTest, AMalformedMessageClosesOnlyThatSession) {
    Kv::Accessory::DaemonConnection rogue(devices.alpha() + "/" + Kv::Device::kAccessorySocket);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    rogue.write(std::string("\0\0\0\3\xff\xff\xff", 7), deadline);
    EXPECT_TRUE(rogue.waitReadable(deadline));
    EXPECT_THROW(rogue.readAvailable(), std::runtime_error);
    EXPECT_NE(consumer->registerAgent("/test/echo"), 0u);
}

TEST_F(DaemonResilienceTest, ARequestBeforeTheHelloClosesTheSession) {
    Kv::Accessory::DaemonConnection rogue(devices.alpha() + "/" + Kv::Device::kAccessorySocket);
    wire::ClientMessage message;
    message.mutable_request()->mutable_status();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    rogue.write(Kv::Accessory::encodeFrame(message), deadline);
    EXPECT_TRUE(rogue.waitReadable(deadline));
    EXPECT_THROW(rogue.readAvailable(), std::runtime_error);
}

}  // namespace
}  // namespace KvTest
