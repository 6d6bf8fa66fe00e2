// The client library in an app process: an app on device beta uses the real
// library while a scripted app on device alpha speaks the wire protocol.
#include <MainLoopRunner.h>
#include <gtest/gtest.h>
#include <kv-accessory/LinkProfiles.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/FileUtil.h>
#include <kvp-client-stub-api.h>

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"
#include "Limits.h"

namespace KvTest {
namespace {

// What the library told the app, in order.
struct Recorder {
    bool insideCall = false;
    bool calledInsideCall = false;
    std::vector<std::string> log;
    unsigned int agentId = 0;
    std::vector<unsigned int> indicated;
    std::vector<std::pair<unsigned int, int>> terminated;
    std::vector<std::pair<int, int>> deviceStatus;
    std::vector<std::string> data;
    int acceptResult = -100;
    std::vector<std::string> offered;
    std::vector<int> progress;
    std::vector<std::pair<int, int>> received;
    std::vector<std::pair<unsigned int, unsigned short>> spaceAvailable;
    std::vector<std::pair<unsigned int, int>> errors;
};

Recorder recorder;

void note(const std::string& what) {
    recorder.calledInsideCall = recorder.calledInsideCall || recorder.insideCall;
    recorder.log.push_back(what);
}

void onRegister(int result, unsigned int agentId) {
    note("register " + std::to_string(result));
    if (result == 0) {
        recorder.agentId = agentId;
    }
}

void onData(unsigned int, unsigned short channelId, unsigned int length, const char* data) {
    note("data " + std::to_string(channelId));
    recorder.data.emplace_back(data, length);
}

void onIndication(unsigned int agentId, unsigned int connectionId, const kvp_peer_agent_t* peer) {
    note(std::string("indication from ") + peer->appName);
    recorder.indicated.push_back(connectionId);
    recorder.acceptResult = acceptServiceConnection(agentId, connectionId, peer);
}

void onTermination(unsigned int connectionId, int reason) {
    note("terminated");
    recorder.terminated.emplace_back(connectionId, reason);
}

void onDeviceStatus(int type, int status) {
    note("device " + std::to_string(status));
    recorder.deviceStatus.emplace_back(type, status);
}

void onSendFile(int transactionId, const char* fileName, unsigned int) {
    note("file offered");
    recorder.offered.push_back(fileName);
    char path[KVP_PATH_BUFFER_SIZE] = "/opt/usr/media/Downloads/";
    std::strncat(path, fileName, sizeof(path) - std::strlen(path) - 1);
    EXPECT_EQ(receiveFile(transactionId, path, 1), KVP_SUCCESS);
}

void onFileProgress(int, int progress) { recorder.progress.push_back(progress); }

void onReceiveComplete(int transactionId, const char*, int status) {
    note("file received");
    recorder.received.emplace_back(transactionId, status);
}

void onSpaceAvailable(unsigned int connectionId, unsigned short channelId) {
    note("space available " + std::to_string(connectionId) + " " + std::to_string(channelId));
    recorder.spaceAvailable.emplace_back(connectionId, channelId);
}

void onError(unsigned int value, int errorCode) {
    note("error " + std::to_string(value) + " " + std::to_string(errorCode));
    recorder.errors.emplace_back(value, errorCode);
}

kvp_ft_notifications_t fileTable() {
    kvp_ft_notifications_t notifications;
    std::memset(&notifications, 0, sizeof(notifications));
    notifications.onSendFile = onSendFile;
    notifications.onReceiveComplete = onReceiveComplete;
    notifications.onFileProgress = onFileProgress;
    return notifications;
}

kvp_notifications_t table() {
    kvp_notifications_t notifications;
    std::memset(&notifications, 0, sizeof(notifications));
    notifications.onRegisterServiceAgentConfirm = onRegister;
    notifications.onDataIndication = onData;
    notifications.onServiceConnectionIndication = onIndication;
    notifications.onServiceTerminationIndication = onTermination;
    notifications.onDeviceStatus = onDeviceStatus;
    notifications.onSpaceAvailable = onSpaceAvailable;
    notifications.onError = onError;
    return notifications;
}

// Runs a request as the app would, noting that callbacks must not come now.
template <typename Call>
int request(Call call) {
    recorder.insideCall = true;
    const int result = call();
    recorder.insideCall = false;
    return result;
}

class ClientLibraryTest : public testing::Test {
protected:
    static void SetUpTestSuite() { startDevices({}); }

    // A fresh pair, its daemons started with `extra`, this process the
    // provider app of beta with nothing known yet.
    static void startDevices(const std::vector<std::string>& extra) {
        recorder = Recorder();
        devices = new DevicePair();
        devices->start(extra);
        // This process is the provider app of beta, and uses the library there.
        setenv("KV_DEVICE", devices->beta().c_str(), 1);
        Kv::Device::registerRunningApp(getpid(), kProviderApp);
        ASSERT_EQ(registerNotifications(table()), KVP_SUCCESS);
        registerFTNotifications(fileTable());
        // A session with an earlier pair's service is noticed lost, and the
        // library finds this one's.
        ASSERT_TRUE(runMainLoopUntil([] { return isKvpConnected() == 1; }));
    }

    static void TearDownTestSuite() {
        deregisterNotifications();
        delete devices;
        devices = nullptr;
        unsetenv("KV_DEVICE");
    }

    static unsigned int registeredAgent() {
        if (recorder.agentId == 0) {
            char profile[] = "/test/echo";
            EXPECT_EQ(request([&] { return getRegisteredServiceAgent(profile, 0); }), 0);
            EXPECT_TRUE(runMainLoopUntil([] { return recorder.agentId != 0; }));
        }
        return recorder.agentId;
    }

    // The scripted consumer asks the library's app for a connection, which
    // the app accepts from its indication; returns both connection ids.
    std::pair<std::uint32_t, std::uint32_t> connectFrom(WireClient& consumer) {
        registeredAgent();
        const std::uint32_t agent = consumer.registerAgent("/test/echo");
        const auto peers = consumer.findPeers(agent);
        EXPECT_EQ(peers.size(), 1u);
        const std::size_t before = recorder.indicated.size();
        wire::Request create;
        create.mutable_create_connection()->set_agent_id(agent);
        *create.mutable_create_connection()->mutable_peer() = peers.at(0);
        EXPECT_EQ(consumer.call(create).result(), 0);
        EXPECT_TRUE(runMainLoopUntil([&] { return recorder.indicated.size() > before; }));
        EXPECT_EQ(recorder.acceptResult, 0);
        auto confirm =
            consumer.waitEvent([](const wire::Event& e) { return e.has_create_confirm(); });
        EXPECT_TRUE(confirm.has_value());
        EXPECT_EQ(confirm->create_confirm().status(), wire::CONNECTION_MADE);
        return {confirm->create_confirm().connection_id(), recorder.indicated.back()};
    }

    static DevicePair* devices;
};

DevicePair* ClientLibraryTest::devices = nullptr;

TEST_F(ClientLibraryTest, ConfirmsARegistrationOnTheMainLoopAfterTheCall) {
    EXPECT_EQ(isKvpConnected(), 1);
    char profile[] = "/test/echo";
    EXPECT_EQ(request([&] { return getRegisteredServiceAgent(profile, 0); }), 0);
    EXPECT_TRUE(recorder.log.empty() || recorder.log.back() != "register 0");
    ASSERT_TRUE(runMainLoopUntil([] { return recorder.agentId != 0; }));
    EXPECT_FALSE(recorder.calledInsideCall);
}

TEST_F(ClientLibraryTest, RejectsBadArguments) {
    EXPECT_EQ(getRegisteredServiceAgent(nullptr, 0), KVP_ERROR_INVALID);
    EXPECT_EQ(createServiceConnection(registeredAgent(), nullptr), KVP_ERROR_INVALID);
    EXPECT_EQ(findPeerAgent(424242), KVP_ERROR_INVALID);
    EXPECT_EQ(sendData(424242, 101, 1, "x"), KVP_ERROR_INVALID);
    // A request for an agent the service does not know fails as a whole: no
    // confirmation would ever come for it.
    kvp_peer_agent_t peer{};
    EXPECT_EQ(createServiceConnection(424242, &peer), KVP_ERROR_GENERAL);
    // A connection that is not there is ended already.
    EXPECT_EQ(terminateServiceConnection(424242), KVP_SUCCESS);
    kvp_peer_accessory_t accessory;
    EXPECT_EQ(getPeerAccessory(424242, &accessory), KVP_ERROR_INVALID);
    EXPECT_EQ(getPeerAccessory(1, nullptr), KVP_ERROR_INVALID);
}

TEST_F(ClientLibraryTest, CarriesDataBothWaysAndEndsTheConnectionOnBothSides) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    const auto connection = connectFrom(consumer);
    const std::uint32_t remote = connection.first;
    const std::uint32_t local = connection.second;
    const std::string withZero("ab\0cd", 5);
    ASSERT_EQ(consumer.sendData(remote, 102, withZero), 0);
    ASSERT_TRUE(runMainLoopUntil([] { return !recorder.data.empty(); }));
    EXPECT_EQ(recorder.data.back(), withZero);

    const std::string reply(std::size_t{1024} * 1024, 'r');
    EXPECT_EQ(request([&] {
                  return sendData(local, 101, static_cast<unsigned int>(reply.size()),
                                  reply.data());
              }),
              0);
    auto event = consumer.waitEvent(isData(remote));
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->data().data(), reply);

    const std::size_t before = recorder.terminated.size();
    EXPECT_EQ(request([&] { return terminateServiceConnection(local); }), 0);
    ASSERT_TRUE(runMainLoopUntil([&] { return recorder.terminated.size() > before; }));
    EXPECT_EQ(recorder.terminated.back(), std::make_pair(static_cast<unsigned int>(local), 0));
    EXPECT_TRUE(consumer.waitEvent(isTerminated(remote)).has_value());
    EXPECT_FALSE(recorder.calledInsideCall);
}

// The bound of one send holds at the library: exactly that much crosses
// whole, a byte more is refused without anything sent, and the connection
// goes on.
TEST_F(ClientLibraryTest, CarriesTheLargestDataAndRefusesAByteMore) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    const auto connection = connectFrom(consumer);
    const std::uint32_t remote = connection.first;
    const std::uint32_t local = connection.second;
    const std::string largest(KVP_MAX_DATA_SIZE + 1, 'm');
    EXPECT_EQ(sendData(local, 101, KVP_MAX_DATA_SIZE + 1, largest.data()), KVP_ERROR_INVALID);
    EXPECT_EQ(sendSecureData(local, 101, KVP_MAX_DATA_SIZE + 1, largest.data()), KVP_ERROR_INVALID);
    ASSERT_EQ(request([&] { return sendData(local, 101, KVP_MAX_DATA_SIZE, largest.data()); }),
              KVP_SUCCESS);
    ASSERT_EQ(sendData(local, 102, 4, "next"), KVP_SUCCESS);
    auto event = consumer.waitEvent(isData(remote));
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->data().data(), largest.substr(0, KVP_MAX_DATA_SIZE));
    event = consumer.waitEvent(isData(remote));
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->data().data(), "next");
}

TEST_F(ClientLibraryTest, SendsOnAnOpenConnectionWithoutWaitingForTheService) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    const auto [remote, local] = connectFrom(consumer);
    // With the service stopped, a send that waited for its answer would fail
    // after the reply timeout; this one is taken as soon as the service runs.
    const pid_t service = static_cast<pid_t>(
        std::stol(Kv::Device::readFile(devices->beta() + "/accessoryd.pid").value_or("0")));
    ASSERT_GT(service, 0);
    ASSERT_EQ(::kill(service, SIGSTOP), 0);
    const int stoppedResult = sendData(local, 101, 5, "first");
    ::kill(service, SIGCONT);
    EXPECT_EQ(stoppedResult, KVP_SUCCESS);

    // Many sends in a row arrive whole and in order on their channel. Its
    // priority is higher than the first send's channel, whose message they
    // may overtake: order holds within a channel.
    for (int i = 0; i < 500; ++i) {
        const std::string text = "message " + std::to_string(i);
        ASSERT_EQ(sendData(local, 102, static_cast<unsigned int>(text.size()), text.data()),
                  KVP_SUCCESS);
    }
    std::vector<std::string> onLowChannel;
    std::vector<std::string> onHighChannel;
    for (int i = 0; i < 501; ++i) {
        auto event = consumer.waitEvent(isData(remote));
        ASSERT_TRUE(event.has_value()) << i;
        (event->data().channel_id() == 101 ? onLowChannel : onHighChannel)
            .push_back(event->data().data());
    }
    EXPECT_EQ(onLowChannel, std::vector<std::string>{"first"});
    ASSERT_EQ(onHighChannel.size(), 500u);
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(onHighChannel[static_cast<std::size_t>(i)], "message " + std::to_string(i));
    }
    // What the service would refuse still waits for its verdict: a channel
    // the agent does not have.
    EXPECT_EQ(sendData(local, 7, 1, "x"), KVP_ERROR_INVALID);
    EXPECT_EQ(terminateServiceConnection(local), KVP_SUCCESS);
    ASSERT_TRUE(consumer.waitEvent(isTerminated(remote)).has_value());
    EXPECT_NE(sendData(local, 101, 1, "x"), KVP_SUCCESS);
}

TEST_F(ClientLibraryTest, ReceivesAnOfferedFileAtTheChosenPath) {
    registeredAgent();
    WireClient consumer(devices->alpha(), kConsumerApp);
    const std::uint32_t agent = consumer.registerAgent("/test/echo");
    const auto peers = consumer.findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    const std::string content(200000, 'f');
    writeTextFile(devices->alpha() + "/fs/opt/usr/media/Documents/notes.txt", content);
    wire::Request push;
    push.mutable_push_file()->set_agent_id(agent);
    *push.mutable_push_file()->mutable_peer() = peers[0];
    push.mutable_push_file()->set_path("/opt/usr/media/Documents/notes.txt");
    ASSERT_EQ(consumer.call(push).result(), 0);
    ASSERT_TRUE(runMainLoopUntil([] { return !recorder.received.empty(); }));
    EXPECT_EQ(recorder.offered, std::vector<std::string>{"notes.txt"});
    EXPECT_EQ(recorder.received.back().second, 0);
    ASSERT_FALSE(recorder.progress.empty());
    EXPECT_EQ(recorder.progress.back(), 100);
    EXPECT_EQ(Kv::Device::readFile(devices->beta() + "/fs/opt/usr/media/Downloads/notes.txt"),
              content);
    char missing[KVP_PATH_BUFFER_SIZE] = "/opt/usr/media/Documents/none";
    EXPECT_EQ(pushFile(missing, nullptr, recorder.agentId), -1);
    EXPECT_EQ(cancelFile(424242), KVP_ERROR_INVALID);
}

TEST_F(ClientLibraryTest, ALostServiceIsADetachAndItsReturnAnAttach) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    connectFrom(consumer);
    recorder.deviceStatus.clear();
    const std::size_t before = recorder.terminated.size();
    devices->killBeta();

    // The detach ends the app's connections; they are not reported one by one.
    ASSERT_TRUE(runMainLoopUntil([] { return !recorder.deviceStatus.empty(); }));
    EXPECT_EQ(recorder.deviceStatus.front(), std::make_pair(32, 0));
    EXPECT_EQ(recorder.terminated.size(), before);
    EXPECT_EQ(isKvpConnected(), 0);
    EXPECT_TRUE(consumer.waitEvent(isDeviceStatus(wire::DEVICE_DETACHED)).has_value());

    devices->startBeta();
    ASSERT_TRUE(runMainLoopUntil([] { return recorder.deviceStatus.size() >= 2; },
                                 std::chrono::seconds(10)));
    EXPECT_EQ(recorder.deviceStatus.back(), std::make_pair(32, 1));
    EXPECT_EQ(isKvpConnected(), 1);
    recorder.agentId = 0;  // the new service knows no agent of this app
    EXPECT_NE(registeredAgent(), 0u);
}

// The same library over a slow link (the "ble" profile): about a second of the
// link's bandwidth fits in a channel's queue.
class ClientLibraryOnASlowLinkTest : public ClientLibraryTest {
protected:
    static void SetUpTestSuite() { startDevices({"--link-profile", "ble"}); }

    static const Kv::Accessory::LinkProfile& link() {
        return *Kv::Accessory::findLinkProfile("ble");
    }

    // Sends blocks of `size` bytes (the largest by default) on `channel`
    // until one is refused; how many were taken (at most `limit`).
    static std::size_t fillChannel(unsigned int connectionId, unsigned short channel,
                                   std::size_t limit = 1000, std::size_t size = 0) {
        const std::string block(size > 0 ? size : link().maxDataSize, 'b');
        std::size_t taken = 0;
        while (taken < limit && (lastRefusal = sendData(connectionId, channel,
                                                        static_cast<unsigned int>(block.size()),
                                                        block.data())) == KVP_SUCCESS) {
            ++taken;
        }
        return taken;
    }

    static inline int lastRefusal = KVP_SUCCESS;

    static void attachAgain() {
        devices->setLink(devices->beta(), true);
        ASSERT_TRUE(devices->waitLinked(devices->alpha()));
        ASSERT_TRUE(devices->waitLinked(devices->beta()));
        ASSERT_TRUE(runMainLoopUntil([] { return recorder.deviceStatus.back().second == 1; },
                                     std::chrono::seconds(10)));
        recorder.agentId = 0;  // the agents went with the detach
    }
};

TEST_F(ClientLibraryOnASlowLinkTest, AFullChannelRefusesSendsUntilTheAppIsToldOfRoom) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    const auto [remote, local] = connectFrom(consumer);
    const std::size_t taken = fillChannel(local, 101);
    ASSERT_LT(taken, 1000u) << "no send was refused";
    EXPECT_GE(taken * link().maxDataSize, link().channelQueueBytes());
    // The app learns that the channel is full within what was on its way to
    // the service (the sockets' buffers), even in a burst that never goes
    // back to the main loop.
    EXPECT_LE(taken * link().maxDataSize, link().channelQueueBytes() + std::size_t{1024} * 1024);
    EXPECT_TRUE(recorder.spaceAvailable.empty());

    // What the app sent before it learnt that the channel was full drains
    // at the link's pace first.
    const auto drain = std::chrono::seconds(taken * link().maxDataSize / link().bandwidth);
    ASSERT_TRUE(runMainLoopUntil([] { return !recorder.spaceAvailable.empty(); },
                                 drain + std::chrono::seconds(5)))
        << taken << " sends taken, then one refused with " << lastRefusal;
    EXPECT_EQ(recorder.spaceAvailable.front(),
              std::make_pair(static_cast<unsigned int>(local), static_cast<unsigned short>(101)));
    EXPECT_EQ(recorder.spaceAvailable.size(), 1u);
    EXPECT_FALSE(recorder.calledInsideCall);
    ASSERT_EQ(sendData(local, 101, 10, "after room"), KVP_SUCCESS);

    // Everything taken arrives, in order; nothing refused does.
    for (std::size_t i = 0; i < taken; ++i) {
        auto event = consumer.waitEvent(isData(remote));
        ASSERT_TRUE(event.has_value()) << i;
        ASSERT_EQ(event->data().data().size(), link().maxDataSize) << i;
    }
    auto last = consumer.waitEvent(isData(remote));
    ASSERT_TRUE(last.has_value());
    EXPECT_EQ(last->data().data(), "after room");
    EXPECT_EQ(terminateServiceConnection(local), KVP_SUCCESS);
    ASSERT_TRUE(consumer.waitEvent(isTerminated(remote)).has_value());
}

// A burst of small messages, which takes in the service's news only every
// few kilobytes, still learns soon that the channel is full: within what the
// link carried meanwhile and what was on its way to the service.
TEST_F(ClientLibraryOnASlowLinkTest, ABurstOfSmallMessagesLearnsSoonThatTheChannelIsFull) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    const auto [remote, local] = connectFrom(consumer);
    constexpr std::size_t kSmall = 64;
    constexpr std::size_t kLimit = 200'000;
    const auto started = std::chrono::steady_clock::now();
    const std::size_t taken = fillChannel(local, 101, kLimit, kSmall);
    const auto burst = std::chrono::duration<double>(std::chrono::steady_clock::now() - started);
    ASSERT_LT(taken, kLimit) << "no send was refused";
    EXPECT_GE(taken * kSmall, link().channelQueueBytes());
    const auto carried =
        static_cast<std::size_t>(burst.count() * static_cast<double>(link().bandwidth));
    // What can be on its way to the service: the socket's buffer (a couple of
    // hundred kilobytes), what the service has read but not yet handled, and
    // what the app posts between two looks at the service's news.
    constexpr std::size_t kOnTheWay = std::size_t{320} * 1024;
    EXPECT_LE(taken * kSmall, link().channelQueueBytes() + carried + kOnTheWay)
        << taken << " sends taken in " << burst.count() << " s";

    const auto drain = std::chrono::seconds(taken * kSmall / link().bandwidth);
    ASSERT_TRUE(runMainLoopUntil([] { return !recorder.spaceAvailable.empty(); },
                                 drain + std::chrono::seconds(5)));
    recorder.spaceAvailable.clear();
    EXPECT_EQ(terminateServiceConnection(local), KVP_SUCCESS);
    ASSERT_TRUE(consumer.waitEvent(isTerminated(remote)).has_value());
}

TEST_F(ClientLibraryOnASlowLinkTest, DataThatNeverLeftIsReportedBeforeTheDetach) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    const auto [remote, local] = connectFrom(consumer);
    recorder.errors.clear();
    recorder.log.clear();
    ASSERT_GT(fillChannel(local, 102), 2u);
    devices->setLink(devices->beta(), false);

    ASSERT_TRUE(runMainLoopUntil([] { return !recorder.errors.empty(); }));
    EXPECT_EQ(recorder.errors.front(),
              std::make_pair(static_cast<unsigned int>(local),
                             static_cast<int>(KVP_SERVICE_ERROR_DATA_LOST)));
    const auto noted = [](const std::string& what) {
        return std::find(recorder.log.begin(), recorder.log.end(), what);
    };
    ASSERT_TRUE(runMainLoopUntil([&] { return noted("device 0") != recorder.log.end(); }));
    EXPECT_LT(noted("error " + std::to_string(local) + " 0"), noted("device 0"));
    EXPECT_EQ(recorder.errors.size(), 1u);
    attachAgain();
}

TEST_F(ClientLibraryOnASlowLinkTest, ALinkSilentPastSupervisionIsReportedAndEnds) {
    WireClient consumer(devices->alpha(), kConsumerApp);
    connectFrom(consumer);
    recorder.errors.clear();
    WireClient tool(devices->beta(), "");
    wire::Request stall;
    stall.mutable_fault()->set_action(wire::LinkFault::STALL);
    stall.mutable_fault()->set_stall_ms(9000);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(tool.call(stall).result(), 0);

    ASSERT_TRUE(
        runMainLoopUntil([] { return !recorder.errors.empty(); }, std::chrono::seconds(12)));
    EXPECT_GE(std::chrono::steady_clock::now() - start,
              Kv::Accessory::kLinkSilenceLimit - Kv::Accessory::kLinkPingInterval);
    EXPECT_EQ(recorder.errors.front(),
              std::make_pair(static_cast<unsigned int>(wire::DEVICE_TYPE_BLE),
                             static_cast<int>(KVP_SERVICE_ERROR_LINK_SILENT)));
    ASSERT_TRUE(runMainLoopUntil([] { return recorder.deviceStatus.back().second == 0; }));
    EXPECT_EQ(recorder.deviceStatus.back().first, wire::DEVICE_TYPE_BLE);
    // Once the stall is over the devices link again by themselves.
    ASSERT_TRUE(devices->waitLinked(devices->beta(), true, std::chrono::seconds(15)));
    attachAgain();
}

}  // namespace
}  // namespace KvTest
