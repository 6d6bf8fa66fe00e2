#include "KvpTestSupport.h"

using namespace KvpTest;

namespace {

class SocketTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        proxy().onConnected();
        agent = std::make_shared<RecordingAgent>(
            makeInit("watch.sensor", KV_ROLE_PROVIDER, {104, 105}));
        registerAgent(agent, 7);
        KvpDouble::notifications().onServiceCreateConfirm(7, 900, peer.get(), 0);
        socket = agent->sockets.at(0);
    }

    template <class Event>
    DPL::SharedPtr<Event> send(uint16_t channel, const std::string& data) {
        auto event = std::make_shared<Event>();
        event->channelId = channel;
        event->data = data;
        return request(*socket, event);
    }

    void listenForData(RecordingListener<EventKvSocketDataReceiveListener>& listener) {
        auto setListener = std::make_shared<EventKvSocketSetDataReceiveListener>();
        setListener->emitter = emitterFor(listener);
        request(*socket, setListener);
        ASSERT_EQ(setListener->getExceptionCode(), 0);
    }

    DPL::SharedPtr<RecordingAgent> agent;
    KvpDouble::Peer peer{100, "phone.sensor", "watch.sensor"};
    KvSocketPtr socket;
};

}  // namespace

TEST_F(SocketTest, ClosingTwiceLogsAlreadyClosedAndStillTerminates) {
    auto first = request(*socket, std::make_shared<EventKvSocketClose>());
    EXPECT_EQ(first->getExceptionCode(), 0);
    EXPECT_FALSE(socket->isConnected());
    DlogCapture log;
    auto second = request(*socket, std::make_shared<EventKvSocketClose>());
    EXPECT_TRUE(log.contains(DLOG_INFO, "already closed"));
    EXPECT_EQ(second->getExceptionCode(), 0);
    EXPECT_EQ(KvpDouble::count("terminateServiceConnection"), 2u);
}

TEST_F(SocketTest, RefusedCloseIsCodeFive) {
    KvpDouble::setResult("terminateServiceConnection", -1);
    DlogCapture log;
    auto close = request(*socket, std::make_shared<EventKvSocketClose>());
    EXPECT_TRUE(log.contains(DLOG_WARN, "close failed"));
    EXPECT_EQ(close->getExceptionCode(), 5);
}

TEST_F(SocketTest, IsConnectedAnswersTheFlag) {
    EXPECT_TRUE(request(*socket, std::make_shared<EventKvSocketIsConnected>())->connected);
    socket->onConnectionLost(0);
    EXPECT_FALSE(request(*socket, std::make_shared<EventKvSocketIsConnected>())->connected);
}

TEST_F(SocketTest, SendingAfterTheConnectionWasLostIsCodeNineWithoutTheService) {
    socket->onConnectionLost(0);
    DlogCapture log;
    EXPECT_EQ(send<EventKvSocketSendData>(104, "x")->getExceptionCode(), 9);
    EXPECT_EQ(send<EventKvSocketSendSecureData>(104, "x")->getExceptionCode(), 9);
    EXPECT_EQ(log.count("connection closed"), 2u);
    EXPECT_EQ(KvpDouble::count("sendData") + KvpDouble::count("sendSecureData"), 0u);
}

TEST_F(SocketTest, SendingOnChannelZeroOrAnUnlistedChannelIsCodeTwo) {
    DlogCapture log;
    EXPECT_EQ(send<EventKvSocketSendData>(0, "x")->getExceptionCode(), 2);
    EXPECT_EQ(send<EventKvSocketSendData>(106, "x")->getExceptionCode(), 2);
    EXPECT_TRUE(log.contains(DLOG_INFO, "Wrong channelID"));
    EXPECT_EQ(KvpDouble::count("sendData"), 0u);
}

TEST_F(SocketTest, SendingOnAListedChannelReachesTheService) {
    EXPECT_EQ(send<EventKvSocketSendData>(105, "hello")->getExceptionCode(), 0);
    EXPECT_EQ(send<EventKvSocketSendSecureData>(104, "secret")->getExceptionCode(), 0);
    EXPECT_EQ(KvpDouble::callsTo("sendData")[0].args,
              (std::vector<std::string>{"900", "105", "5", "hello"}));
    EXPECT_EQ(KvpDouble::callsTo("sendSecureData")[0].args[3], "secret");
}

TEST_F(SocketTest, RefusedSendIsCodeFive) {
    KvpDouble::setResult("sendData", -1);
    KvpDouble::setResult("sendSecureData", 1);
    DlogCapture log;
    EXPECT_EQ(send<EventKvSocketSendData>(104, "x")->getExceptionCode(), 5);
    EXPECT_EQ(send<EventKvSocketSendSecureData>(104, "x")->getExceptionCode(), 5);
    EXPECT_TRUE(log.contains(DLOG_WARN, "sendData failed"));
    EXPECT_TRUE(log.contains(DLOG_WARN, "sendSecureData failed"));
}

TEST_F(SocketTest, DataBeforeAListenerIsDroppedSilently) {
    DlogCapture log;
    KvpDouble::notifications().onDataIndication(900, 104, 5, "early");
    RecordingListener<EventKvSocketDataReceiveListener> data;
    listenForData(data);
    EXPECT_TRUE(data.events.empty());
    EXPECT_EQ(log.count("Error"), 0u);
    KvpDouble::notifications().onDataIndication(900, 104, 4, "late");
    ASSERT_EQ(data.events.size(), 1u);
    EXPECT_EQ(data.events[0]->data, "late");
}

TEST_F(SocketTest, SettingAListenerTwiceKeepsOnlyTheSecond) {
    RecordingListener<EventKvSocketDataReceiveListener> first;
    RecordingListener<EventKvSocketDataReceiveListener> second;
    listenForData(first);
    listenForData(second);
    KvpDouble::notifications().onDataIndication(900, 105, 2, "hi");
    EXPECT_TRUE(first.events.empty());
    ASSERT_EQ(second.events.size(), 1u);
    EXPECT_EQ(second.events[0]->channelId, 105u);
}

TEST_F(SocketTest, ListenerWithoutEmitterIsCodeSix) {
    DlogCapture log;
    auto data = request(*socket, std::make_shared<EventKvSocketSetDataReceiveListener>());
    auto status = request(*socket, std::make_shared<EventKvSocketSetSocketStatusListener>());
    EXPECT_EQ(data->getExceptionCode(), 6);
    EXPECT_EQ(status->getExceptionCode(), 6);
    EXPECT_TRUE(
        log.contains(DLOG_ERROR, "Error during set onreceive callback : Invalid arguments."));
    EXPECT_TRUE(log.contains(DLOG_ERROR,
                             "Error during set onconnection lost callback : Invalid arguments."));
}

TEST_F(SocketTest, LossReachesTheStatusListenerWithItsReason) {
    RecordingListener<EventKvSocketSocketStatusListener> status;
    auto setListener = std::make_shared<EventKvSocketSetSocketStatusListener>();
    setListener->emitter = emitterFor(status);
    request(*socket, setListener);
    socket->onConnectionLost(0);
    ASSERT_EQ(status.events.size(), 1u);
    EXPECT_EQ(status.events[0]->reason, 0);
}

TEST_F(SocketTest, NewSocketIsClosedUntilItHasAConnection) {
    KvSocket fresh;
    EXPECT_FALSE(fresh.isConnected());
    fresh.setConnectionId(5);
    EXPECT_TRUE(fresh.isConnected());
    EXPECT_EQ(fresh.getConnectionId(), 5u);
}
