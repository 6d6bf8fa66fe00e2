// The trust of the device link: paired daemons link over TLS 1.3 and each
// accepts only the certificate it pinned; strangers (another device, a plain
// TCP client speaking the protocol) are refused at the handshake and no app
// hears of them; a silent connection holds nothing up; secure data needs the
// secure link; authentication names the pinned certificate; and nothing
// readable travels on the link.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/Pairing.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"
#include "RecordingProxy.h"

namespace KvTest {
namespace {

using Clock = std::chrono::steady_clock;

std::string daemonLog(const std::string& device) {
    return Kv::Device::readFile(device + "/accessoryd.log").value_or("");
}

// A TCP connection to the loopback port, or -1.
int connectTo(unsigned short port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Whether the daemon of `device` closed the connection `fd` within `timeout`.
bool closedByTheOtherEnd(int fd, milliseconds timeout) {
    timeval wait{static_cast<time_t>(timeout.count() / 1000),
                 static_cast<suseconds_t>(timeout.count() % 1000 * 1000)};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::recv(fd, buffer, sizeof buffer, 0);
        if (count == 0) {
            return true;
        }
        if (count < 0) {
            return errno == ECONNRESET;
        }
    }
}

wire::Reply status(const std::string& device) {
    wire::Request request;
    request.mutable_status();
    return Kv::Accessory::control(device, request);
}

std::optional<wire::Authenticated> authenticate(WireClient& client, std::uint32_t agent,
                                                const wire::PeerAgent& peer) {
    wire::Request request;
    request.mutable_authenticate()->set_agent_id(agent);
    *request.mutable_authenticate()->mutable_peer() = peer;
    EXPECT_EQ(client.call(request).result(), wire::RESULT_SUCCESS);
    auto event = client.waitEvent([](const wire::Event& e) { return e.has_authenticated(); });
    return event ? std::optional<wire::Authenticated>(event->authenticated()) : std::nullopt;
}

int sendData(WireClient& client, std::uint32_t connection, const std::string& data, bool secure) {
    wire::Request request;
    request.mutable_send_data()->set_connection_id(connection);
    request.mutable_send_data()->set_channel_id(101);
    request.mutable_send_data()->set_data(data);
    request.mutable_send_data()->set_secure(secure);
    return client.call(request).result();
}

class DaemonSecurityTest : public testing::Test {
protected:
    // Starts alpha alone, paired with beta; beta is started by each test.
    void startAlphaAlone(const std::vector<std::string>& extra = {}) {
        Kv::Accessory::pairFolders(devices.alpha(), devices.beta());
        devices.startAlpha(extra);
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
    }

    DevicePair devices;
    std::unique_ptr<WireClient> consumer;
};

TEST_F(DaemonSecurityTest, PairedDevicesLinkOverTlsAndAuthenticationNamesThePinnedCertificate) {
    devices.start();
    const wire::Reply report = status(devices.alpha());
    EXPECT_TRUE(report.secure());
    EXPECT_NE(report.status_text().find("security: TLS 1.3"), std::string::npos)
        << report.status_text();
    WireClient consumerApp(devices.alpha(), kConsumerApp);
    WireClient provider(devices.beta(), kProviderApp);
    const std::uint32_t agent = consumerApp.registerAgent("/test/echo");
    provider.registerAgent("/test/echo");
    const auto peers = consumerApp.findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    const auto answer = authenticate(consumerApp, agent, peers[0]);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->status(), wire::AUTHENTICATED);
    EXPECT_EQ(answer->token(),
              Kv::Accessory::certificateFingerprint(Kv::Accessory::ownCertificate(devices.beta())));
}

TEST_F(DaemonSecurityTest, ADeviceWithAnotherCertificateIsRefusedAndNoAppHearsOfIt) {
    startAlphaAlone();
    // gamma trusts alpha, but alpha has pinned beta, not gamma.
    const std::string gamma = devices.beta() + "-gamma";
    Kv::Device::ensureLayout(gamma);
    Kv::Accessory::ensureIdentity(gamma, "gamma");
    Kv::Accessory::pinPeer(gamma, Kv::Accessory::ownCertificate(devices.alpha()));
    Kv::Accessory::startDaemon(
        gamma,
        {"--connect", "127.0.0.1:" + std::to_string(devices.alphaPort()), "--name", "gamma"});
    const std::string gammaFingerprint =
        Kv::Accessory::certificateFingerprint(Kv::Accessory::ownCertificate(gamma));
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (daemonLog(devices.alpha()).find(gammaFingerprint) == std::string::npos &&
           Clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(20));
    }
    Kv::Accessory::stopDaemon(gamma);
    const std::string log = daemonLog(devices.alpha());
    EXPECT_NE(log.find("refused a device at the handshake"), std::string::npos) << log;
    EXPECT_NE(log.find(gammaFingerprint), std::string::npos) << log;
    EXPECT_FALSE(status(devices.alpha()).attached());
    EXPECT_FALSE(consumer->waitEvent(isDeviceStatus(wire::DEVICE_ATTACHED), milliseconds(300)));
}

TEST_F(DaemonSecurityTest, APlainClientSpeakingTheProtocolIsRefused) {
    startAlphaAlone();
    const int fd = connectTo(devices.alphaPort());
    ASSERT_GE(fd, 0);
    wire::LinkMessage hello;
    hello.mutable_hello()->set_version(Kv::Accessory::kProtocolVersion);
    hello.mutable_hello()->set_device_name("beta");
    const std::string frame = Kv::Accessory::encodeFrame(hello);
    ASSERT_EQ(::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(frame.size()));
    EXPECT_TRUE(closedByTheOtherEnd(fd, milliseconds(5000)));
    ::close(fd);
    EXPECT_FALSE(status(devices.alpha()).attached());
    EXPECT_FALSE(consumer->waitEvent(isDeviceStatus(wire::DEVICE_ATTACHED), milliseconds(300)));
}

TEST_F(DaemonSecurityTest, ASilentConnectionDoesNotKeepThePairedDeviceOut) {
    startAlphaAlone();
    const int silent = connectTo(devices.alphaPort());
    ASSERT_GE(silent, 0);
    const auto started = Clock::now();
    devices.startBeta();
    EXPECT_TRUE(devices.waitLinked(devices.alpha(), true, milliseconds(2000)));
    EXPECT_LT(Clock::now() - started, std::chrono::seconds(2));
    // The silent one is dropped at its handshake deadline.
    EXPECT_TRUE(closedByTheOtherEnd(silent, milliseconds(5000)));
    ::close(silent);
    EXPECT_TRUE(status(devices.alpha()).attached());
}

TEST_F(DaemonSecurityTest, UnpairedDevicesDoNotLink) {
    Kv::Accessory::ensureIdentity(devices.alpha(), "alpha");
    Kv::Accessory::ensureIdentity(devices.beta(), "beta");
    devices.startAlpha();
    devices.startBeta();
    EXPECT_FALSE(devices.waitLinked(devices.alpha(), true, milliseconds(1500)));
}

TEST_F(DaemonSecurityTest, UnpairingDropsTheLinkForGood) {
    devices.start();
    Kv::Accessory::unpair(devices.alpha());
    EXPECT_TRUE(devices.waitLinked(devices.alpha(), false));
    EXPECT_FALSE(devices.waitLinked(devices.alpha(), true, milliseconds(1500)));
}

TEST_F(DaemonSecurityTest, AnInsecureLinkSaysSoCarriesPlainDataAndRefusesSecureData) {
    devices.start({"--insecure"});
    const wire::Reply report = status(devices.alpha());
    EXPECT_TRUE(report.attached());
    EXPECT_FALSE(report.secure());
    EXPECT_NE(report.status_text().find("insecure"), std::string::npos) << report.status_text();
    EXPECT_NE(daemonLog(devices.alpha()).find("over plain TCP (insecure)"), std::string::npos);
    WireClient consumerApp(devices.alpha(), kConsumerApp);
    WireClient provider(devices.beta(), kProviderApp);
    const auto [connection, providerConnection] =
        openConnection(consumerApp, provider, "/test/echo");
    EXPECT_EQ(sendData(consumerApp, connection, "plain", false), wire::RESULT_SUCCESS);
    EXPECT_EQ(sendData(consumerApp, connection, "secret", true), wire::RESULT_GENERAL);
    auto arrived = provider.waitEvent(isData(providerConnection));
    ASSERT_TRUE(arrived.has_value());
    EXPECT_EQ(arrived->data().data(), "plain");
    EXPECT_FALSE(provider.waitEvent(isData(providerConnection), milliseconds(300)));
}

TEST_F(DaemonSecurityTest, AuthenticationFailsOverAnInsecureLink) {
    devices.start({"--insecure"});
    WireClient consumerApp(devices.alpha(), kConsumerApp);
    WireClient provider(devices.beta(), kProviderApp);
    const std::uint32_t agent = consumerApp.registerAgent("/test/echo");
    provider.registerAgent("/test/echo");
    const auto peers = consumerApp.findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    const auto answer = authenticate(consumerApp, agent, peers[0]);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->status(), wire::NOT_AUTHENTICATED);
    EXPECT_FALSE(answer->has_token());
}

// The daemon checks for itself that an app may use the service: it must
// declare the privilege, and the user must not have blocked it.
TEST_F(DaemonSecurityTest, AnAppWithoutThePrivilegeOrBlockedByTheUserCannotRegister) {
    devices.start();
    installApp(devices.alpha(), "unprivileged.Main", "consumer", false);
    installApp(devices.alpha(), "blocked.Main", "consumer", true);
    writeTextFile(devices.alpha() + "/policy.conf",
                  "block blocked.Main http://kv-project.org/privilege/accessory\n");
    for (const char* appId : {"unprivileged.Main", "blocked.Main"}) {
        WireClient app(devices.alpha(), appId);
        wire::Request request;
        request.mutable_register_agent()->set_profile_id("/test/echo");
        request.mutable_register_agent()->set_consumer(true);
        EXPECT_EQ(app.call(request).result(), wire::RESULT_GENERAL) << appId;
    }
    EXPECT_NE(daemonLog(devices.alpha()).find("unprivileged.Main may not use the accessory"),
              std::string::npos);
    WireClient allowed(devices.alpha(), kConsumerApp);
    EXPECT_NE(allowed.registerAgent("/test/echo"), 0u);
}

// The link's bytes, as a relay between the daemons records them: data of
// either kind stays unreadable on a TLS link, and the same capture of an
// insecure link shows it (so the capture does see the data).
class LinkCaptureTest : public DaemonSecurityTest, public testing::WithParamInterface<bool> {};

TEST_P(LinkCaptureTest, DataIsReadableOnTheLinkOnlyWhenItIsInsecure) {
    const bool insecure = GetParam();
    const std::vector<std::string> extra =
        insecure ? std::vector<std::string>{"--insecure"} : std::vector<std::string>{};
    startAlphaAlone(extra);
    RecordingProxy relay(devices.alphaPort());
    devices.startBeta(relay.port(), extra);
    ASSERT_TRUE(devices.waitLinked(devices.alpha()));
    WireClient provider(devices.beta(), kProviderApp);
    const auto [connection, providerConnection] = openConnection(*consumer, provider, "/test/echo");
    const std::string plain = "plain-data-that-must-not-be-readable";
    const std::string secret = "secure-data-that-must-not-be-readable";
    EXPECT_EQ(sendData(*consumer, connection, plain, false), wire::RESULT_SUCCESS);
    EXPECT_EQ(sendData(*consumer, connection, secret, true),
              insecure ? wire::RESULT_GENERAL : wire::RESULT_SUCCESS);
    ASSERT_TRUE(provider.waitEvent(isData(providerConnection)).has_value());
    const std::string captured = relay.recorded();
    EXPECT_GT(captured.size(), 0u);
    EXPECT_EQ(captured.find(plain) != std::string::npos, insecure);
    EXPECT_EQ(captured.find(secret), std::string::npos);
    EXPECT_EQ(captured.find("/test/echo") != std::string::npos, insecure);
}

INSTANTIATE_TEST_SUITE_P(Link, LinkCaptureTest, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "Insecure" : "Tls";
                         });

}  // namespace
}  // namespace KvTest
