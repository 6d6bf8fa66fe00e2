#include "KvpTestSupport.h"

using namespace KvpTest;

namespace {

class FileTransferTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        proxy().onConnected();
        agent = std::make_shared<RecordingAgent>(makeInit("watch.sensor"));
        registerAgent(agent, 7);
        transfer = request(*agent, std::make_shared<EventKvAgentGetKvFileTransfer>())->fileTransfer;
        KvpDouble::notifications().onPeerAgent(7, peer.get(), 0);
        peerAgent = agent->peers.at(0);
    }

    void listenForOffers() {
        auto setListener = std::make_shared<EventKvFileTransferSetFileReceiveListener>();
        setListener->emitter = emitterFor(received);
        request(*transfer, setListener);
    }

    void listenForSends() {
        auto setListener = std::make_shared<EventKvFileTransferSetFileSendListener>();
        setListener->emitter = emitterFor(sent);
        request(*transfer, setListener);
    }

    DPL::SharedPtr<EventKvFileTransferReceiveFile> receive(int id,
                                                           const std::string& savePath = "") {
        auto event = std::make_shared<EventKvFileTransferReceiveFile>();
        event->transferId = id;
        event->savePath = savePath;
        return request(*transfer, event);
    }

    template <class Event>
    DPL::SharedPtr<Event> withId(int id) {
        auto event = std::make_shared<Event>();
        event->transferId = id;
        return request(*transfer, event);
    }

    DPL::SharedPtr<RecordingAgent> agent;
    KvFileTransferPtr transfer;
    KvpDouble::Peer peer{100, "phone.sensor", "watch.sensor"};
    KvPeerAgentPtr peerAgent;
    RecordingListener<EventKvFileTransferFileReceiveListener> received;
    RecordingListener<EventKvFileTransferFileSendListener> sent;
};

}  // namespace

TEST_F(FileTransferTest, ReceivingWithoutASavePathUsesTheDownloadsFolder) {
    listenForOffers();
    KvpDouble::ftNotifications().onSendFile(11, "/sdcard/photo.jpg", 7);
    ASSERT_EQ(received.events.size(), 1u);
    EXPECT_EQ(static_cast<EventInfoFileReceiveReceive&>(*received.events[0]->info).fileName,
              "photo.jpg");
    DlogCapture log;
    EXPECT_EQ(receive(11)->getExceptionCode(), 0);
    EXPECT_TRUE(log.contains(DLOG_INFO, "using defaultFilePath"));
    EXPECT_EQ(KvpDouble::callsTo("receiveFile")[0].args,
              (std::vector<std::string>{"11", "/opt/usr/media/Downloads/photo.jpg", "1"}));
}

TEST_F(FileTransferTest, ReceivingWithASavePathUsesItAsTheFile) {
    listenForOffers();
    KvpDouble::ftNotifications().onSendFile(12, "photo.jpg", 7);
    EXPECT_EQ(receive(12, "documents/kept.jpg")->getExceptionCode(), 0);
    EXPECT_EQ(KvpDouble::callsTo("receiveFile")[0].args[1], "/opt/usr/media/Documents/kept.jpg");
}

TEST_F(FileTransferTest, ReceivingTheSameIdTwiceFailsTheSecondTimeEvenAfterAFailure) {
    listenForOffers();
    KvpDouble::ftNotifications().onSendFile(13, "a.txt", 7);
    KvpDouble::setResult("receiveFile", -1);
    DlogCapture log;
    EXPECT_EQ(receive(13)->getExceptionCode(), 5);
    EXPECT_TRUE(log.contains(DLOG_WARN, "receiveFile failed"));
    EXPECT_EQ(receive(13)->getExceptionCode(), 18);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "no transfer Id"));
}

TEST_F(FileTransferTest, BadSavePathIsCodeTwoAndUsesUpTheOffer) {
    listenForOffers();
    KvpDouble::ftNotifications().onSendFile(14, "a.txt", 7);
    DlogCapture log;
    EXPECT_EQ(receive(14, "http://example.org/a.txt")->getExceptionCode(), 2);
    EXPECT_TRUE(log.contains(DLOG_WARN, "Invalid file scheme"));
    EXPECT_EQ(KvpDouble::count("receiveFile"), 0u);
    EXPECT_EQ(receive(14)->getExceptionCode(), 18);
}

TEST_F(FileTransferTest, OfferWithoutAReceiveListenerCannotBeAccepted) {
    KvpDouble::ftNotifications().onSendFile(15, "a.txt", 7);
    EXPECT_EQ(receive(15)->getExceptionCode(), 18);
    EXPECT_EQ(withId<EventKvFileTransferRejectFile>(15)->getExceptionCode(), 18);
}

TEST_F(FileTransferTest, RejectAnswersTheOfferWithoutAPath) {
    listenForOffers();
    KvpDouble::ftNotifications().onSendFile(16, "a.txt", 7);
    EXPECT_EQ(withId<EventKvFileTransferRejectFile>(16)->getExceptionCode(), 0);
    EXPECT_EQ(KvpDouble::callsTo("receiveFile")[0].args, (std::vector<std::string>{"16", "", "0"}));
    EXPECT_EQ(withId<EventKvFileTransferRejectFile>(16)->getExceptionCode(), 18);
    KvpDouble::ftNotifications().onSendFile(17, "b.txt", 7);
    KvpDouble::setResult("receiveFile", -1);
    DlogCapture log;
    EXPECT_EQ(withId<EventKvFileTransferRejectFile>(17)->getExceptionCode(), 5);
    EXPECT_TRUE(log.contains(DLOG_WARN, "rejectFile failed"));
}

TEST_F(FileTransferTest, RejectOfAnIdNeverOfferedLogsNoTransferId) {
    listenForOffers();
    DlogCapture log;
    EXPECT_EQ(withId<EventKvFileTransferRejectFile>(18)->getExceptionCode(), 18);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "no transfer Id"));
    EXPECT_EQ(KvpDouble::count("receiveFile"), 0u);
}

TEST_F(FileTransferTest, SendNeverSeesANegativeIdFromTheBridge) {
    // The library answers a new id or -1 (its contract); the bridge turns -1
    // into a random non-negative id and a later FILE_IO error, so the send
    // always succeeds here and its refusal branch is never taken.
    listenForSends();
    int refusedId = -1;
    for (int pushed : {-1, 0, 1, 2, 4000}) {
        KvpDouble::setResult("pushFile", pushed);
        auto send = std::make_shared<EventKvFileTransferSendFile>();
        send->peerAgent = peerAgent;
        send->fileUri = "documents/a.txt";
        request(*transfer, send);
        EXPECT_EQ(send->getExceptionCode(), 0) << "pushFile " << pushed;
        EXPECT_GE(send->transferId, 0) << "pushFile " << pushed;
        if (pushed >= 0) {
            EXPECT_EQ(send->transferId, pushed);
        } else {
            refusedId = send->transferId;
        }
    }
    drainLoop();
    ASSERT_EQ(sent.events.size(), 1u);
    const auto& error = static_cast<EventInfoFileSendError&>(*sent.events[0]->info);
    EXPECT_EQ(error.errorCode, KV_FILE_SEND_FILE_IO);
    EXPECT_EQ(error.transferId, refusedId);
}

TEST_F(FileTransferTest, ReceiveNeverAnswersCodeTwoForALibraryAnswer) {
    // The bridge tells only whether the library refused, so every refusal,
    // the library's 2 included, is code 5; code 2 stays for a bad save path.
    listenForOffers();
    int id = 60;
    for (int result : {-2, -1, 1, 2, 7}) {
        KvpDouble::ftNotifications().onSendFile(id, "a.txt", 7);
        KvpDouble::setResult("receiveFile", result);
        EXPECT_EQ(receive(id)->getExceptionCode(), 5) << "receiveFile " << result;
        ++id;
    }
}

TEST_F(FileTransferTest, CancelCodesFollowTheBridgesAnswer) {
    DlogCapture log;
    EXPECT_EQ(withId<EventKvFileTransferCancelFile>(99)->getExceptionCode(), 18);
    EXPECT_TRUE(log.contains(DLOG_WARN, "No transferId"));
    KvpDouble::setResult("pushFile", 20);
    auto send = std::make_shared<EventKvFileTransferSendFile>();
    send->peerAgent = peerAgent;
    send->fileUri = "documents/a.txt";
    request(*transfer, send);
    EXPECT_EQ(withId<EventKvFileTransferCancelFile>(20)->getExceptionCode(), 0);
    KvpDouble::setResult("cancelFile", -1);
    EXPECT_EQ(withId<EventKvFileTransferCancelFile>(20)->getExceptionCode(), 5);
    EXPECT_TRUE(log.contains(DLOG_WARN, "cancelFile failed"));
}

TEST_F(FileTransferTest, SendConvertsTheUriAndAnswersTheTransferId) {
    KvpDouble::setResult("pushFile", 21);
    auto send = std::make_shared<EventKvFileTransferSendFile>();
    send->peerAgent = peerAgent;
    send->fileUri = "file:///opt/usr/media/Images/a.png";
    request(*transfer, send);
    EXPECT_EQ(send->getExceptionCode(), 0);
    EXPECT_EQ(send->transferId, 21);
    EXPECT_EQ(KvpDouble::callsTo("pushFile")[0].args[0], "/opt/usr/media/Images/a.png");
}

TEST_F(FileTransferTest, SendOfANonFileUriIsCodeTwo) {
    DlogCapture log;
    for (const char* uri : {"http://example.org/a", "", "relative/a.txt"}) {
        auto send = std::make_shared<EventKvFileTransferSendFile>();
        send->peerAgent = peerAgent;
        send->fileUri = uri;
        EXPECT_EQ(request(*transfer, send)->getExceptionCode(), 2) << uri;
    }
    EXPECT_EQ(log.count("Invalid file scheme"), 3u);
    EXPECT_EQ(KvpDouble::count("pushFile"), 0u);
}

TEST_F(FileTransferTest, CompletionPathsBecomeUrisAndAFileUriStaysAsItIs) {
    listenForSends();
    listenForOffers();
    transfer->onFileSendComplete(30, "/opt/usr/media/Documents/a.txt");
    transfer->onFileReceiveComplete(31, "file:///opt/usr/media/Downloads/b.txt");
    EXPECT_EQ(static_cast<EventInfoFileSendComplete&>(*sent.events.at(0)->info).fileUri,
              "file:///opt/usr/media/Documents/a.txt");
    EXPECT_EQ(static_cast<EventInfoFileReceiveComplete&>(*received.events.at(0)->info).fileUri,
              "file:///opt/usr/media/Downloads/b.txt");
}

TEST_F(FileTransferTest, ProgressAndErrorsReachTheirListeners) {
    listenForSends();
    listenForOffers();
    transfer->onFileSendProgress(40, 10);
    transfer->onFileSendError(KV_FILE_SEND_PEER_BUSY, 40);
    transfer->onFileReceiveProgress(41, 20);
    transfer->onFileReceiveError(KV_FILE_RECEIVE_PEER_CHANNEL_IO, 41);
    ASSERT_EQ(sent.events.size(), 2u);
    EXPECT_EQ(sent.events[0]->info->getType(), 0);
    EXPECT_EQ(static_cast<EventInfoFileSendProgress&>(*sent.events[0]->info).progress, 10);
    EXPECT_EQ(static_cast<EventInfoFileSendError&>(*sent.events[1]->info).errorCode, 1);
    ASSERT_EQ(received.events.size(), 2u);
    EXPECT_EQ(received.events[0]->info->getType(), 1);
    EXPECT_EQ(received.events[1]->info->getType(), 3);
}

TEST_F(FileTransferTest, EndOfAnOfferedTransferForgetsTheOffer) {
    listenForOffers();
    KvpDouble::ftNotifications().onSendFile(50, "a.txt", 7);
    transfer->onFileReceiveError(KV_FILE_RECEIVE_PEER_CONN_LOST, 50);
    EXPECT_EQ(receive(50)->getExceptionCode(), 18);
}

TEST_F(FileTransferTest, ListenerWithoutEmitterIsCodeSix) {
    DlogCapture log;
    auto send = request(*transfer, std::make_shared<EventKvFileTransferSetFileSendListener>());
    auto receive =
        request(*transfer, std::make_shared<EventKvFileTransferSetFileReceiveListener>());
    EXPECT_EQ(send->getExceptionCode(), 6);
    EXPECT_EQ(receive->getExceptionCode(), 6);
    EXPECT_TRUE(
        log.contains(DLOG_ERROR, "Error during set file send callback : Invalid arguments."));
    EXPECT_TRUE(
        log.contains(DLOG_ERROR, "Error during set file receive callback : Invalid arguments."));
}

TEST_F(FileTransferTest, DefaultFolderIsTheDownloadsFolder) {
    EXPECT_EQ(transfer->getDefaultFilePath(), "/opt/usr/media/Downloads/");
}
