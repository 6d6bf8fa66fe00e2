#include "KvpTestSupport.h"

#include <KvManager.h>

using namespace KvpTest;

namespace {

class RecordingManager : public KvManager {
public:
    std::vector<std::string> calls;
    void onDeviceStatus(int transportType, int status) override {
        calls.push_back("onDeviceStatus:" + std::to_string(transportType) + ":" +
                        std::to_string(status));
    }
    void onSoftReset() override { calls.push_back("onSoftReset"); }
};

class ProxyRegistrationTest : public KvpFixture {
protected:
    DPL::SharedPtr<RecordingAgent> agent(const std::string& id, KvRole role = KV_ROLE_PROVIDER) {
        return std::make_shared<RecordingAgent>(makeInit(id, role));
    }
};

}  // namespace

TEST_F(ProxyRegistrationTest, InitializeRegistersBothTablesAndLogsTheLinkState) {
    KvpDouble::reset();
    KvpDouble::setConnected(1);
    DlogCapture log;
    EXPECT_TRUE(proxy().initialize());
    EXPECT_EQ(KvpDouble::callNames(),
              (std::vector<std::string>{"isKvpConnected", "registerNotifications",
                                        "registerFTNotifications"}));
    EXPECT_TRUE(log.contains(DLOG_INFO, "Currently connected : 1"));
    EXPECT_TRUE(log.contains(DLOG_INFO, ">>>>>> ::registerNotifications()"));
    EXPECT_TRUE(log.contains(DLOG_INFO, ">>>>>> ::registerNotifications returns : 0"));
    EXPECT_TRUE(log.contains(DLOG_INFO, ">>>>>> ::registerFTNotifications returns void"));
}

TEST_F(ProxyRegistrationTest, NotificationTablesHoldTheCallbacksInSlotOrder) {
    const kvp_notifications_t& table = KvpDouble::notifications();
    EXPECT_EQ(table.onRegisterServiceAgentConfirm, &kvp_OnRegisterServiceAgentConfirm);
    EXPECT_EQ(table.onDataIndication, &kvp_OnDataIndication);
    EXPECT_EQ(table.onServiceConnectionIndication, &kvp_OnServiceConnectionIndication);
    EXPECT_EQ(table.onServiceTerminationIndication, &kvp_OnServiceTerminationIndication);
    EXPECT_EQ(table.onServiceCreateConfirm, &kvp_OnServiceCreateConfirm);
    EXPECT_EQ(table.onPeerAgent, &kvp_OnPeerAgent);
    EXPECT_EQ(table.onSpaceAvailable, &kvp_OnSpaceAvailable);
    EXPECT_EQ(table.onError, &kvp_OnError);
    EXPECT_EQ(table.onDeregisterServiceAgentConfirm, &kvp_OnDeregisterServiceAgentConfirm);
    EXPECT_EQ(table.onDeviceStatus, &kvp_OnDeviceStatus);
    EXPECT_EQ(table.onPeerAgentIndication, &kvp_OnPeerAgentIndication);
    EXPECT_EQ(table.onAuthenticateIndication, &kvp_OnAuthenticateIndication);
    const kvp_ft_notifications_t& files = KvpDouble::ftNotifications();
    EXPECT_EQ(files.onSendFile, &kvp_OnSendFile);
    EXPECT_EQ(files.onSendComplete, &kvp_OnSendComplete);
    EXPECT_EQ(files.onReceiveComplete, &kvp_OnReceiveComplete);
    EXPECT_EQ(files.onFileProgress, &kvp_OnFileProgress);
}

TEST_F(ProxyRegistrationTest, RefusedNotificationRegistrationSkipsTheFileTransferTable) {
    KvpDouble::reset();
    KvpDouble::setResult("registerNotifications", 7);
    DlogCapture log;
    EXPECT_FALSE(proxy().initialize());
    EXPECT_EQ(KvpDouble::count("registerFTNotifications"), 0u);
    EXPECT_TRUE(log.contains(DLOG_WARN, "registerNotifications returns wrong value : 7"));
}

TEST_F(ProxyRegistrationTest, ThreeQueuedAgentsRegisterOneAtATimeInQueueOrder) {
    auto first = agent("first");
    auto second = agent("second", KV_ROLE_CONSUMER);
    auto third = agent("third");
    std::vector<std::string> journal;
    first->journal = second->journal = third->journal = &journal;
    proxy().registerServiceAgent(first, first->getAgentInit());
    proxy().registerServiceAgent(second, second->getAgentInit());
    proxy().registerServiceAgent(third, third->getAgentInit());
    ASSERT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 1u);
    EXPECT_EQ(KvpDouble::callsTo("getRegisteredServiceAgent")[0].args,
              (std::vector<std::string>{"first", "0"}));

    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 11);
    ASSERT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 2u);
    EXPECT_EQ(KvpDouble::callsTo("getRegisteredServiceAgent")[1].args,
              (std::vector<std::string>{"second", "1"}));
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 12);
    ASSERT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 3u);
    EXPECT_EQ(KvpDouble::callsTo("getRegisteredServiceAgent")[2].args[0], "third");
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 13);
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 3u);

    EXPECT_TRUE(first->calls.empty()) << "a registration success is posted, never direct";
    drainLoop();
    EXPECT_EQ(journal, (std::vector<std::string>{"first onRegisterServiceAgent:11",
                                                 "second onRegisterServiceAgent:12",
                                                 "third onRegisterServiceAgent:13"}));
    EXPECT_EQ(first->calls, std::vector<std::string>{"onRegisterServiceAgent:11"});
    EXPECT_EQ(second->calls, std::vector<std::string>{"onRegisterServiceAgent:12"});
    EXPECT_EQ(third->calls, std::vector<std::string>{"onRegisterServiceAgent:13"});
}

TEST_F(ProxyRegistrationTest, FailingStepOfTheSecondAgentMovesOnToTheThirdInTheSameConfirmation) {
    auto first = agent("first");
    auto second = agent("second");
    auto third = agent("third");
    proxy().registerServiceAgent(first, first->getAgentInit());
    proxy().registerServiceAgent(second, second->getAgentInit());
    proxy().registerServiceAgent(third, third->getAgentInit());
    KvpDouble::queueResult("getRegisteredServiceAgent", -1);  // the second's step fails at once
    DlogCapture log;
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 21);
    EXPECT_EQ(second->calls, std::vector<std::string>{"onRegisterServiceFailed"})
        << "a failure found inside a confirmation is told directly";
    const auto registrations = KvpDouble::callsTo("getRegisteredServiceAgent");
    ASSERT_EQ(registrations.size(), 3u);
    EXPECT_EQ(registrations[2].args[0], "third");
    EXPECT_EQ(log.count("go to next agent"), 2u);
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 23);
    drainLoop();
    EXPECT_EQ(first->calls, std::vector<std::string>{"onRegisterServiceAgent:21"});
    EXPECT_EQ(third->calls, std::vector<std::string>{"onRegisterServiceAgent:23"});
}

TEST_F(ProxyRegistrationTest, ConfirmationWithAnUnknownResultFailsTheFrontAgentAndStartsTheNext) {
    auto first = agent("first");
    auto second = agent("second");
    proxy().registerServiceAgent(first, first->getAgentInit());
    proxy().registerServiceAgent(second, second->getAgentInit());
    DlogCapture log;
    KvpDouble::notifications().onRegisterServiceAgentConfirm(5, 31);
    EXPECT_TRUE(log.contains(DLOG_WARN, "OnRegisterServiceAgentConfirm returns wrong value : 5"));
    EXPECT_EQ(first->calls, std::vector<std::string>{"onRegisterServiceFailed"});
    EXPECT_EQ(KvpDouble::callsTo("getRegisteredServiceAgent").back().args[0], "second");
    drainLoop();
    EXPECT_EQ(first->calls.size(), 1u);
}

TEST_F(ProxyRegistrationTest, ConfirmationWithAnEmptyQueueIsDropped) {
    DlogCapture log;
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 41);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "Queue size is 0"));
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 0u);
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< OnRegisterServiceAgentConfirm"));
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< done"));
}

TEST_F(ProxyRegistrationTest, RegistrationRefusedAtOnceIsReportedLaterFromTheMainLoop) {
    auto first = agent("first");
    auto second = agent("second");
    KvpDouble::setResult("getRegisteredServiceAgent", -2);
    DlogCapture log;
    proxy().registerServiceAgent(first, first->getAgentInit());
    EXPECT_TRUE(first->calls.empty());
    drainLoop();
    EXPECT_EQ(first->calls, std::vector<std::string>{"onRegisterServiceFailed"});
    KvpDouble::setResult("getRegisteredServiceAgent", 0);
    proxy().registerServiceAgent(second, second->getAgentInit());
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 2u) << "the queue was emptied";
    EXPECT_TRUE(log.contains(DLOG_INFO, ">>>>>> ::getRegisteredServiceAgent returns : -2"));
}

TEST_F(ProxyRegistrationTest, RegistrationResultOutsideTheKnownSetIsNamedAfterTheProxyOperation) {
    auto first = agent("first");
    KvpDouble::setResult("getRegisteredServiceAgent", 3);
    DlogCapture log;
    proxy().registerServiceAgent(first, first->getAgentInit());
    EXPECT_TRUE(log.contains(DLOG_WARN, "registerServiceAgent returns wrong value : 3"));
    drainLoop();
    EXPECT_EQ(first->calls, std::vector<std::string>{"onRegisterServiceFailed"});
}

TEST_F(ProxyRegistrationTest, AttachedStatusWhileConnectedDoesNothing) {
    auto first = agent("first");
    auto agents = std::make_shared<std::vector<KvAgentPtr>>(std::vector<KvAgentPtr>{first});
    proxy().setAgentList(agents);
    proxy().onConnected();
    const size_t callsAfterAttach = KvpDouble::calls().size();
    first->calls.clear();
    KvpDouble::notifications().onDeviceStatus(4, 1);
    EXPECT_EQ(KvpDouble::calls().size(), callsAfterAttach);
    EXPECT_TRUE(first->calls.empty());
}

TEST_F(ProxyRegistrationTest, AttachReinitialisesAndTellsEveryAgentAndTheManager) {
    auto first = agent("first");
    auto second = agent("second");
    proxy().setAgentList(
        std::make_shared<std::vector<KvAgentPtr>>(std::vector<KvAgentPtr>{first, second}));
    auto manager = std::make_shared<RecordingManager>();
    proxy().setManager(manager);
    KvpDouble::reset();
    proxy().onConnected();
    EXPECT_EQ(KvpDouble::callNames({"getRegisteredServiceAgent"}),
              (std::vector<std::string>{"deregisterNotifications", "isKvpConnected",
                                        "registerNotifications", "registerFTNotifications"}));
    EXPECT_EQ(first->calls, std::vector<std::string>{"onDeviceAttached"});
    EXPECT_EQ(second->calls, std::vector<std::string>{"onDeviceAttached"});
    EXPECT_EQ(first->getState(), KvAgent::STATE_REGISTERING);
    EXPECT_EQ(manager->calls, std::vector<std::string>{"onDeviceStatus:0:0"});
}

TEST_F(ProxyRegistrationTest, DetachedStatusWhileNotConnectedDoesNothing) {
    auto manager = std::make_shared<RecordingManager>();
    proxy().setManager(manager);
    const size_t before = KvpDouble::calls().size();
    KvpDouble::notifications().onDeviceStatus(4, 0);
    EXPECT_EQ(KvpDouble::calls().size(), before);
    EXPECT_TRUE(manager->calls.empty());
}

TEST_F(ProxyRegistrationTest, DetachFailsTransfersLosesSocketsAndDeregistersAgents) {
    auto first = agent("first");
    auto second = agent("second");
    proxy().onConnected();
    registerAgent(first, 1);
    registerAgent(second, 2);
    auto manager = std::make_shared<RecordingManager>();
    proxy().setManager(manager);
    auto transfer = std::make_shared<RecordingFileTransfer>(first);
    first->recordingTransfer = transfer;

    KvpDouble::Peer peerA(100, "peer-a", "first");
    KvpDouble::Peer peerB(101, "peer-b", "first");
    KvpDouble::notifications().onServiceCreateConfirm(1, 501, peerA.get(), 0);
    KvpDouble::notifications().onServiceCreateConfirm(1, 502, peerB.get(), 0);
    ASSERT_EQ(first->sockets.size(), 2u);
    const KvSocketPtr socketA = first->sockets[0];
    const KvSocketPtr socketB = first->sockets[1];

    KvpDouble::setResult("pushFile", 70);
    proxy().sendFile(transfer, first->sockets[0]->getPeerAgent(), "/opt/usr/media/Documents/a.txt");
    KvpDouble::ftNotifications().onSendFile(80, "b.txt", 1);
    EXPECT_FALSE(proxy().receiveFile(transfer, 80, "/opt/usr/media/Downloads/b.txt", true));
    transfer->calls.clear();

    KvpDouble::notifications().onDeviceStatus(4, 0);
    EXPECT_EQ(transfer->calls,
              (std::vector<std::string>{"onFileReceiveError:2:80", "onFileSendError:3:70"}));
    EXPECT_FALSE(socketA->isConnected());
    EXPECT_FALSE(socketB->isConnected());
    const auto deregistered = KvpDouble::callsTo("deRegisterServiceAgent");
    ASSERT_EQ(deregistered.size(), 2u);
    EXPECT_EQ(deregistered[0].args[0], "1");
    EXPECT_EQ(deregistered[1].args[0], "2");
    EXPECT_EQ(first->calls.back(), "onDeviceDetached");
    EXPECT_EQ(second->calls.back(), "onDeviceDetached");
    EXPECT_EQ(manager->calls, std::vector<std::string>{"onDeviceStatus:0:1"});
}

TEST_F(ProxyRegistrationTest, DetachLosesEverySocketWithReasonOne) {
    auto first = agent("first");
    proxy().onConnected();
    registerAgent(first, 1);
    KvpDouble::Peer peer(100, "peer-a", "first");
    KvpDouble::notifications().onServiceCreateConfirm(1, 501, peer.get(), 0);
    ASSERT_EQ(first->sockets.size(), 1u);
    RecordingListener<EventKvSocketSocketStatusListener> status;
    auto request = std::make_shared<EventKvSocketSetSocketStatusListener>();
    request->emitter = emitterFor(status);
    postRequest(*first->sockets[0], request);
    drainLoop();
    proxy().onDisconnected();
    ASSERT_EQ(status.events.size(), 1u);
    EXPECT_EQ(status.events[0]->reason, 1);
}

TEST_F(ProxyRegistrationTest, SoftResetDropsAClosedSocketWithoutTerminatingIt) {
    auto first = agent("first");
    proxy().onConnected();
    registerAgent(first, 1);
    KvpDouble::Peer peerA(100, "peer-a", "first");
    KvpDouble::Peer peerB(101, "peer-b", "first");
    KvpDouble::notifications().onServiceCreateConfirm(1, 501, peerA.get(), 0);
    KvpDouble::notifications().onServiceCreateConfirm(1, 502, peerB.get(), 0);
    const KvSocketPtr open = first->sockets[1];
    const KvPeerAgentPtr peerOfClosed = first->sockets[0]->getPeerAgent();
    const KvPeerAgentPtr peerOfOpen = open->getPeerAgent();
    first->sockets[0]->onConnectionLost(0);  // 501 is closed now
    RecordingListener<EventKvSocketDataReceiveListener> data;
    auto listen = std::make_shared<EventKvSocketSetDataReceiveListener>();
    listen->emitter = emitterFor(data);
    postRequest(*open, listen);
    drainLoop();
    auto manager = std::make_shared<RecordingManager>();
    proxy().setManager(manager);
    DlogCapture log;
    proxy().softReset();
    const auto terminated = KvpDouble::callsTo("terminateServiceConnection");
    ASSERT_EQ(terminated.size(), 1u);
    EXPECT_EQ(terminated[0].args[0], "502");
    EXPECT_TRUE(log.contains(DLOG_INFO, "softReset"));
    EXPECT_EQ(first->calls.back(), "onSoftReset");
    EXPECT_EQ(first->getState(), KvAgent::STATE_IDLE);
    EXPECT_EQ(manager->calls, std::vector<std::string>{"onSoftReset"});
    EXPECT_EQ(KvpDouble::count("deRegisterServiceAgent"), 0u) << "agents stay registered";
    // The closed socket left the table: the table held the last reference.
    EXPECT_EQ(first->sockets[0], nullptr);
    // Data for a connection the reset dropped goes nowhere.
    KvpDouble::notifications().onDataIndication(502, 104, 2, "hi");
    EXPECT_TRUE(data.events.empty());
    // Only the open connection left a reset record: a new connection to its
    // peer waits for the old one's end, one to the closed socket's peer goes
    // out at once.
    proxy().requestServiceConnection(first, peerOfOpen);
    EXPECT_TRUE(log.contains(DLOG_INFO, "softReset is not completed"));
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 0u);
    log.clear();
    proxy().requestServiceConnection(first, peerOfClosed);
    EXPECT_EQ(log.count("softReset is not completed"), 0u);
    const auto created = KvpDouble::callsTo("createServiceConnection");
    ASSERT_EQ(created.size(), 1u);
    EXPECT_EQ(created[0].args[1], "100");
}

TEST_F(ProxyRegistrationTest, FinalizeTerminatesConnectionsAndDeregistersAgentsInKeyOrder) {
    auto first = agent("first");
    auto second = agent("second");
    registerAgent(second, 9);
    registerAgent(first, 3);
    KvpDouble::Peer peer(100, "peer-a", "first");
    KvpDouble::notifications().onServiceCreateConfirm(3, 600, peer.get(), 0);
    KvpDouble::reset();
    const auto firstCalls = first->calls;
    const auto secondCalls = second->calls;
    proxy().finalize();
    EXPECT_EQ(KvpDouble::callNames(),
              (std::vector<std::string>{"terminateServiceConnection", "deRegisterServiceAgent",
                                        "deRegisterServiceAgent", "deregisterNotifications"}));
    EXPECT_EQ(KvpDouble::callsTo("deRegisterServiceAgent")[0].args[0], "3");
    EXPECT_EQ(first->calls, firstCalls) << "no object is told";
    EXPECT_EQ(second->calls, secondCalls);
}
