#include "KvpTestSupport.h"

#include <cstring>
#include <stdexcept>
#include <string>

using namespace KvpTest;

namespace {

class ProxyRoutingTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        proxy().onConnected();
        agent = std::make_shared<RecordingAgent>(makeInit("watch.sensor"));
        registerAgent(agent, 7);
        agent->calls.clear();
    }

    // Opens a connection to `peer` as connection `connectionId`; returns its socket.
    KvSocketPtr connect(const KvpDouble::Peer& peer, unsigned int connectionId) {
        KvpDouble::notifications().onServiceCreateConfirm(7, connectionId, peer.get(), 0);
        return agent->sockets.back();
    }

    DPL::SharedPtr<RecordingAgent> agent;
    KvpDouble::Peer peer{100, "phone.sensor", "watch.sensor"};
};

}  // namespace

TEST_F(ProxyRoutingTest, DataWithAZeroByteIsCutThere) {
    const KvSocketPtr socket = connect(peer, 300);
    RecordingListener<EventKvSocketDataReceiveListener> data;
    auto setListener = std::make_shared<EventKvSocketSetDataReceiveListener>();
    setListener->emitter = emitterFor(data);
    request(*socket, setListener);
    const char bytes[] = {'a', 'b', '\0', 'c', 'd'};
    KvpDouble::notifications().onDataIndication(300, 104, sizeof bytes, bytes);
    ASSERT_EQ(data.events.size(), 1u);
    EXPECT_EQ(data.events[0]->data, "ab");
    EXPECT_EQ(data.events[0]->channelId, 104u);
}

TEST_F(ProxyRoutingTest, DataForAnUnknownConnectionGoesNowhere) {
    DlogCapture log;
    KvpDouble::notifications().onDataIndication(999, 104, 2, "hi");
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< OnDataIndication"));
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< done"));
}

TEST_F(ProxyRoutingTest, PeerSearchStatusesMapToSearchErrors) {
    KvpDouble::notifications().onPeerAgent(7, nullptr, 1);
    KvpDouble::notifications().onPeerAgent(7, nullptr, 3);
    KvpDouble::notifications().onPeerAgent(7, nullptr, 2);
    EXPECT_EQ(agent->codes, (std::vector<int>{2, 0, 0}));
    DlogCapture log;
    agent->calls.clear();
    KvpDouble::notifications().onPeerAgent(7, peer.get(), 4);
    EXPECT_TRUE(agent->calls.empty());
    KvpDouble::notifications().onPeerAgent(7, peer.get(), 9);
    EXPECT_TRUE(agent->calls.empty());
    EXPECT_TRUE(log.contains(DLOG_WARN, "onPeerAgent gives wrong status code : 9"));
    EXPECT_EQ(log.count("Failed to find PeerAgent"), 0u);
}

TEST_F(ProxyRoutingTest, PeerSearchForAnUnknownAgentIsLogged) {
    DlogCapture log;
    KvpDouble::notifications().onPeerAgent(8, peer.get(), 0);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "localAgentId:8 is not exist."));
    KvpDouble::notifications().onPeerAgent(8, nullptr, 1);
    EXPECT_EQ(log.count("localAgentId:8 is not exist."), 2u);
}

TEST_F(ProxyRoutingTest, FoundPeerKeepsOneNativeRecordPerRemoteAgent) {
    kvp_peer_accessory_t accessory{};
    accessory.transportType = 3;
    accessory.maxAllowedDataSize = 1048576;
    std::strcpy(accessory.deviceAddress, "02:00:00:aa:bb:cc");
    std::strcpy(accessory.productId, "P-1");
    std::strcpy(accessory.vendorId, "V-1");
    KvpDouble::setPeerAccessory(1, accessory);
    DlogCapture log;
    KvpDouble::notifications().onPeerAgent(7, peer.get(), 0);
    const KvpDouble::Peer samePeerAgain(peer);
    KvpDouble::notifications().onPeerAgent(7, samePeerAgain.get(), 0);
    ASSERT_EQ(agent->peers.size(), 2u);
    EXPECT_EQ(agent->peers[0], agent->peers[1]);
    EXPECT_TRUE(log.contains(DLOG_INFO, "PeerAgents are found."));
    const KvPeerAgentPtr& found = agent->peers[0];
    EXPECT_EQ(found->getPeerId(), "phone.sensor");
    EXPECT_EQ(found->getProfileId(), "watch.sensor");
    EXPECT_EQ(found->getMaxAllowedDataSize(), 1048576u);
    EXPECT_EQ(found->getPeerAccessory()->getTransportType(), 3);
    EXPECT_EQ(found->getPeerAccessory()->getDeviceAddress(), "02:00:00:aa:bb:cc");
    EXPECT_EQ(found->getPeerAccessory()->getDeviceName(), "Peer device");
    EXPECT_EQ(found->getPeerAccessory()->getVendorId(), "V-1");
    EXPECT_NE(found->getRecord(), peer.get()) << "the bridge keeps its own copy";
    EXPECT_EQ(agent->getState(), KvAgent::STATE_READY);
}

TEST_F(ProxyRoutingTest, TrampolinesPrintNullTextsOfAPeerRecord) {
    kvp_peer_agent_t bare{};
    bare.peerAgentId = 5;
    DlogCapture log;
    KvpDouble::notifications().onPeerAgent(7, &bare, 0);
    EXPECT_TRUE(log.contains(DLOG_INFO, "<NULL>"));
    ASSERT_EQ(agent->peers.size(), 1u);
    EXPECT_EQ(agent->peers[0]->getPeerId(), "");
}

TEST_F(ProxyRoutingTest, PeerIndicationReportsAvailabilityOrWarns) {
    KvpDouble::notifications().onPeerAgentIndication(7, peer.get(), 0);
    KvpDouble::notifications().onPeerAgentIndication(7, peer.get(), 1);
    DlogCapture log;
    KvpDouble::notifications().onPeerAgentIndication(7, peer.get(), 2);
    EXPECT_EQ(agent->calls,
              (std::vector<std::string>{"onFindPeerAgentUpdated:1", "onFindPeerAgentUpdated:0"}));
    EXPECT_TRUE(log.contains(DLOG_WARN, "Status changed to wrong state."));
    KvpDouble::notifications().onPeerAgentIndication(8, peer.get(), 0);
    EXPECT_EQ(agent->calls.size(), 2u);
}

TEST_F(ProxyRoutingTest, FailedSearchRequestIsReportedFromTheMainLoop) {
    KvpDouble::setResult("findPeerAgent", -1);
    proxy().findPeerAgent(agent);
    EXPECT_TRUE(agent->calls.empty());
    drainLoop();
    EXPECT_EQ(agent->codes, std::vector<int>{2});
}

TEST_F(ProxyRoutingTest, ConnectionStatusesMapToConnectionErrors) {
    const std::vector<std::pair<int, int>> mapping = {{1, 0}, {2, 2}, {3, 3},
                                                      {4, 1}, {5, 4}, {6, 5}};
    for (const auto& [status, code] : mapping) {
        KvpDouble::notifications().onServiceCreateConfirm(7, 400, peer.get(), status);
        EXPECT_EQ(agent->codes.back(), code) << "status " << status;
    }
    DlogCapture log;
    KvpDouble::notifications().onServiceCreateConfirm(7, 400, peer.get(), 7);
    EXPECT_TRUE(log.contains(DLOG_WARN, "Connection Failed with wrong status : 7"));
    EXPECT_EQ(agent->codes.back(), 5);
}

TEST_F(ProxyRoutingTest, MadeConnectionGivesTheAgentAConnectedSocket) {
    const KvSocketPtr socket = connect(peer, 301);
    EXPECT_TRUE(socket->isConnected());
    EXPECT_EQ(socket->getConnectionId(), 301u);
    EXPECT_EQ(socket->getKvAgent(), agent);
    EXPECT_EQ(socket->getPeerAgent()->getPeerId(), "phone.sensor");
}

TEST_F(ProxyRoutingTest, RequestToAPeerWithAnOpenConnectionIsAnAlreadyExistError) {
    const KvSocketPtr socket = connect(peer, 302);
    proxy().requestServiceConnection(agent, socket->getPeerAgent());
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 0u);
    drainLoop();
    EXPECT_EQ(agent->codes, std::vector<int>{0});
}

TEST_F(ProxyRoutingTest, RefusedConnectionRequestIsANetworkErrorLater) {
    KvpDouble::notifications().onPeerAgent(7, peer.get(), 0);
    KvpDouble::setResult("createServiceConnection", -1);
    proxy().requestServiceConnection(agent, agent->peers[0]);
    EXPECT_EQ(KvpDouble::callsTo("createServiceConnection")[0].args,
              (std::vector<std::string>{"7", "100"}));
    EXPECT_TRUE(agent->codes.empty());
    drainLoop();
    EXPECT_EQ(agent->codes, std::vector<int>{2});
}

TEST_F(ProxyRoutingTest, RequestDuringASoftResetWaitsForTheOldConnectionToEnd) {
    const KvSocketPtr socket = connect(peer, 303);
    const KvPeerAgentPtr peerAgent = socket->getPeerAgent();
    proxy().softReset();
    registerAgent(agent, 7);
    DlogCapture log;
    proxy().requestServiceConnection(agent, peerAgent);
    EXPECT_TRUE(log.contains(DLOG_INFO, "softReset is not completed"));
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 0u);
    KvpDouble::notifications().onServiceTerminationIndication(303, 0);
    EXPECT_TRUE(log.contains(DLOG_INFO, "serviceConnectionRequest set while softReset"));
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 1u);
    KvpDouble::notifications().onServiceTerminationIndication(303, 0);
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 1u) << "the record is gone";
}

TEST_F(ProxyRoutingTest, TerminationWithAnUnknownReasonIsReportedAsReasonTwo) {
    const KvSocketPtr socket = connect(peer, 304);
    RecordingListener<EventKvSocketSocketStatusListener> status;
    auto setListener = std::make_shared<EventKvSocketSetSocketStatusListener>();
    setListener->emitter = emitterFor(status);
    request(*socket, setListener);
    DlogCapture log;
    KvpDouble::notifications().onServiceTerminationIndication(304, 3);
    EXPECT_TRUE(log.contains(DLOG_WARN, "on error with wrong error code : 3"));
    ASSERT_EQ(status.events.size(), 1u);
    EXPECT_EQ(status.events[0]->reason, 2);
    EXPECT_FALSE(socket->isConnected());
}

TEST_F(ProxyRoutingTest, TerminationFreesThePeerForANewConnection) {
    const KvSocketPtr socket = connect(peer, 305);
    KvpDouble::notifications().onServiceTerminationIndication(305, 0);
    proxy().requestServiceConnection(agent, socket->getPeerAgent());
    drainLoop();
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 1u);
    EXPECT_TRUE(agent->codes.empty());
}

TEST_F(ProxyRoutingTest, AcceptInsideTheIndicationOpensASocketAndReportsItLater) {
    agent->acceptInRequest = true;
    KvpDouble::notifications().onServiceConnectionIndication(7, 306, peer.get());
    EXPECT_EQ(KvpDouble::callsTo("acceptServiceConnection")[0].args,
              (std::vector<std::string>{"7", "306", "100"}));
    EXPECT_EQ(agent->calls, std::vector<std::string>{"onRequest"});
    drainLoop();
    EXPECT_EQ(agent->calls, (std::vector<std::string>{"onRequest", "onConnect"}));
    EXPECT_EQ(agent->sockets[0]->getConnectionId(), 306u);
}

TEST_F(ProxyRoutingTest, RefusedAcceptIsANetworkErrorLater) {
    agent->acceptInRequest = true;
    KvpDouble::setResult("acceptServiceConnection", 1);
    DlogCapture log;
    KvpDouble::notifications().onServiceConnectionIndication(7, 307, peer.get());
    EXPECT_TRUE(log.contains(DLOG_ERROR, "acceptServiceConnection returns failure"));
    drainLoop();
    EXPECT_EQ(agent->codes, std::vector<int>{2});
    EXPECT_TRUE(agent->sockets.empty());
}

TEST_F(ProxyRoutingTest, AnswersOutsideAnIndicationSendNothing) {
    KvpDouble::notifications().onPeerAgent(7, peer.get(), 0);
    proxy().acceptServiceConnection(agent, agent->peers[0]);
    proxy().rejectServiceConnection(agent, agent->peers[0]);
    EXPECT_EQ(KvpDouble::count("acceptServiceConnection"), 0u);
    EXPECT_EQ(KvpDouble::count("rejectServiceConnection"), 0u);
}

TEST_F(ProxyRoutingTest, RejectInsideTheIndicationAnswersTheIndicatedConnection) {
    agent->rejectInRequest = true;
    KvpDouble::notifications().onServiceConnectionIndication(7, 308, peer.get());
    EXPECT_EQ(KvpDouble::callsTo("rejectServiceConnection")[0].args,
              (std::vector<std::string>{"7", "308", "100"}));
    drainLoop();
    EXPECT_TRUE(agent->sockets.empty());
}

TEST_F(ProxyRoutingTest, RefusedAuthenticationIsReportedLaterWithCodeZero) {
    KvpDouble::notifications().onPeerAgent(7, peer.get(), 0);
    KvpDouble::setResult("authenticatePeerAgent", -2);
    proxy().authenticatePeerAgent(agent, agent->peers[0]);
    EXPECT_EQ(agent->calls.back(), "onFindPeerAgentFound");
    drainLoop();
    EXPECT_EQ(agent->calls.back(), "onAuthenticateError");
    EXPECT_EQ(agent->codes.back(), 0);
}

TEST_F(ProxyRoutingTest, AuthenticationIndicationReportsTheTokenOrTheFailure) {
    DlogCapture log;
    KvpDouble::notifications().onAuthenticateIndication(7, peer.get(), "token-123", 0);
    EXPECT_TRUE(log.contains(DLOG_INFO, "Succeeded to authenticate"));
    EXPECT_EQ(agent->calls.back(), "onAuthenticateResponse:token-123");
    KvpDouble::notifications().onAuthenticateIndication(7, peer.get(), nullptr, 0);
    EXPECT_EQ(agent->calls.back(), "onAuthenticateError");
    KvpDouble::notifications().onAuthenticateIndication(7, peer.get(), "token", 1);
    EXPECT_EQ(log.count("Failed to authenticate"), 2u);
    const size_t before = agent->calls.size();
    KvpDouble::notifications().onAuthenticateIndication(7, nullptr, "token", 0);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "peerAgent is NULL"));
    EXPECT_EQ(agent->calls.size(), before);
}

TEST_F(ProxyRoutingTest, SendingHandsTheConnectionChannelAndBytesToTheLibrary) {
    const KvSocketPtr socket = connect(peer, 309);
    EXPECT_EQ(proxy().sendData(socket, 104, std::string("a\0b", 3)), 0);
    EXPECT_EQ(KvpDouble::callsTo("sendData")[0].args,
              (std::vector<std::string>{"309", "104", "3", std::string("a\0b", 3)}));
    KvpDouble::setResult("sendSecureData", 6);
    DlogCapture log;
    EXPECT_EQ(proxy().sendSecureData(socket, 104, "x"), 6);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "Wrong result"));
}

TEST_F(ProxyRoutingTest, TerminatingAnUnknownConnectionSendsNothing) {
    auto stray = std::make_shared<KvSocket>();
    stray->setConnectionId(999);
    EXPECT_TRUE(proxy().terminateServiceConnection(stray));
    EXPECT_EQ(KvpDouble::count("terminateServiceConnection"), 0u);
    const KvSocketPtr socket = connect(peer, 310);
    KvpDouble::setResult("terminateServiceConnection", -1);
    EXPECT_FALSE(proxy().terminateServiceConnection(socket));
}

TEST_F(ProxyRoutingTest, DeviceStatusWithAWrongTypeStillAttaches) {
    proxy().onDisconnected();
    agent->calls.clear();
    proxy().setAgentList(std::make_shared<std::vector<KvAgentPtr>>(std::vector<KvAgentPtr>{agent}));
    DlogCapture log;
    KvpDouble::notifications().onDeviceStatus(5, 1);
    EXPECT_TRUE(log.contains(DLOG_WARN, "Device status changed wrong device type"));
    EXPECT_EQ(agent->calls, std::vector<std::string>{"onDeviceAttached"});
    KvpDouble::notifications().onDeviceStatus(4, 7);
    EXPECT_TRUE(log.contains(DLOG_WARN, "Status changed to wrong state."));
}

TEST_F(ProxyRoutingTest, ErrorWhileDisconnectedOnlyWarns) {
    proxy().onDisconnected();
    agent->calls.clear();
    const size_t before = KvpDouble::calls().size();
    DlogCapture log;
    KvpDouble::notifications().onError(0, 3);
    EXPECT_TRUE(log.contains(DLOG_WARN, "on error with wrong error code : 3"));
    EXPECT_EQ(KvpDouble::calls().size(), before);
    EXPECT_TRUE(agent->calls.empty());
}

TEST_F(ProxyRoutingTest, ErrorWhileConnectedClearsTheConnection) {
    const KvSocketPtr socket = connect(peer, 311);
    KvpDouble::notifications().onError(0, 1);
    EXPECT_FALSE(socket->isConnected());
    EXPECT_EQ(agent->calls.back(), "onDeviceDetached");
}

TEST_F(ProxyRoutingTest, SpaceAvailableAndDeregistrationOnlyLog) {
    DlogCapture log;
    KvpDouble::notifications().onSpaceAvailable(1, 104);
    KvpDouble::notifications().onDeregisterServiceAgentConfirm(0, 7);
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< OnSpaceAvailable"));
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< OnDeregisterServiceAgentConfirm"));
    EXPECT_TRUE(agent->calls.empty());
}

TEST_F(ProxyRoutingTest, AHandlerThatThrowsIsContainedBetweenTheNotificationsLogLines) {
    DlogCapture log;
    KvProxy::routeNotification("OnTest", [](KvProxy&) { throw std::runtime_error("boom"); });
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< OnTest"));
    EXPECT_TRUE(log.contains(DLOG_ERROR, "OnTest failed: boom"));
    EXPECT_TRUE(log.contains(DLOG_INFO, "<<<<<< done"));
}

TEST_F(ProxyRoutingTest, FileTransferNotificationsAreRoutedTheSameWay) {
    DlogCapture log;
    KvpDouble::ftNotifications().onFileProgress(999, 10);
    KvpDouble::ftNotifications().onSendComplete(999, "/a", 0);
    KvpDouble::ftNotifications().onReceiveComplete(999, "/b", 0);
    KvpDouble::ftNotifications().onSendFile(999, "c.txt", 12345);
    for (const char* handler :
         {"OnFileProgress", "OnSendComplete", "OnReceiveComplete", "OnSendFile"}) {
        EXPECT_TRUE(log.contains(DLOG_INFO, std::string("<<<<<< ") + handler)) << handler;
    }
    EXPECT_EQ(log.count("<<<<<< done"), 4u);
}

// Each library call whose result is none of the header's answers is named in
// a warning with the value, and the bridge goes on as for a failure.
TEST_F(ProxyRoutingTest, EveryCallThatReturnsAnUnknownResultIsNamedInAWarning) {
    DlogCapture log;
    const auto expectWarning = [&](const std::string& function) {
        EXPECT_TRUE(log.contains(DLOG_WARN, function + " returns wrong value : 9")) << function;
    };
    KvpDouble::queueResult("getPeerAccessory", 9);
    KvpDouble::notifications().onPeerAgent(7, peer.get(), 0);
    expectWarning("getPeerAccessory");
    ASSERT_EQ(agent->peers.size(), 1u);
    EXPECT_EQ(agent->peers[0]->getMaxAllowedDataSize(), 0u) << "read as a failed lookup";
    const KvPeerAgentPtr found = agent->peers[0];

    KvpDouble::queueResult("findPeerAgent", 9);
    proxy().findPeerAgent(agent);
    expectWarning("findPeerAgent");

    KvpDouble::queueResult("createServiceConnection", 9);
    proxy().requestServiceConnection(agent, found);
    expectWarning("createServiceConnection");

    KvpDouble::queueResult("authenticatePeerAgent", 9);
    proxy().authenticatePeerAgent(agent, found);
    expectWarning("authenticatePeerAgent");

    agent->acceptInRequest = true;
    KvpDouble::queueResult("acceptServiceConnection", 9);
    KvpDouble::notifications().onServiceConnectionIndication(7, 320, peer.get());
    expectWarning("acceptServiceConnection");
    agent->acceptInRequest = false;

    agent->rejectInRequest = true;
    KvpDouble::queueResult("rejectServiceConnection", 9);
    KvpDouble::notifications().onServiceConnectionIndication(7, 321, peer.get());
    expectWarning("rejectServiceConnection");
    agent->rejectInRequest = false;

    const KvpDouble::Peer other{101, "phone.other", "watch.sensor"};
    const KvSocketPtr socket = connect(other, 322);
    KvpDouble::queueResult("terminateServiceConnection", 9);
    EXPECT_FALSE(proxy().terminateServiceConnection(socket));
    expectWarning("terminateServiceConnection");

    KvpDouble::queueResult("deRegisterServiceAgent", 9);
    KvpDouble::notifications().onDeviceStatus(4, 0);
    expectWarning("deRegisterServiceAgent");
    drainLoop();
}
