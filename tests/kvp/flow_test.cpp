// Flows across several native objects: the manager's agents registering one
// after another, soft reset with a deferred connection, detach with open
// connections and transfers, and the rule that no answer is delivered inside
// the request that caused it.
#include "KvpTestSupport.h"

#include <KvManager.h>

using namespace KvpTest;

namespace {

class FlowTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        proxy().onConnected();
    }

    // An agent with a search and a connection listener.
    struct ListenedAgent {
        KvAgentPtr agent;
        std::unique_ptr<RecordingListener<EventKvAgentPeerAgentFindListener>> found =
            std::make_unique<RecordingListener<EventKvAgentPeerAgentFindListener>>();
        std::unique_ptr<RecordingListener<EventKvAgentServiceConnectionListener>> connections =
            std::make_unique<RecordingListener<EventKvAgentServiceConnectionListener>>();
    };

    ListenedAgent listenedAgent(const std::string& id) {
        ListenedAgent listened;
        listened.agent = std::make_shared<KvAgent>(makeInit(id));
        auto find = std::make_shared<EventKvAgentSetPeerAgentFindListener>();
        find->emitter = emitterFor(*listened.found);
        request(*listened.agent, find);
        auto connect = std::make_shared<EventKvAgentSetServiceConnectionListener>();
        connect->emitter = emitterFor(*listened.connections);
        request(*listened.agent, connect);
        return listened;
    }

    static void findPeers(const KvAgentPtr& agent) {
        postRequest(*agent, std::make_shared<EventKvAgentFindPeerAgents>());
    }

    static KvPeerAgentPtr foundPeer(const ListenedAgent& listened, size_t index) {
        return static_cast<EventInfoPeerAgentFindFound&>(*listened.found->events.at(index)->info)
            .peerAgent;
    }

    static KvSocketPtr connectedSocket(const ListenedAgent& listened) {
        for (const auto& event : listened.connections->events) {
            if (event->info->getType() == 1) {
                return static_cast<EventInfoServiceConnectionConnect&>(*event->info).socket;
            }
        }
        return nullptr;
    }

    // Registers the agent as 8, opens a connection `connectionId` to the peer
    // agent `peerId` and sets `status` as the socket's status listener.
    static KvSocketPtr watchedSocket(const ListenedAgent& listened, unsigned int peerId,
                                     unsigned int connectionId,
                                     RecordingListener<EventKvSocketSocketStatusListener>& status) {
        KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 8);
        drainLoop();
        KvpDouble::Peer peer(peerId, "phone", "watch");
        KvpDouble::notifications().onServiceCreateConfirm(8, connectionId, peer.get(), 0);
        KvSocketPtr socket = connectedSocket(listened);
        if (socket != nullptr) {
            auto statusListener = std::make_shared<EventKvSocketSetSocketStatusListener>();
            statusListener->emitter = emitterFor(status);
            request(*socket, statusListener);
        }
        return socket;
    }
};

}  // namespace

TEST_F(FlowTest, AgentsRegisterOneAfterAnotherAndEachThenSearches) {
    ListenedAgent first = listenedAgent("first");
    ListenedAgent second = listenedAgent("second");
    ListenedAgent third = listenedAgent("third");
    // The connection listeners started three registrations; one is in flight.
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 1u);
    findPeers(first.agent);
    findPeers(second.agent);
    findPeers(third.agent);
    drainLoop();
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 1);
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 2);
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 3);
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 3u);
    EXPECT_EQ(KvpDouble::count("findPeerAgent"), 0u) << "successes are posted to the main loop";
    drainLoop();
    const auto searches = KvpDouble::callsTo("findPeerAgent");
    ASSERT_EQ(searches.size(), 3u);
    EXPECT_EQ(searches[0].args[0], "1");
    EXPECT_EQ(searches[1].args[0], "2");
    EXPECT_EQ(searches[2].args[0], "3");
    KvpDouble::Peer peer(50, "phone", "second");
    KvpDouble::notifications().onPeerAgent(2, peer.get(), 0);
    ASSERT_EQ(second.found->events.size(), 1u);
    EXPECT_TRUE(first.found->events.empty());
}

TEST_F(FlowTest, SearchErrorsAreNeverDeliveredInsideTheirRequest) {
    ListenedAgent listened = listenedAgent("watch");
    KvpDouble::setResult("findPeerAgent", -1);
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 8);
    drainLoop();
    request(*listened.agent, std::make_shared<EventKvAgentFindPeerAgents>());
    EXPECT_TRUE(listened.found->events.empty());
    drainLoop();
    ASSERT_EQ(listened.found->events.size(), 1u);
    EXPECT_EQ(static_cast<EventInfoPeerAgentFindError&>(*listened.found->events[0]->info).errorCode,
              KV_FIND_DEVICE_NOT_CONNECTED);
}

TEST_F(FlowTest, SoftResetDefersANewConnectionToTheSamePeerUntilTheOldOneEnds) {
    ListenedAgent listened = listenedAgent("watch");
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 8);
    drainLoop();
    findPeers(listened.agent);
    drainLoop();
    KvpDouble::Peer peer(60, "phone", "watch");
    KvpDouble::notifications().onPeerAgent(8, peer.get(), 0);
    auto connect = std::make_shared<EventKvAgentRequestServiceConnection>();
    connect->peerAgent = foundPeer(listened, 0);
    request(*listened.agent, connect);
    KvpDouble::notifications().onServiceCreateConfirm(8, 700, peer.get(), 0);
    ASSERT_NE(connectedSocket(listened), nullptr);

    proxy().softReset();
    EXPECT_EQ(KvpDouble::callsTo("terminateServiceConnection").at(0).args[0], "700");
    EXPECT_EQ(listened.agent->getState(), KvAgent::STATE_IDLE);
    // The page comes back: the agent registers again and asks for the peer again.
    findPeers(listened.agent);
    drainLoop();
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 9);
    drainLoop();
    KvpDouble::notifications().onPeerAgent(9, peer.get(), 0);
    auto again = std::make_shared<EventKvAgentRequestServiceConnection>();
    again->peerAgent = foundPeer(listened, 1);
    request(*listened.agent, again);
    EXPECT_EQ(KvpDouble::count("createServiceConnection"), 1u) << "deferred";
    KvpDouble::notifications().onServiceTerminationIndication(700, 0);
    const auto creates = KvpDouble::callsTo("createServiceConnection");
    ASSERT_EQ(creates.size(), 2u);
    EXPECT_EQ(creates[1].args, (std::vector<std::string>{"9", "60"}));
}

TEST_F(FlowTest, DetachEndsConnectionsAndTransfersThroughTheirListeners) {
    ListenedAgent listened = listenedAgent("watch");
    RecordingListener<EventKvSocketSocketStatusListener> status;
    const KvSocketPtr socket = watchedSocket(listened, 61, 701, status);
    ASSERT_NE(socket, nullptr);

    const KvFileTransferPtr transfer =
        request(*listened.agent, std::make_shared<EventKvAgentGetKvFileTransfer>())->fileTransfer;
    RecordingListener<EventKvFileTransferFileSendListener> sends;
    auto sendListener = std::make_shared<EventKvFileTransferSetFileSendListener>();
    sendListener->emitter = emitterFor(sends);
    request(*transfer, sendListener);
    KvpDouble::setResult("pushFile", 33);
    auto send = std::make_shared<EventKvFileTransferSendFile>();
    send->peerAgent = socket->getPeerAgent();
    send->fileUri = "documents/report.txt";
    request(*transfer, send);
    ASSERT_EQ(send->transferId, 33);

    KvpDouble::notifications().onDeviceStatus(4, 0);
    ASSERT_EQ(status.events.size(), 1u);
    EXPECT_EQ(status.events[0]->reason, KV_SOCKET_DEVICE_DETACHED);
    ASSERT_EQ(sends.events.size(), 1u);
    const auto& error = static_cast<EventInfoFileSendError&>(*sends.events[0]->info);
    EXPECT_EQ(error.transferId, 33);
    EXPECT_EQ(error.errorCode, KV_FILE_SEND_PEER_CONN_LOST);
    EXPECT_EQ(listened.agent->getState(), KvAgent::STATE_FAILED);
    findPeers(listened.agent);
    drainLoop();
    EXPECT_EQ(
        static_cast<EventInfoPeerAgentFindError&>(*listened.found->events.back()->info).errorCode,
        KV_FIND_DEVICE_NOT_CONNECTED);
}

// A connection that its peer closed stays in the bridge's table with its
// listener: the detach that follows reaches it too.
TEST_F(FlowTest, APeerClosedConnectionHearsTheLaterDetachToo) {
    ListenedAgent listened = listenedAgent("watch");
    RecordingListener<EventKvSocketSocketStatusListener> status;
    const KvSocketPtr socket = watchedSocket(listened, 63, 703, status);
    ASSERT_NE(socket, nullptr);

    KvpDouble::notifications().onServiceTerminationIndication(703, KV_SOCKET_PEER_DISCONNECTED);
    drainLoop();
    EXPECT_FALSE(socket->isConnected());
    KvpDouble::notifications().onDeviceStatus(4, 0);
    ASSERT_EQ(status.events.size(), 2u);
    EXPECT_EQ(status.events[0]->reason, KV_SOCKET_PEER_DISCONNECTED);
    EXPECT_EQ(status.events[1]->reason, KV_SOCKET_DEVICE_DETACHED);
}

TEST_F(FlowTest, AcceptedConnectionArrivesAfterTheIndicationReturned) {
    ListenedAgent listened = listenedAgent("watch");
    KvpDouble::notifications().onRegisterServiceAgentConfirm(0, 8);
    drainLoop();
    struct Accepting : RecordingListener<EventKvAgentServiceConnectionListener> {
        KvAgentPtr agent;
        void onAnswerReceived(
            const DPL::SharedPtr<EventKvAgentServiceConnectionListener>& e) override {
            RecordingListener::onAnswerReceived(e);
            if (e->info->getType() == 0) {
                auto accept = std::make_shared<EventKvAgentAcceptServiceConnectionRequest>();
                accept->peerAgent =
                    static_cast<EventInfoServiceConnectionRequest&>(*e->info).peerAgent;
                request(*agent, accept);
            }
        }
    } accepting;
    accepting.agent = listened.agent;
    auto connect = std::make_shared<EventKvAgentSetServiceConnectionListener>();
    connect->emitter = emitterFor<EventKvAgentServiceConnectionListener>(accepting);
    request(*listened.agent, connect);

    KvpDouble::Peer peer(62, "phone", "watch");
    KvpDouble::notifications().onServiceConnectionIndication(8, 702, peer.get());
    ASSERT_EQ(accepting.events.size(), 1u) << "only the request so far";
    EXPECT_EQ(KvpDouble::callsTo("acceptServiceConnection").at(0).args[1], "702");
    drainLoop();
    ASSERT_EQ(accepting.events.size(), 2u);
    EXPECT_EQ(accepting.events[1]->info->getType(), 1);
}
