#include "AccessoryTestSupport.h"

#include <gtest/gtest.h>
#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/Pairing.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <kv-device/Process.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "DaemonConnection.h"
#include "DeviceTestSupport.h"

namespace KvTest {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace Kv::Accessory;

namespace {

const char* const kServiceFile = "res/xml/services.xml";

std::string profile(const std::string& id, const std::string& role, const std::string& limit,
                    int timeout, const std::string& channels) {
    return "  <serviceProfile id=\"" + id + "\" name=\"" + id + "\" role=\"" + role +
           "\" version=\"2.0\" serviceLimit=\"" + limit + "\" serviceTimeout=\"" +
           std::to_string(timeout) + "\">\n    <transport type=\"TRANSPORT_WIFI\"/>\n" + channels +
           "  </serviceProfile>\n";
}

const std::string kEchoChannels =
    "    <serviceChannel id=\"101\" dataRate=\"low\" priority=\"low\" reliability=\"enable\"/>\n"
    "    <serviceChannel id=\"102\" dataRate=\"high\" priority=\"high\" reliability=\"enable\"/>\n";
const std::string kOneChannel = "    <serviceChannel id=\"1\"/>\n";

std::string profiles(const std::string& role) {
    return "<?xml version=\"1.0\"?>\n<resources>\n<application name=\"test\">\n" +
           profile("/test/echo", role, "any", 30, kEchoChannels) +
           profile("/test/slow", role, "any", 1, kOneChannel) +
           profile("/test/single", role, "ONE_ACCESSORY", 30, kOneChannel) +
           (role == "consumer" ? profile("/test/lonely", role, "any", 30, kOneChannel) : "") +
           "</application>\n</resources>\n";
}

}  // namespace

void installApp(const std::string& device, const std::string& appId, const std::string& role,
                bool privileged) {
    const std::string package = appId.substr(0, appId.find('.'));
    TempFolder folder;
    const std::string app = folder.path() + "/" + package;
    const std::string privilege =
        privileged ? "  <privilege name=\"http://kv-project.org/privilege/accessory\"/>\n" : "";
    makeAppFolder(app, package, appId,
                  privilege + "  <metadata key=\"AccessoryServicesLocation\" value=\"" +
                      kServiceFile + "\"/>\n");
    writeTextFile(app + "/" + kServiceFile, profiles(role));
    onDevice(device, [&] { Kv::Device::installApp(app); });
}

namespace {

std::string makeBase() {
    std::string pattern = testing::TempDir() + "kv-accessory-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    return pattern;
}

}  // namespace

void onDevice(const std::string& device, const std::function<void()>& action) {
    const char* previous = std::getenv("KV_DEVICE");
    const std::string saved = previous != nullptr ? previous : "";
    setenv("KV_DEVICE", device.c_str(), 1);
    try {
        action();
    } catch (...) {
        previous != nullptr ? setenv("KV_DEVICE", saved.c_str(), 1) : unsetenv("KV_DEVICE");
        throw;
    }
    previous != nullptr ? setenv("KV_DEVICE", saved.c_str(), 1) : unsetenv("KV_DEVICE");
}

DevicePair::DevicePair()
    : m_base(makeBase()), m_alpha(m_base + "/alpha"), m_beta(m_base + "/beta") {
    setenv("KV_ACCESSORYD", KV_ACCESSORYD_PATH, 1);
    Kv::Device::ensureLayout(m_alpha);
    Kv::Device::ensureLayout(m_beta);
    installApp(m_alpha, kConsumerApp, "consumer");
    installApp(m_beta, kProviderApp, "provider");
    installApp(m_beta, kSecondProviderApp, "provider");
}

// A daemon's log must show no finding of the sanitizers (when built with
// them): its leaks and errors are reported when it stops.
static void expectCleanLog(const std::string& device) {
    const std::string log = Kv::Device::readFile(device + "/accessoryd.log").value_or("");
    for (const char* finding :
         {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error"}) {
        EXPECT_EQ(log.find(finding), std::string::npos) << device << " daemon log:\n" << log;
    }
}

DevicePair::~DevicePair() {
    stopDaemon(m_beta);
    stopDaemon(m_alpha);
    expectCleanLog(m_alpha);
    expectCleanLog(m_beta);
    std::error_code ignored;
    fs::remove_all(m_base, ignored);
}

void DevicePair::start(const std::vector<std::string>& extra) {
    Kv::Accessory::pairFolders(m_alpha, m_beta);
    startAlpha(extra);
    startBeta(0, extra);
    if (!waitLinked(m_alpha) || !waitLinked(m_beta)) {
        throw std::runtime_error("the devices did not link");
    }
}

void DevicePair::startAlpha(const std::vector<std::string>& extra) {
    std::vector<std::string> arguments{"--listen", "127.0.0.1:0", "--name", "alpha"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    startDaemon(m_alpha, arguments);
    m_port = listeningPort(m_alpha);
}

void DevicePair::startBeta(unsigned short port, const std::vector<std::string>& extra) {
    std::vector<std::string> arguments{
        "--connect", "127.0.0.1:" + std::to_string(port != 0 ? port : m_port), "--name", "beta"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    startDaemon(m_beta, arguments);
}

void DevicePair::killDaemon(const std::string& device) {
    const std::optional<std::string> text = Kv::Device::readFile(device + "/accessoryd.pid");
    ASSERT_TRUE(text.has_value());
    const pid_t pid = static_cast<pid_t>(std::stol(*text));
    ::kill(pid, SIGKILL);
    while (Kv::Device::processRunning(pid)) {
        std::this_thread::sleep_for(milliseconds(5));
    }
    ::unlink((device + "/accessoryd.pid").c_str());
}

void DevicePair::setLink(const std::string& device, bool enabled) {
    wire::Request request;
    request.mutable_set_link()->set_enabled(enabled);
    control(device, request);
}

bool DevicePair::linked(const std::string& device) {
    wire::Request request;
    request.mutable_status();
    return control(device, request).attached();
}

bool DevicePair::waitLinked(const std::string& device, bool up, milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        if (linked(device) == up) {
            return true;
        }
        std::this_thread::sleep_for(milliseconds(20));
    }
    return false;
}

WireClient::WireClient(const std::string& device, const std::string& appId) {
    if (!appId.empty()) {
        onDevice(device, [&] { Kv::Device::registerRunningApp(getpid(), appId); });
    }
    m_connection = std::make_unique<DaemonConnection>(device + "/" + Kv::Device::kAccessorySocket);
    wire::Request hello;
    hello.mutable_hello()->set_version(kProtocolVersion);
    if (call(hello).result() != 0) {
        throw std::runtime_error("hello refused");
    }
}

WireClient::~WireClient() = default;

bool WireClient::readSome(Clock::time_point deadline) {
    if (m_closed || !m_connection->waitReadable(deadline)) {
        return false;
    }
    try {
        m_connection->readAvailable();
    } catch (const std::runtime_error&) {
        m_closed = true;
    }
    return true;
}

wire::Reply WireClient::call(wire::Request request) {
    const std::uint32_t serial = m_serial++;
    request.set_serial(serial);
    wire::ClientMessage message;
    *message.mutable_request() = request;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    m_connection->write(encodeFrame(message), deadline);
    for (;;) {
        while (auto received = m_connection->next()) {
            if (received->has_event()) {
                m_events.push_back(received->event());
            } else if (received->reply().serial() == serial) {
                return received->reply();
            }
        }
        if (!readSome(deadline) || m_closed) {
            throw std::runtime_error("no reply from the daemon");
        }
    }
}

std::optional<wire::Event> WireClient::waitEvent(
    const std::function<bool(const wire::Event&)>& match, milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        while (auto received = m_connection->next()) {
            if (received->has_event()) {
                m_events.push_back(received->event());
            }
        }
        for (auto event = m_events.begin(); event != m_events.end(); ++event) {
            if (match(*event)) {
                wire::Event found = *event;
                m_events.erase(event);
                return found;
            }
        }
        if (!readSome(deadline)) {
            return std::nullopt;
        }
    }
}

bool WireClient::waitClosed(milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (!m_closed && readSome(deadline)) {
        while (auto received = m_connection->next()) {
            if (received->has_event()) {
                m_events.push_back(received->event());
            }
        }
    }
    return m_closed;
}

std::uint32_t WireClient::registerAgent(const std::string& profileId) {
    wire::Request request;
    request.mutable_register_agent()->set_profile_id(profileId);
    if (call(request).result() != 0) {
        return 0;
    }
    auto confirm = waitEvent([](const wire::Event& event) { return event.has_register_confirm(); });
    return confirm && confirm->register_confirm().result() == 0
               ? confirm->register_confirm().agent_id()
               : 0;
}

std::vector<wire::PeerAgent> WireClient::findPeers(std::uint32_t agentId, int* endStatus) {
    wire::Request request;
    request.mutable_find_peers()->set_agent_id(agentId);
    EXPECT_EQ(call(request).result(), 0);
    std::vector<wire::PeerAgent> peers;
    for (;;) {
        auto event = waitEvent([](const wire::Event& event) { return event.has_peer_found(); });
        if (!event) {
            ADD_FAILURE() << "the search did not end";
            return peers;
        }
        if (event->peer_found().status() != 0) {
            if (endStatus != nullptr) {
                *endStatus = event->peer_found().status();
            }
            return peers;
        }
        peers.push_back(event->peer_found().peer());
    }
}

std::optional<wire::CreateConfirm> WireClient::connect(std::uint32_t agentId,
                                                       const wire::PeerAgent& peer) {
    wire::Request request;
    request.mutable_create_connection()->set_agent_id(agentId);
    *request.mutable_create_connection()->mutable_peer() = peer;
    EXPECT_EQ(call(request).result(), 0);
    auto event = waitEvent([](const wire::Event& event) { return event.has_create_confirm(); },
                           milliseconds(8000));
    return event ? std::optional<wire::CreateConfirm>(event->create_confirm()) : std::nullopt;
}

int WireClient::sendData(std::uint32_t connectionId, std::uint32_t channelId,
                         const std::string& data) {
    wire::Request request;
    request.mutable_send_data()->set_connection_id(connectionId);
    request.mutable_send_data()->set_channel_id(channelId);
    request.mutable_send_data()->set_data(data);
    return call(request).result();
}

bool WireClient::post(std::uint32_t connectionId, std::uint32_t channelId, std::string data,
                      milliseconds timeout) {
    wire::Request request;
    request.set_serial(m_serial++);
    request.mutable_send_data()->set_connection_id(connectionId);
    request.mutable_send_data()->set_channel_id(channelId);
    request.mutable_send_data()->set_data(std::move(data));
    request.mutable_send_data()->set_no_reply(true);
    wire::ClientMessage message;
    *message.mutable_request() = std::move(request);
    try {
        m_connection->write(encodeFrame(message), Clock::now() + timeout);
    } catch (const std::runtime_error&) {
        return false;
    }
    return true;
}

int WireClient::answer(std::uint32_t agentId, std::uint32_t connectionId, bool accept) {
    wire::Request request;
    auto* answer =
        accept ? request.mutable_accept_connection() : request.mutable_reject_connection();
    answer->set_agent_id(agentId);
    answer->set_connection_id(connectionId);
    return call(request).result();
}

AppProcess::AppProcess(const std::string& device, const std::string& appId,
                       const std::string& profileId) {
    int toChild[2];
    int toParent[2];
    if (::pipe(toChild) != 0 || ::pipe(toParent) != 0) {
        throw std::runtime_error("pipe failed");
    }
    m_pid = ::fork();
    if (m_pid == 0) {
        ::close(toChild[1]);
        ::close(toParent[0]);
        char ready = 0;
        try {
            WireClient client(device, appId);
            ready = client.registerAgent(profileId) != 0 ? 1 : 0;
            (void)!::write(toParent[1], &ready, 1);
            (void)!::read(toChild[0], &ready, 1);  // until the parent closes its end
        } catch (...) {
            (void)!::write(toParent[1], &ready, 1);
        }
        ::_exit(0);
    }
    ::close(toChild[0]);
    ::close(toParent[1]);
    m_pipe = toChild[1];
    char ready = 0;
    m_ready = ::read(toParent[0], &ready, 1) == 1 && ready == 1;
    ::close(toParent[0]);
}

AppProcess::~AppProcess() { kill(); }

void AppProcess::kill() {
    if (m_pid <= 0) {
        return;
    }
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
    ::close(m_pipe);
    m_pid = -1;
}

std::pair<std::uint32_t, std::uint32_t> openConnection(WireClient& consumer, WireClient& provider,
                                                       const std::string& profileId) {
    const std::uint32_t consumerAgent = consumer.registerAgent(profileId);
    const std::uint32_t providerAgent = provider.registerAgent(profileId);
    const std::vector<wire::PeerAgent> peers = consumer.findPeers(consumerAgent);
    EXPECT_EQ(peers.size(), 1u);
    if (peers.empty()) {
        return {0, 0};
    }
    wire::Request request;
    request.mutable_create_connection()->set_agent_id(consumerAgent);
    *request.mutable_create_connection()->mutable_peer() = peers.at(0);
    EXPECT_EQ(consumer.call(request).result(), 0);
    auto indication = provider.waitEvent(isConnectionRequest());
    EXPECT_TRUE(indication.has_value());
    if (!indication) {
        return {0, 0};
    }
    const std::uint32_t providerConnection = indication->connection_requested().connection_id();
    EXPECT_EQ(provider.answer(providerAgent, providerConnection, true), 0);
    auto confirm = consumer.waitEvent([](const wire::Event& e) { return e.has_create_confirm(); });
    EXPECT_TRUE(confirm.has_value());
    if (!confirm) {
        return {0, providerConnection};
    }
    EXPECT_EQ(confirm->create_confirm().status(), wire::CONNECTION_MADE);
    return {confirm->create_confirm().connection_id(), providerConnection};
}

std::function<bool(const wire::Event&)> isTerminated(std::uint32_t connectionId) {
    return [connectionId](const wire::Event& event) {
        return event.has_terminated() && event.terminated().connection_id() == connectionId;
    };
}

std::function<bool(const wire::Event&)> isDeviceStatus(int status) {
    return [status](const wire::Event& event) {
        return event.has_device_status() && event.device_status().status() == status;
    };
}

std::function<bool(const wire::Event&)> isConnectionRequest() {
    return [](const wire::Event& event) { return event.has_connection_requested(); };
}

std::function<bool(const wire::Event&)> isData(std::uint32_t connectionId) {
    return [connectionId](const wire::Event& event) {
        return event.has_data() && event.data().connection_id() == connectionId;
    };
}

}  // namespace KvTest
