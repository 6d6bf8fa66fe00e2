#include "KvpTestSupport.h"

using namespace KvpTest;

namespace {

class ProxyFileTransferTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        proxy().onConnected();
        agent = std::make_shared<RecordingAgent>(makeInit("watch.sensor"));
        registerAgent(agent, 7);
        transfer = std::make_shared<RecordingFileTransfer>(agent);
        agent->recordingTransfer = transfer;
        KvpDouble::notifications().onPeerAgent(7, peer.get(), 0);
        peerAgent = agent->peers.at(0);
    }

    DPL::SharedPtr<RecordingAgent> agent;
    DPL::SharedPtr<RecordingFileTransfer> transfer;
    KvpDouble::Peer peer{100, "phone.sensor", "watch.sensor"};
    KvPeerAgentPtr peerAgent;
};

}  // namespace

TEST_F(ProxyFileTransferTest, SendHandsThePathPeerAndAgentToTheLibrary) {
    KvpDouble::setResult("pushFile", 41);
    DlogCapture log;
    EXPECT_EQ(proxy().sendFile(transfer, peerAgent, "/opt/usr/media/Documents/a.txt"), 41);
    EXPECT_EQ(
        KvpDouble::callsTo("pushFile")[0].args,
        (std::vector<std::string>{"/opt/usr/media/Documents/a.txt", "100", "7", "terminated"}));
    EXPECT_TRUE(log.contains(DLOG_INFO, ">>>>>> ::pushFile()"));
    EXPECT_TRUE(log.contains(DLOG_INFO, ">>>>>> ::pushFile returns (transactionId : 41)"));
    KvpDouble::ftNotifications().onFileProgress(41, 50);
    EXPECT_EQ(transfer->calls, std::vector<std::string>{"onFileSendProgress:41:50"});
}

TEST_F(ProxyFileTransferTest, RefusedSendGivesARandomIdAndALaterError) {
    KvpDouble::setResult("pushFile", -1);
    DlogCapture log;
    const int id = proxy().sendFile(transfer, peerAgent, "/opt/usr/media/Documents/a.txt");
    EXPECT_GE(id, 0);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "sendFile failed."));
    EXPECT_TRUE(transfer->calls.empty());
    drainLoop();
    EXPECT_EQ(transfer->calls, std::vector<std::string>{"onFileSendError:0:" + std::to_string(id)});
}

TEST_F(ProxyFileTransferTest, LongPathIsCutTo255Characters) {
    const std::string path = "/" + std::string(299, 'p');
    proxy().sendFile(transfer, peerAgent, path);
    proxy().receiveFile(transfer, 5, path, true);
    EXPECT_EQ(KvpDouble::callsTo("pushFile")[0].args[0], path.substr(0, 255));
    EXPECT_EQ(KvpDouble::callsTo("pushFile")[0].args[3], "terminated");
    EXPECT_EQ(KvpDouble::callsTo("receiveFile")[0].args[1], path.substr(0, 255));
}

TEST_F(ProxyFileTransferTest, CancelOfAnIdInNoTableReturnsTwoAndCallsNothing) {
    EXPECT_EQ(proxy().cancelFile(transfer, 77), 2);
    EXPECT_EQ(KvpDouble::count("cancelFile"), 0u);
}

TEST_F(ProxyFileTransferTest, CancelTellsWhichDirectionItCancels) {
    KvpDouble::setResult("pushFile", 42);
    proxy().sendFile(transfer, peerAgent, "/a");
    proxy().receiveFile(transfer, 43, "/b", true);
    DlogCapture log;
    EXPECT_EQ(proxy().cancelFile(transfer, 42), 0);
    EXPECT_TRUE(log.contains(DLOG_INFO, "Canceling sending file"));
    KvpDouble::setResult("cancelFile", 3);
    EXPECT_EQ(proxy().cancelFile(transfer, 43), 1);
    EXPECT_TRUE(log.contains(DLOG_INFO, "Canceling receiving file"));
    EXPECT_TRUE(log.contains(DLOG_WARN, "cancelFile returns wrong value : 3"));
    KvpDouble::setResult("cancelFile", 0);
    EXPECT_EQ(proxy().cancelFile(transfer, 42), 0) << "tables change only on completion";
}

TEST_F(ProxyFileTransferTest, SendStatusesMapToSendErrors) {
    const std::vector<std::pair<int, int>> mapping = {{1, 2}, {2, 0}, {3, 8}, {4, 4},
                                                      {5, 3}, {9, 5}, {11, 7}};
    int id = 100;
    for (const auto& [status, code] : mapping) {
        KvpDouble::queueResult("pushFile", ++id);
        proxy().sendFile(transfer, peerAgent, "/a");
        KvpDouble::ftNotifications().onSendComplete(id, "/a", status);
        EXPECT_EQ(transfer->calls.back(),
                  "onFileSendError:" + std::to_string(code) + ":" + std::to_string(id));
    }
    KvpDouble::queueResult("pushFile", 200);
    proxy().sendFile(transfer, peerAgent, "/a");
    DlogCapture log;
    KvpDouble::ftNotifications().onSendComplete(200, "/a", 6);
    EXPECT_TRUE(log.contains(DLOG_WARN, "File send failed with wrong status : 6"));
    EXPECT_EQ(transfer->calls.back(), "onFileSendError:8:200");
}

TEST_F(ProxyFileTransferTest, ReceiveStatusesMapToReceiveErrors) {
    const std::vector<std::pair<int, int>> mapping = {{1, 1}, {2, 0}, {3, 6}, {4, 3},
                                                      {5, 2}, {9, 4}, {11, 5}};
    int id = 300;
    for (const auto& [status, code] : mapping) {
        proxy().receiveFile(transfer, ++id, "/b", true);
        KvpDouble::ftNotifications().onReceiveComplete(id, "/b", status);
        EXPECT_EQ(transfer->calls.back(),
                  "onFileReceiveError:" + std::to_string(code) + ":" + std::to_string(id));
    }
    proxy().receiveFile(transfer, 400, "/b", true);
    DlogCapture log;
    KvpDouble::ftNotifications().onReceiveComplete(400, "/b", 6);
    EXPECT_TRUE(log.contains(DLOG_WARN, "File receive failed with wrong status : 6"));
    EXPECT_EQ(transfer->calls.back(), "onFileReceiveError:6:400");
}

TEST_F(ProxyFileTransferTest, CompletionOfAnIdAlreadyCompletedIsWarnedAndDropped) {
    KvpDouble::setResult("pushFile", 51);
    proxy().sendFile(transfer, peerAgent, "/a");
    KvpDouble::ftNotifications().onSendComplete(51, "/a", 0);
    EXPECT_EQ(transfer->calls.back(), "onFileSendComplete:51:/a");
    DlogCapture log;
    KvpDouble::ftNotifications().onSendComplete(51, "/a", 0);
    KvpDouble::ftNotifications().onReceiveComplete(52, "/b", 0);
    KvpDouble::ftNotifications().onFileProgress(53, 1);
    EXPECT_EQ(log.count("there is no transactionId:"), 3u);
    EXPECT_EQ(transfer->calls.size(), 1u);
}

TEST_F(ProxyFileTransferTest, ReceiveCompletionUsesTheStoredPathWhenTheLibraryGivesNone) {
    EXPECT_FALSE(proxy().receiveFile(transfer, 61, "/opt/usr/media/Downloads/c.txt", true));
    EXPECT_EQ(KvpDouble::callsTo("receiveFile")[0].args,
              (std::vector<std::string>{"61", "/opt/usr/media/Downloads/c.txt", "1"}));
    KvpDouble::ftNotifications().onFileProgress(61, 30);
    KvpDouble::ftNotifications().onReceiveComplete(61, nullptr, 0);
    EXPECT_EQ(transfer->calls, (std::vector<std::string>{
                                   "onFileReceiveProgress:61:30",
                                   "onFileReceiveComplete:61:/opt/usr/media/Downloads/c.txt"}));
    proxy().receiveFile(transfer, 62, "/stored", true);
    KvpDouble::ftNotifications().onReceiveComplete(62, "/from/library", 0);
    EXPECT_EQ(transfer->calls.back(), "onFileReceiveComplete:62:/from/library");
}

TEST_F(ProxyFileTransferTest, RefusedReceiveIsReportedAndNotRecorded) {
    KvpDouble::setResult("receiveFile", 4);
    DlogCapture log;
    EXPECT_TRUE(proxy().receiveFile(transfer, 71, "/b", true));
    EXPECT_TRUE(log.contains(DLOG_WARN, "receiveFile returns wrong value : 4"));
    EXPECT_EQ(proxy().cancelFile(transfer, 71), 2);
}

TEST_F(ProxyFileTransferTest, OfferedNameLosesTheBackslashBeforeASlash) {
    KvpDouble::ftNotifications().onSendFile(81, "dir\\/photo.jpg", 7);
    EXPECT_EQ(transfer->calls, std::vector<std::string>{"onFileReceive:81:dir/photo.jpg"});
}

TEST_F(ProxyFileTransferTest, OfferForAnUnknownAgentOrAnAgentWithoutTransferIsLogged) {
    DlogCapture log;
    KvpDouble::ftNotifications().onSendFile(82, "a.txt", 99);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "No related KvAgent object"));
    agent->recordingTransfer.reset();
    KvpDouble::ftNotifications().onSendFile(83, "a.txt", 7);
    EXPECT_TRUE(log.contains(DLOG_ERROR, "No KvFileTransfer object"));
    EXPECT_TRUE(transfer->calls.empty());
}

TEST_F(ProxyFileTransferTest, OfferedNameIsCutTo255Characters) {
    const std::string name(300, 'n');
    KvpDouble::ftNotifications().onSendFile(84, name.c_str(), 7);
    EXPECT_EQ(transfer->calls, std::vector<std::string>{"onFileReceive:84:" + name.substr(0, 255)});
}

TEST_F(ProxyFileTransferTest, SoftResetForgetsTransfersWithoutTellingAnyone) {
    KvpDouble::setResult("pushFile", 91);
    proxy().sendFile(transfer, peerAgent, "/a");
    proxy().receiveFile(transfer, 92, "/b", true);
    proxy().softReset();
    EXPECT_TRUE(transfer->calls.empty());
    EXPECT_EQ(proxy().cancelFile(transfer, 91), 2);
    EXPECT_EQ(proxy().cancelFile(transfer, 92), 2);
}
