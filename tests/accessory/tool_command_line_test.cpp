// The kv-accessory tool's command line: --device standing for the device
// folders, the process's device when none is given, the options each
// command refuses, and the status of a live pair as text and as JSON.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <kv-accessory/DeviceControl.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"

namespace KvTest {
namespace {

using google::protobuf::Struct;
using google::protobuf::Value;

ProcessResult tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KV_ACCESSORY_TOOL_PATH);
    return runProcess(arguments);
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Asks for the device's status until its text shows `line`; false after 8 s.
bool waitStatusLine(const std::string& device, const std::string& line) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(8);
    while (std::chrono::steady_clock::now() < deadline) {
        if (contains(tool({"status", "--device", device}).output, line)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

// The member `name` of a JSON object; a test failure and null when missing.
const Value& member(const Struct& object, const std::string& name) {
    static const Value missing;
    const auto found = object.fields().find(name);
    if (found == object.fields().end()) {
        ADD_FAILURE() << "no member \"" << name << "\"";
        return missing;
    }
    return found->second;
}

const Value& path(const Struct& object, const std::string& first, const std::string& second) {
    return member(member(object, first).struct_value(), second);
}

// The device's status as JSON, parsed; the test fails when it is not one
// JSON object on one line.
Struct statusJson(const std::string& device) {
    const ProcessResult result = tool({"status", device, "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    Struct status;
    EXPECT_TRUE(google::protobuf::util::JsonStringToMessage(result.output, &status).ok())
        << result.output;
    return status;
}

// Two device folders whose services are stopped at the end.
struct ToolDevices {
    ~ToolDevices() { tool({"stop", watch, phone}); }

    TempFolder folder;
    const std::string watch = folder.path() + "/watch";
    const std::string phone = folder.path() + "/phone";
};

TEST(ToolCommandLineTest, DeviceOptionStandsForTheDeviceFoldersOfEveryCommand) {
    const ToolDevices devices;
    const std::string& watch = devices.watch;
    const std::string& phone = devices.phone;
    ASSERT_EQ(tool({"create", "--device", watch, "--device", phone}).exitCode, 0);
    const ProcessResult paired = tool({"pair", "--device", watch, "--device", phone});
    ASSERT_EQ(paired.exitCode, 0) << paired.output;
    EXPECT_TRUE(contains(paired.output, "linked " + watch + " and " + phone)) << paired.output;
    EXPECT_TRUE(contains(tool({"identity", "--device", watch}).output, "paired with: "));
    EXPECT_TRUE(contains(tool({"status", "--device", watch}).output, "link: up"));

    ASSERT_EQ(tool({"detach", "--device", phone}).exitCode, 0);
    EXPECT_TRUE(waitStatusLine(phone, "link: down (disabled)"));
    ASSERT_EQ(tool({"attach", "--device", phone}).exitCode, 0);
    EXPECT_TRUE(waitStatusLine(phone, "link: up"));

    ASSERT_EQ(tool({"stop", "--device", watch, "--device", phone}).exitCode, 0);
    EXPECT_NE(tool({"status", "--device", watch}).exitCode, 0);
    ASSERT_EQ(tool({"start", "--device", watch}).exitCode, 0);
    ASSERT_EQ(tool({"start", phone}).exitCode, 0);
    EXPECT_TRUE(waitStatusLine(watch, "link: up"));
    EXPECT_EQ(tool({"stop", watch, "--device", phone}).exitCode, 0);
}

TEST(ToolCommandLineTest, ACommandOnOneDeviceTakesKvDeviceWhenGivenNone) {
    DevicePair devices;
    devices.start();
    ProcessResult status;
    onDevice(devices.alpha(), [&] { status = tool({"status"}); });
    EXPECT_EQ(status.exitCode, 0) << status.output;
    EXPECT_TRUE(contains(status.output, "device: alpha\nlink: up")) << status.output;
}

TEST(ToolCommandLineTest, OptionsAndFoldersThatACommandDoesNotTakeAreUsageErrors) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"status", "/a", "--insecure"}, "--insecure does not go with status"},
        {{"status", "/a", "/b"}, "status takes one device folder, not 2"},
        {{"detach", "/a", "--json"}, "--json does not go with detach"},
        {{"pair", "/a"}, "pair needs 2 device folders"},
        {{"pair", "/a", "/b", "--listen", "127.0.0.1:0"},
         "pair --listen or --connect takes one device folder, not 2"},
        {{"start", "/a", "--listen", "h:1", "--connect", "h:2"},
         "give one of --listen and --connect"},
        {{"pair", "/a", "/b", "--link-profile", "fast"},
         "unknown link profile 'fast' (unlimited|wifi|usb|bt|ble)"},
        {{"stall", "/a"}, "stall needs --seconds"},
        {{"stall", "/a", "--seconds", "x"},
         "--seconds takes a whole number of at least 1, not 'x'"},
        {{"drop", "/a", "--seconds", "3"}, "--seconds does not go with drop"},
        {{"drop", "/a", "--after-messages", "3"}, "--after-messages needs --channel"},
        {{"detach", "/a", "--channel", "3"}, "--channel goes with --after-messages"},
        {{"drop", "/a", "--after-messages", "3", "--channel", "1", "--after-file-bytes", "5"},
         "give one of --after-file-bytes and --after-messages"},
        {{"drop", "/a", "--after-file-bytes", "0"},
         "--after-file-bytes takes a whole number of at least 1, not '0'"},
        {{"storage", "/a"}, "storage needs --free BYTES or --unlimited"},
        {{"storage", "/a", "--free", "5", "--unlimited"}, "give one of --free and --unlimited"},
        {{"launch", "/a"}, "unknown command 'launch'"},
        {{}, "no command"}};
    for (const auto& [arguments, problem] : cases) {
        const ProcessResult result = tool(arguments);
        EXPECT_EQ(result.exitCode, 2) << result.output;
        EXPECT_EQ(result.output, "kv-accessory: " + problem + "; try 'kv-accessory --help'\n");
    }
}

// A command that looks at or acts on a device names a folder that is not
// one (a mistyped path) and makes nothing there; only create, pair and start
// make a device.
TEST(ToolCommandLineTest, ACommandOnAFolderThatIsNoDeviceNamesItAndMakesNothing) {
    const ToolDevices devices;
    const std::string typo = devices.watch + "-typo";
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"status", typo},
                                               {"status", typo, "--json"},
                                               {"identity", typo},
                                               {"unpair", typo},
                                               {"detach", typo},
                                               {"attach", typo},
                                               {"stall", typo, "--seconds", "1"},
                                               {"storage", typo, "--free", "10"}}) {
        const ProcessResult result = tool(command);
        EXPECT_EQ(result.exitCode, 1) << command[0];
        EXPECT_TRUE(contains(result.output, "kv-accessory: no device at " + typo)) << result.output;
        EXPECT_FALSE(std::filesystem::exists(typo)) << command[0];
    }
    const ProcessResult stop = tool({"stop", typo});
    EXPECT_TRUE(contains(stop.output, "kv-accessory: no device at " + typo)) << stop.output;
    EXPECT_FALSE(std::filesystem::exists(typo));

    ASSERT_EQ(tool({"create", devices.watch, devices.phone}).exitCode, 0);
    const ProcessResult identity = tool({"identity", devices.watch});
    EXPECT_EQ(identity.exitCode, 0) << identity.output;
    EXPECT_TRUE(contains(identity.output, "paired with: nobody")) << identity.output;
}

// A service that can't listen for the other device names the address and
// why, through the tool too, and leaves no socket or pid file behind: the
// next start on a free address just works.
TEST(ToolCommandLineTest, AServiceThatCannotListenNamesTheAddressAndLeavesNothingBehind) {
    const ToolDevices devices;
    ASSERT_EQ(tool({"create", devices.watch, devices.phone}).exitCode, 0);
    const int taken = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(taken, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ASSERT_EQ(::bind(taken, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(taken, 1), 0);
    ASSERT_EQ(::getsockname(taken, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const std::string busy = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));

    const ProcessResult start = tool({"start", devices.watch, "--listen", busy});
    ::close(taken);
    EXPECT_EQ(start.exitCode, 1) << start.output;
    EXPECT_TRUE(contains(start.output, "the service of " + devices.watch +
                                           " failed: cannot listen for the other device on " +
                                           busy + ": Address already in use"))
        << start.output;
    EXPECT_FALSE(std::filesystem::exists(devices.watch + "/accessory.sock"));
    EXPECT_FALSE(std::filesystem::exists(devices.watch + "/accessoryd.pid"));

    const ProcessResult again = tool({"start", devices.watch, "--listen", "127.0.0.1:0"});
    EXPECT_EQ(again.exitCode, 0) << again.output;
}

// Starts "kv-accessory start DEVICE --foreground" as a child of the test,
// its output into `log`.
pid_t startInForeground(const std::string& device, const std::string& log) {
    const pid_t child = ::fork();
    if (child == 0) {
        const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(out, STDERR_FILENO);
        ::execl(KV_ACCESSORY_TOOL_PATH, KV_ACCESSORY_TOOL_PATH, "start", device.c_str(),
                "--foreground", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    return child;
}

// start --foreground, as systemd runs a device's service: the tool becomes
// the daemon (the very process that was started, with its output), on the
// link it was last started with; a second start is refused while it runs,
// and SIGTERM ends it cleanly.
TEST(ToolCommandLineTest, AForegroundStartBecomesTheDaemonOnTheRememberedLink) {
    const ToolDevices devices;
    ASSERT_EQ(tool({"create", devices.watch, devices.phone}).exitCode, 0);
    ASSERT_EQ(tool({"pair", devices.watch, devices.phone}).exitCode, 0);
    ASSERT_EQ(tool({"stop", devices.watch}).exitCode, 0);

    const std::string log = devices.folder.path() + "/foreground.log";
    const pid_t foreground = startInForeground(devices.watch, log);
    ASSERT_GT(foreground, 0);
    const bool linked = waitStatusLine(devices.watch, "link: up");
    std::ifstream pidFile(devices.watch + "/accessoryd.pid");
    pid_t daemon = 0;
    pidFile >> daemon;
    const ProcessResult second = tool({"start", devices.watch, "--foreground"});
    ::kill(foreground, SIGTERM);
    int status = 0;
    ASSERT_EQ(::waitpid(foreground, &status, 0), foreground);

    EXPECT_TRUE(linked);
    EXPECT_EQ(daemon, foreground) << "the daemon is not the process that was started";
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_TRUE(contains(second.output, "the service of " + devices.watch + " already runs"))
        << second.output;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    std::ifstream written(log);
    const std::string output((std::istreambuf_iterator<char>(written)),
                             std::istreambuf_iterator<char>());
    EXPECT_TRUE(contains(output, "accessory service of watch ready")) << output;
    EXPECT_FALSE(std::filesystem::exists(devices.watch + "/accessoryd.pid"));
}

// A live pair: alpha's consumer connected to beta's provider, and a file
// that alpha offers and beta has not answered yet.
class ToolStatusTest : public testing::Test {
protected:
    static constexpr std::size_t kFileSize = 12345;
    static constexpr char kFilePath[] = "/opt/usr/media/Documents/report.bin";

    void SetUp() override {
        devices.start();
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
        provider = std::make_unique<WireClient>(devices.beta(), kProviderApp);
        connection = openConnection(*consumer, *provider, "/test/echo").first;
        consumerAgent = consumer->registerAgent("/test/echo");
        const std::vector<wire::PeerAgent> peers = consumer->findPeers(consumerAgent);
        ASSERT_EQ(peers.size(), 1u);
        peer = peers[0];
        offerFile();
    }

    void offerFile() {
        writeTextFile(devices.alpha() + "/fs" + kFilePath, std::string(kFileSize, 'x'));
        wire::Request request;
        request.mutable_push_file()->set_agent_id(consumerAgent);
        *request.mutable_push_file()->mutable_peer() = peer;
        request.mutable_push_file()->set_path(kFilePath);
        const wire::Reply reply = consumer->call(request);
        ASSERT_EQ(reply.result(), 0);
        transfer = reply.value();
        ASSERT_TRUE(provider->waitEvent([](const wire::Event& e) { return e.has_file_offered(); })
                        .has_value());
    }

    DevicePair devices;
    std::unique_ptr<WireClient> consumer;
    std::unique_ptr<WireClient> provider;
    std::uint32_t connection = 0;
    std::uint32_t consumerAgent = 0;
    wire::PeerAgent peer;
    int transfer = 0;
};

TEST_F(ToolStatusTest, JsonHoldsTheLinkAgentsConnectionsAndTransfers) {
    const Struct alpha = statusJson(devices.alpha());
    EXPECT_EQ(member(alpha, "device").string_value(), "alpha");
    EXPECT_EQ(path(alpha, "link", "state").string_value(), "up");
    EXPECT_TRUE(path(alpha, "link", "secure").bool_value());
    EXPECT_EQ(path(alpha, "link", "security").string_value(), "tls");
    EXPECT_EQ(path(alpha, "link", "peer").string_value(), "beta");
    EXPECT_GE(member(alpha, "sessions").number_value(), 2);
#if !defined(KV_SANITIZED)  // whose allocator keeps no malloc statistics
    EXPECT_GT(member(alpha, "heap_in_use").number_value(), 0);
#endif
    EXPECT_EQ(member(alpha, "queued_for_apps").kind_case(), Value::kNumberValue);
    EXPECT_EQ(member(alpha, "queued_for_link").kind_case(), Value::kNumberValue);

    const auto& agents = member(alpha, "agents").list_value().values();
    ASSERT_EQ(agents.size(), 1);
    EXPECT_EQ(member(agents[0].struct_value(), "id").number_value(), consumerAgent);
    EXPECT_EQ(member(agents[0].struct_value(), "app").string_value(), kConsumerApp);
    EXPECT_EQ(member(agents[0].struct_value(), "profile").string_value(), "/test/echo");
    EXPECT_EQ(member(agents[0].struct_value(), "role").string_value(), "consumer");

    const auto& connections = member(alpha, "connections").list_value().values();
    ASSERT_EQ(connections.size(), 1);
    const Struct& open = connections[0].struct_value();
    EXPECT_EQ(member(open, "id").number_value(), connection);
    EXPECT_EQ(member(open, "state").string_value(), "open");
    EXPECT_EQ(path(open, "peer", "device").string_value(), "beta");
    EXPECT_EQ(path(open, "peer", "agent").number_value(), peer.peer_agent_id());

    const auto& transfers = member(alpha, "transfers").list_value().values();
    ASSERT_EQ(transfers.size(), 1);
    const Struct& sending = transfers[0].struct_value();
    EXPECT_EQ(member(sending, "id").number_value(), transfer);
    EXPECT_EQ(member(sending, "direction").string_value(), "sending");
    EXPECT_EQ(member(sending, "state").string_value(), "offered");
    EXPECT_EQ(member(sending, "path").string_value(), kFilePath);
    EXPECT_EQ(member(sending, "size").number_value(), kFileSize);
    EXPECT_EQ(member(sending, "done").number_value(), 0);
    EXPECT_EQ(member(sending, "progress").number_value(), 0);
}

TEST_F(ToolStatusTest, JsonOfTheReceivingSideShowsTheOfferAndTheProvider) {
    const Struct beta = statusJson(devices.beta());
    EXPECT_EQ(path(beta, "link", "peer").string_value(), "alpha");
    const auto& agents = member(beta, "agents").list_value().values();
    ASSERT_EQ(agents.size(), 1);
    EXPECT_EQ(member(agents[0].struct_value(), "role").string_value(), "provider");
    const auto& transfers = member(beta, "transfers").list_value().values();
    ASSERT_EQ(transfers.size(), 1);
    EXPECT_EQ(member(transfers[0].struct_value(), "direction").string_value(), "receiving");
    EXPECT_EQ(member(transfers[0].struct_value(), "size").number_value(), kFileSize);
}

TEST_F(ToolStatusTest, TextShowsALineForEachAgentConnectionAndTransfer) {
    const ProcessResult status = tool({"status", devices.alpha()});
    ASSERT_EQ(status.exitCode, 0) << status.output;
    const std::string agent = std::to_string(consumerAgent);
    EXPECT_TRUE(contains(status.output, "agents: 1\n  agent " + agent + ": " + kConsumerApp +
                                            ", /test/echo (consumer)\n"))
        << status.output;
    EXPECT_TRUE(contains(status.output, "connections: 1\n  connection " +
                                            std::to_string(connection) + ": agent " + agent +
                                            " with " + peer.app_name() + " on beta (agent " +
                                            std::to_string(peer.peer_agent_id()) + "), open\n"))
        << status.output;
    EXPECT_TRUE(contains(status.output, "transfers: 1\n  transfer " + std::to_string(transfer) +
                                            ": agent " + agent + " sending " + kFilePath +
                                            ", 0 of 12345 bytes (0%), offered\n"))
        << status.output;
    EXPECT_TRUE(contains(status.output, "heap in use: ")) << status.output;
}

TEST_F(ToolStatusTest, TheDaemonsReplyCarriesTheSameReportAsText) {
    wire::Request request;
    request.mutable_status();
    const wire::Reply reply = Kv::Accessory::control(devices.alpha(), request);
    ASSERT_TRUE(reply.has_status_report());
    EXPECT_EQ(reply.status_report().agents_size(), 1);
    EXPECT_EQ(reply.status_report().transfers(0).size(), kFileSize);
    EXPECT_TRUE(contains(reply.status_text(), "transfers: 1\n  transfer ")) << reply.status_text();
}

}  // namespace
}  // namespace KvTest
