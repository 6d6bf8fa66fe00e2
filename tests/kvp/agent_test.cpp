#include "KvpTestSupport.h"

#include <functional>

using namespace KvpTest;

namespace {

class AgentTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        proxy().onConnected();
        agent = std::make_shared<RecordingAgent>(makeInit("watch.sensor"));
        auto setListener = std::make_shared<EventKvAgentSetPeerAgentFindListener>();
        setListener->emitter = emitterFor(found);
        request(*agent, setListener);
    }

    void find() { request(*agent, std::make_shared<EventKvAgentFindPeerAgents>()); }

    void toState(int state) {
        switch (state) {
            case KvAgent::STATE_REGISTERING:
                agent->onRequestRegisterServiceAgent();
                break;
            case KvAgent::STATE_REGISTERING_FOR_SEARCH:
                find();
                break;
            case KvAgent::STATE_READY:
                registerAgent(agent, 7);
                break;
            case KvAgent::STATE_SEARCHING:
                registerAgent(agent, 7);
                find();
                break;
            case KvAgent::STATE_FAILED:
                agent->onDeviceDetached();
                break;
            default:
                break;
        }
        ASSERT_EQ(agent->getState(), state);
        KvpDouble::reset();
        proxy().initialize();
    }

    // The search error codes the listener has received.
    std::vector<int> searchErrors() const {
        std::vector<int> codes;
        for (const auto& event : found.events) {
            if (event->info->getType() == 2) {
                codes.push_back(static_cast<EventInfoPeerAgentFindError&>(*event->info).errorCode);
            }
        }
        return codes;
    }

    KvPeerAgentPtr peerOf(const std::string& profileId, unsigned int id = 100) {
        KvpDouble::Peer record(id, "peer-" + std::to_string(id), profileId);
        auto wrapper = std::make_shared<PeerAgentWrapper>(record.get(), false);
        return std::make_shared<KvPeerAgent>(wrapper, nullptr, 0);
    }

    DPL::SharedPtr<RecordingAgent> agent;
    RecordingListener<EventKvAgentPeerAgentFindListener> found;
};

struct SearchRow {
    int from;
    const char* log;
    bool registers;
    bool searches;
    int reportedError;  // -1 for none
    int to;
};

}  // namespace

TEST_F(AgentTest, FindPeerAgentsFollowsTheStateTable) {
    const SearchRow rows[] = {
        {0, "Registering service agent", true, false, -1, 2},
        {1, "Registering service agent (2)", false, false, -1, 2},
        {2, "Already requested findPeerAgents", false, false, 1, 2},
        {3, "finding PeerAgents", false, true, -1, 4},
        {4, "already finding PeerAgents", false, false, 1, 4},
        {5, "KvAgent have problem.", false, false, 2, 5},
    };
    for (const SearchRow& row : rows) {
        SCOPED_TRACE(row.from);
        SetUp();
        found.events.clear();
        toState(row.from);
        DlogCapture log;
        find();
        EXPECT_EQ(log.count(row.log), 1u);
        EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), row.registers ? 1u : 0u);
        EXPECT_EQ(KvpDouble::count("findPeerAgent"), row.searches ? 1u : 0u);
        EXPECT_EQ(agent->getState(), row.to);
        EXPECT_TRUE(found.events.empty()) << "nothing is delivered inside the request";
        drainLoop();
        EXPECT_EQ(searchErrors(),
                  row.reportedError < 0 ? std::vector<int>{} : std::vector<int>{row.reportedError});
    }
}

struct RegisteredRow {
    int from;
    const char* log;
    bool searches;
    int to;
};

TEST_F(AgentTest, RegistrationSuccessFollowsTheStateTable) {
    const RegisteredRow rows[] = {
        {0, "State error", false, 3},
        {1, "KvAgent initialize success", false, 3},
        {2, "KvAgent initialize success, now find PeerAgents", true, 4},
        {3, "State error already initialized.", false, 3},
        {4, "State error already initialized. (2)", false, 4},
        {5, "State error", false, 3},
    };
    for (const RegisteredRow& row : rows) {
        SCOPED_TRACE(row.from);
        SetUp();
        toState(row.from);
        DlogCapture log;
        agent->onRegisterServiceAgent(42);
        EXPECT_GE(log.count(row.log), 1u);
        EXPECT_EQ(agent->getAgentId(), 42u);
        EXPECT_EQ(KvpDouble::count("findPeerAgent"), row.searches ? 1u : 0u);
        EXPECT_EQ(agent->getState(), row.to);
    }
}

TEST_F(AgentTest, FirstSearchRegistersASecondIsADuplicateAndTheSearchStartsWhenRegistered) {
    find();
    find();
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 1u);
    drainLoop();
    EXPECT_EQ(searchErrors(), std::vector<int>{KV_FIND_DUPLICATE_REQUEST});
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 9);
    EXPECT_EQ(KvpDouble::count("findPeerAgent"), 0u);
    drainLoop();
    EXPECT_EQ(KvpDouble::callsTo("findPeerAgent")[0].args[0], "9");
    EXPECT_EQ(agent->getState(), KvAgent::STATE_SEARCHING);
}

TEST_F(AgentTest, SearchAfterDetachIsDeviceNotConnectedAfterTheRequestReturned) {
    agent->onDeviceDetached();
    find();
    EXPECT_TRUE(found.events.empty());
    drainLoop();
    EXPECT_EQ(searchErrors(), std::vector<int>{KV_FIND_DEVICE_NOT_CONNECTED});
}

TEST_F(AgentTest, FailedRegistrationFailsTheWaitingSearch) {
    find();
    DlogCapture log;
    agent->onRegisterServiceFailed();
    EXPECT_TRUE(log.contains(DLOG_ERROR, "KvAgent have problem."));
    EXPECT_EQ(agent->getState(), KvAgent::STATE_FAILED);
    drainLoop();
    EXPECT_EQ(searchErrors(), std::vector<int>{KV_FIND_DEVICE_NOT_CONNECTED});
    agent->onRegisterServiceFailed();
    drainLoop();
    EXPECT_EQ(searchErrors().size(), 1u) << "no search waited the second time";
}

TEST_F(AgentTest, RegistrationIsAskedOnlyFromIdle) {
    agent->onRequestRegisterServiceAgent();
    agent->onRequestRegisterServiceAgent();
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 1u);
    EXPECT_EQ(agent->getState(), KvAgent::STATE_REGISTERING);
}

TEST_F(AgentTest, AttachRegistersAgainFromAnyStateAndDetachFails) {
    toState(KvAgent::STATE_SEARCHING);
    agent->onDeviceAttached();
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 1u);
    EXPECT_EQ(agent->getState(), KvAgent::STATE_REGISTERING);
    agent->onDeviceDetached();
    EXPECT_EQ(agent->getState(), KvAgent::STATE_FAILED);
}

TEST_F(AgentTest, FoundPeersAndSearchErrorsMakeTheAgentReadyAndReachTheListener) {
    toState(KvAgent::STATE_SEARCHING);
    const KvPeerAgentPtr peer = peerOf("watch.sensor");
    agent->onFindPeerAgentFound(peer);
    EXPECT_EQ(agent->getState(), KvAgent::STATE_READY);
    agent->onFindPeerAgentUpdated(peer, false);
    agent->onFindPeerAgentError(KV_FIND_PEER_NOT_FOUND);
    ASSERT_EQ(found.events.size(), 3u);
    EXPECT_EQ(found.events[0]->info->getType(), 0);
    EXPECT_EQ(static_cast<EventInfoPeerAgentFindFound&>(*found.events[0]->info).peerAgent, peer);
    EXPECT_EQ(found.events[1]->info->getType(), 1);
    EXPECT_EQ(static_cast<EventInfoPeerAgentFindUpdated&>(*found.events[1]->info).status,
              KV_PEER_AGENT_UNAVAILABLE);
    EXPECT_EQ(found.events[2]->info->getType(), 2);
}

TEST_F(AgentTest, SearchListenerWithoutEmitterFailsWithCodeTwoAndKeepsTheOldOne) {
    auto setListener = std::make_shared<EventKvAgentSetPeerAgentFindListener>();
    DlogCapture log;
    request(*agent, setListener);
    EXPECT_EQ(setListener->getExceptionCode(), 2);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.contains(DLOG_INFO, "called"));
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 0u) << "never registers";
    agent->onFindPeerAgentError(0);
    EXPECT_EQ(found.events.size(), 1u);
}

TEST_F(AgentTest, ConnectionListenerRegistersAnIdleAgent) {
    RecordingListener<EventKvAgentServiceConnectionListener> connections;
    auto setListener = std::make_shared<EventKvAgentSetServiceConnectionListener>();
    setListener->emitter = emitterFor(connections);
    request(*agent, setListener);
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 1u);
    EXPECT_EQ(agent->getState(), KvAgent::STATE_REGISTERING);
    request(*agent, std::make_shared<EventKvAgentSetServiceConnectionListener>());
    agent->onError(KV_CONNECTION_PEERAGENT_REJECTED);
    ASSERT_EQ(connections.events.size(), 1u) << "the listener without emitter changed nothing";
    EXPECT_EQ(static_cast<EventInfoServiceConnectionError&>(*connections.events[0]->info).errorCode,
              KV_CONNECTION_PEERAGENT_REJECTED);
}

TEST_F(AgentTest, ConnectionListenerWithoutEmitterIsLogged) {
    DlogCapture log;
    request(*agent, std::make_shared<EventKvAgentSetServiceConnectionListener>());
    EXPECT_TRUE(log.contains(DLOG_ERROR, "emitter was not set"));
    EXPECT_EQ(agent->getState(), KvAgent::STATE_IDLE);
}

TEST_F(AgentTest, ConnectionRequestBeforeRegistrationIsAnInvalidPeerLater) {
    RecordingListener<EventKvAgentServiceConnectionListener> connections;
    auto setListener = std::make_shared<EventKvAgentSetServiceConnectionListener>();
    setListener->emitter = emitterFor(connections);
    request(*agent, setListener);
    DlogCapture log;
    auto connect = std::make_shared<EventKvAgentRequestServiceConnection>();
    connect->peerAgent = peerOf("watch.sensor");
    request(*agent, connect);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "PeerAgent must be originated from other KvAgent."));
    EXPECT_TRUE(connections.events.empty());
    drainLoop();
    ASSERT_EQ(connections.events.size(), 1u);
    EXPECT_EQ(static_cast<EventInfoServiceConnectionError&>(*connections.events[0]->info).errorCode,
              KV_CONNECTION_INVALID_PEERAGENT);
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 0u);
}

TEST_F(AgentTest, ConnectionRequestToAnotherProfileIsAnInvalidPeer) {
    toState(KvAgent::STATE_READY);
    DlogCapture log;
    auto connect = std::make_shared<EventKvAgentRequestServiceConnection>();
    connect->peerAgent = peerOf("other.profile");
    request(*agent, connect);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "ASP ID is not match"));
    drainLoop();
    EXPECT_EQ(agent->codes, std::vector<int>{KV_CONNECTION_INVALID_PEERAGENT});
    connect = std::make_shared<EventKvAgentRequestServiceConnection>();
    connect->peerAgent = peerOf("watch.sensor");
    request(*agent, connect);
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 1u);
}

TEST_F(AgentTest, AuthenticationBeforeRegistrationFailsAtOnce) {
    DlogCapture log;
    auto authenticate = std::make_shared<EventKvAgentAuthenticatePeerAgent>();
    authenticate->peerAgent = peerOf("watch.sensor");
    request(*agent, authenticate);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "PeerAgent must be originated from other KvAgent."));
    ASSERT_NE(authenticate->error, nullptr);
    EXPECT_EQ(authenticate->error->getCode(), 1);
    EXPECT_EQ(authenticate->error->getMessage(), "Invalid state");
    EXPECT_EQ(KvpDouble::count("authenticatePeerAgent"), 0u);
}

TEST_F(AgentTest, AuthenticationIsAnsweredByHandWhenTheServiceAnswers) {
    toState(KvAgent::STATE_READY);
    RecordingListener<EventKvAgentServiceConnectionListener> unused;
    struct Controller
        : WrtDeviceApis::Commons::EventAnswerReceiver<EventKvAgentAuthenticatePeerAgent> {
        Controller() : EventAnswerReceiver(WrtDeviceApis::Commons::ThreadEnum::NULL_THREAD) {}
        std::vector<DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>> answers;
        void OnAnswerReceived(const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& e) override {
            answers.push_back(e);
        }
    } controller;
    const KvPeerAgentPtr peer = peerOf("watch.sensor", 100);
    auto authenticate = std::make_shared<EventKvAgentAuthenticatePeerAgent>();
    authenticate->peerAgent = peer;
    authenticate->setForSynchronousCall();
    authenticate->setAnswerReceiver(&controller);
    postRequest(*agent, authenticate);
    EXPECT_EQ(authenticate->getExceptionCode(), 0);
    EXPECT_EQ(KvpDouble::count("authenticatePeerAgent"), 1u);
    drainLoop();
    EXPECT_TRUE(controller.answers.empty());
    agent->onAuthenticateResponse(peerOf("watch.sensor", 100), "key-1");
    drainLoop();
    ASSERT_EQ(controller.answers.size(), 1u);
    ASSERT_NE(authenticate->token, nullptr);
    EXPECT_EQ(authenticate->token->getKey(), "key-1");
    EXPECT_EQ(authenticate->token->getAuthenticationType(),
              KV_AUTHENTICATION_TYPE_CERTIFICATE_X509);
    DlogCapture log;
    agent->onAuthenticateResponse(peer, "again");
    EXPECT_TRUE(log.contains(DLOG_ERROR, "peerAgent not exists"));
}

TEST_F(AgentTest, AuthenticationErrorsCarryTheirCodes) {
    toState(KvAgent::STATE_READY);
    auto first = std::make_shared<EventKvAgentAuthenticatePeerAgent>();
    first->peerAgent = peerOf("watch.sensor", 100);
    request(*agent, first);
    auto second = std::make_shared<EventKvAgentAuthenticatePeerAgent>();
    second->peerAgent = peerOf("watch.sensor", 101);
    request(*agent, second);
    DlogCapture log;
    agent->onAuthenticateError(peerOf("watch.sensor", 100), 0);
    agent->onAuthenticateError(peerOf("watch.sensor", 101), 4);
    ASSERT_NE(first->error, nullptr);
    EXPECT_EQ(first->error->getCode(), 1);
    EXPECT_EQ(first->error->getMessage(), "Token is not generated");
    ASSERT_NE(second->error, nullptr);
    EXPECT_EQ(second->error->getCode(), 5);
    EXPECT_EQ(second->error->getMessage(), "Unknown error");
    EXPECT_TRUE(log.contains(DLOG_ERROR, "errorCode is invalid : 4"));
}

TEST_F(AgentTest, AcceptAndRejectOutsideTheRegisteredStatesOnlyLog) {
    DlogCapture log;
    auto accept = std::make_shared<EventKvAgentAcceptServiceConnectionRequest>();
    accept->peerAgent = peerOf("watch.sensor");
    request(*agent, accept);
    auto reject = std::make_shared<EventKvAgentRejectServiceConnectionRequest>();
    reject->peerAgent = peerOf("watch.sensor");
    request(*agent, reject);
    EXPECT_EQ(log.count("PeerAgent must be originated from other KvAgent."), 2u);
    EXPECT_EQ(accept->getExceptionCode(), 0);
    EXPECT_EQ(reject->getExceptionCode(), 0);
}

TEST_F(AgentTest, FileTransferIsMadeOnceOnRequest) {
    EXPECT_EQ(agent->getKvFileTransfer(), nullptr);
    DlogCapture log;
    auto first = request(*agent, std::make_shared<EventKvAgentGetKvFileTransfer>());
    auto second = request(*agent, std::make_shared<EventKvAgentGetKvFileTransfer>());
    ASSERT_NE(first->fileTransfer, nullptr);
    EXPECT_EQ(first->fileTransfer, second->fileTransfer);
    EXPECT_EQ(log.count("creating KvFileTransfer"), 1u);
    EXPECT_EQ(first->fileTransfer->getKvAgent(), agent);
}

TEST_F(AgentTest, SoftResetReturnsTheAgentToIdle) {
    toState(KvAgent::STATE_SEARCHING);
    agent->onSoftReset();
    EXPECT_EQ(agent->getState(), KvAgent::STATE_IDLE);
    EXPECT_EQ(agent->getAgentId(), 0u);
}

// Every request handler of the agent logs "called" before anything else, in
// any state.
TEST_F(AgentTest, EveryRequestHandlerLogsCalledFirst) {
    const auto firstHandlerLine = [](const DlogCapture& log) {
        for (const DlogLine& line : log.lines()) {
            if (line.message.rfind("KvAgent.cpp: OnRequestReceived(", 0) == 0) {
                return line.message.substr(line.message.find("> ") + 2);
            }
        }
        return std::string("(nothing logged)");
    };
    const KvPeerAgentPtr peer = peerOf("watch.sensor");
    auto connect = std::make_shared<EventKvAgentRequestServiceConnection>();
    connect->peerAgent = peer;
    auto authenticate = std::make_shared<EventKvAgentAuthenticatePeerAgent>();
    authenticate->peerAgent = peer;
    auto accept = std::make_shared<EventKvAgentAcceptServiceConnectionRequest>();
    accept->peerAgent = peer;
    auto reject = std::make_shared<EventKvAgentRejectServiceConnectionRequest>();
    reject->peerAgent = peer;
    const std::vector<std::pair<std::string, std::function<void()>>> requests = {
        {"find", [&] { find(); }},
        {"connection listener",
         [&] { request(*agent, std::make_shared<EventKvAgentSetServiceConnectionListener>()); }},
        {"search listener",
         [&] { request(*agent, std::make_shared<EventKvAgentSetPeerAgentFindListener>()); }},
        {"connect", [&] { request(*agent, connect); }},
        {"authenticate", [&] { request(*agent, authenticate); }},
        {"accept", [&] { request(*agent, accept); }},
        {"reject", [&] { request(*agent, reject); }},
        {"file transfer",
         [&] { request(*agent, std::make_shared<EventKvAgentGetKvFileTransfer>()); }},
    };
    for (const auto& [name, send] : requests) {
        DlogCapture log;
        send();
        EXPECT_EQ(firstHandlerLine(log), "called") << name;
    }
    drainLoop();
}
