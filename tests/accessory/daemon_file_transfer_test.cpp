// Files between the apps of two linked devices: offered, accepted and
// written at the device path, rejected, cancelled, and cut by the link.
#include <gtest/gtest.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include <filesystem>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"

namespace KvTest {
namespace {

class DaemonFileTransferTest : public testing::Test {
protected:
    void SetUp() override {
        devices.start(daemonOptions());
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
        provider = std::make_unique<WireClient>(devices.beta(), kProviderApp);
        consumerAgent = consumer->registerAgent("/test/echo");
        providerAgent = provider->registerAgent("/test/echo");
        const auto peers = consumer->findPeers(consumerAgent);
        ASSERT_EQ(peers.size(), 1u);
        peer = peers[0];
    }

    // Writes a file of `size` bytes into alpha's Documents and offers it.
    int offer(std::size_t size, std::string* content = nullptr) {
        std::string data(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            data[i] = static_cast<char>(i * 7 % 256);
        }
        writeTextFile(devices.alpha() + "/fs/opt/usr/media/Documents/photo.bin", data);
        if (content != nullptr) {
            *content = data;
        }
        wire::Request request;
        request.mutable_push_file()->set_agent_id(consumerAgent);
        *request.mutable_push_file()->mutable_peer() = peer;
        request.mutable_push_file()->set_path("/opt/usr/media/Documents/photo.bin");
        const wire::Reply reply = consumer->call(request);
        EXPECT_EQ(reply.result(), 0);
        return reply.value();
    }

    std::optional<wire::FileOffered> offered() {
        auto event = provider->waitEvent([](const wire::Event& e) { return e.has_file_offered(); });
        return event ? std::optional<wire::FileOffered>(event->file_offered()) : std::nullopt;
    }

    int receive(int transactionId, bool accept,
                const std::string& path = "/opt/usr/media/Downloads/photo.bin") {
        wire::Request request;
        request.mutable_receive_file()->set_transaction_id(transactionId);
        request.mutable_receive_file()->set_path(path);
        request.mutable_receive_file()->set_accept(accept);
        return provider->call(request).result();
    }

    static std::optional<wire::FileDone> done(WireClient& client, int transactionId) {
        auto event = client.waitEvent([transactionId](const wire::Event& e) {
            return e.has_file_done() && e.file_done().transaction_id() == transactionId;
        });
        return event ? std::optional<wire::FileDone>(event->file_done()) : std::nullopt;
    }

    // Offers a file of `size` bytes and has the provider take it at `path`;
    // the ids of the transfer on both sides.
    std::pair<int, int> sendInto(const std::string& path, std::size_t size,
                                 std::string* content = nullptr) {
        const int sent = offer(size, content);
        auto offer = offered();
        EXPECT_TRUE(offer.has_value());
        const int received = offer ? offer->transaction_id() : -1;
        EXPECT_EQ(receive(received, true, path), 0);
        return {sent, received};
    }

    std::string betaFile(const std::string& devicePath) const {
        return devices.beta() + "/fs" + devicePath;
    }

    // The names in a folder of beta that start with ".": what a transfer in
    // progress (or an interrupted one) writes to.
    std::vector<std::string> hiddenFiles(const std::string& deviceFolder) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(betaFile(deviceFolder))) {
            const std::string name = entry.path().filename().string();
            if (name[0] == '.') {
                names.push_back(name);
            }
        }
        return names;
    }

    virtual std::vector<std::string> daemonOptions() const { return {}; }

    wire::Reply cancel(WireClient& client, int transactionId) {
        wire::Request request;
        request.mutable_cancel_file()->set_transaction_id(transactionId);
        return client.call(request);
    }

    DevicePair devices;
    std::unique_ptr<WireClient> consumer;
    std::unique_ptr<WireClient> provider;
    std::uint32_t consumerAgent = 0;
    std::uint32_t providerAgent = 0;
    wire::PeerAgent peer;
};

TEST_F(DaemonFileTransferTest, AnAcceptedFileArrivesWholeAtTheDevicePath) {
    std::string content;
    const int sent = offer(3 * 1024 * 1024 + 17, &content);
    auto offer = offered();
    ASSERT_TRUE(offer.has_value());
    EXPECT_EQ(offer->file_name(), "photo.bin");
    EXPECT_EQ(offer->agent_id(), providerAgent);
    ASSERT_EQ(receive(offer->transaction_id(), true), 0);

    auto senderDone = done(*consumer, sent);
    auto receiverDone = done(*provider, offer->transaction_id());
    ASSERT_TRUE(senderDone.has_value());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_DONE);
    EXPECT_TRUE(senderDone->sending());
    EXPECT_EQ(receiverDone->status(), wire::FILE_DONE);
    EXPECT_EQ(receiverDone->path(), "/opt/usr/media/Downloads/photo.bin");
    EXPECT_EQ(Kv::Device::readFile(devices.beta() + "/fs/opt/usr/media/Downloads/photo.bin"),
              content);
    auto progress = consumer->waitEvent([sent](const wire::Event& e) {
        return e.has_file_progress() && e.file_progress().transaction_id() == sent &&
               e.file_progress().progress() == 100;
    });
    EXPECT_TRUE(progress.has_value());
}

TEST_F(DaemonFileTransferTest, ARejectedFileEndsTheSendWithRejected) {
    const int sent = offer(1000);
    auto offer = offered();
    ASSERT_TRUE(offer.has_value());
    ASSERT_EQ(receive(offer->transaction_id(), false), 0);
    auto senderDone = done(*consumer, sent);
    ASSERT_TRUE(senderDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_REJECTED);
}

TEST_F(DaemonFileTransferTest, ACancelledOfferEndsOnBothSides) {
    const int sent = offer(1000);
    auto offer = offered();
    ASSERT_TRUE(offer.has_value());
    wire::Request cancel;
    cancel.mutable_cancel_file()->set_transaction_id(sent);
    EXPECT_EQ(consumer->call(cancel).result(), 0);
    auto senderDone = done(*consumer, sent);
    auto receiverDone = done(*provider, offer->transaction_id());
    ASSERT_TRUE(senderDone.has_value());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_CANCELLED);
    EXPECT_EQ(receiverDone->status(), wire::FILE_CANCELLED);
    EXPECT_EQ(receive(offer->transaction_id(), true), -2);
    EXPECT_EQ(consumer->call(cancel).result(), -2);
}

TEST_F(DaemonFileTransferTest, AMissingFileCannotBeOffered) {
    wire::Request request;
    request.mutable_push_file()->set_agent_id(consumerAgent);
    *request.mutable_push_file()->mutable_peer() = peer;
    request.mutable_push_file()->set_path("/opt/usr/media/Documents/none.bin");
    EXPECT_EQ(consumer->call(request).result(), -1);
}

TEST_F(DaemonFileTransferTest, LinkLossEndsATransferAsConnectionLost) {
    const int sent = offer(1000);
    auto offer = offered();
    ASSERT_TRUE(offer.has_value());
    devices.setLink(devices.alpha(), false);
    auto senderDone = done(*consumer, sent);
    ASSERT_TRUE(senderDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_CONNECTION_LOST);
    auto receiverDone = done(*provider, offer->transaction_id());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(receiverDone->status(), wire::FILE_CONNECTION_LOST);
}

TEST_F(DaemonFileTransferTest, AFileReceivedIntoTheDefaultFolderKeepsTheOneThere) {
    writeTextFile(betaFile("/opt/usr/media/Downloads/photo.bin"), "the first photo");
    std::string content;
    const auto [sent, received] = sendInto("/opt/usr/media/Downloads/photo.bin", 1000, &content);
    auto first = done(*provider, received);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first->status(), wire::FILE_DONE);
    EXPECT_EQ(first->path(), "/opt/usr/media/Downloads/photo (1).bin");
    const auto [sentAgain, receivedAgain] = sendInto("/opt/usr/media/Downloads/photo.bin", 10);
    auto second = done(*provider, receivedAgain);
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(second->path(), "/opt/usr/media/Downloads/photo (2).bin");
    EXPECT_EQ(Kv::Device::readFile(betaFile("/opt/usr/media/Downloads/photo.bin")),
              "the first photo");
    EXPECT_EQ(Kv::Device::readFile(betaFile("/opt/usr/media/Downloads/photo (1).bin")), content);
    EXPECT_TRUE(hiddenFiles("/opt/usr/media/Downloads").empty());
}

TEST_F(DaemonFileTransferTest, AFileReceivedAtAChosenPathReplacesTheOneThere) {
    writeTextFile(betaFile("/opt/usr/media/Documents/photo.bin"), "the old photo");
    std::string content;
    const auto [sent, received] = sendInto("/opt/usr/media/Documents/photo.bin", 1000, &content);
    auto finished = done(*provider, received);
    ASSERT_TRUE(finished.has_value());
    EXPECT_EQ(finished->path(), "/opt/usr/media/Documents/photo.bin");
    EXPECT_EQ(Kv::Device::readFile(betaFile("/opt/usr/media/Documents/photo.bin")), content);
}

TEST_F(DaemonFileTransferTest, AKilledReceiverLeavesNothingUnderTheNameAndItsLeftoversGo) {
    const auto [sent, received] = sendInto("/opt/usr/media/Downloads/photo.bin", 96u << 20);
    auto midway = provider->waitEvent([](const wire::Event& e) {
        return e.has_file_progress() && e.file_progress().progress() > 0;
    });
    ASSERT_TRUE(midway.has_value());
    ASSERT_LT(midway->file_progress().progress(), 100);
    devices.killBeta();
    EXPECT_FALSE(std::filesystem::exists(betaFile("/opt/usr/media/Downloads/photo.bin")));
    EXPECT_EQ(hiddenFiles("/opt/usr/media/Downloads"),
              std::vector<std::string>{".photo.bin.part-" + std::to_string(received)});
    auto senderDone = done(*consumer, sent);
    ASSERT_TRUE(senderDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_CONNECTION_LOST);

    devices.startBeta();
    EXPECT_TRUE(hiddenFiles("/opt/usr/media/Downloads").empty());
    EXPECT_FALSE(std::filesystem::exists(betaFile("/opt/usr/media/Downloads/photo.bin")));
}

TEST_F(DaemonFileTransferTest, AFileWithoutRoomEndsOnBothSidesAndLeavesNothing) {
    writeTextFile(devices.beta() + "/" + Kv::Device::kStorageFreeFile, "999\n");
    const auto [sent, received] = sendInto("/opt/usr/media/Downloads/photo.bin", 1000);
    auto senderDone = done(*consumer, sent);
    auto receiverDone = done(*provider, received);
    ASSERT_TRUE(senderDone.has_value());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_NO_SPACE);
    EXPECT_EQ(receiverDone->status(), wire::FILE_NO_SPACE);
    EXPECT_FALSE(std::filesystem::exists(betaFile("/opt/usr/media/Downloads/photo.bin")));
    EXPECT_TRUE(hiddenFiles("/opt/usr/media/Downloads").empty());
}

TEST_F(DaemonFileTransferTest, AFolderThatCannotBeWrittenEndsTheTransferAsAnIoError) {
    const auto [sent, received] = sendInto("/opt/usr/media/NoSuchFolder/photo.bin", 1000);
    auto senderDone = done(*consumer, sent);
    auto receiverDone = done(*provider, received);
    ASSERT_TRUE(senderDone.has_value());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(receiverDone->status(), wire::FILE_IO);
    EXPECT_EQ(senderDone->status(), wire::FILE_CHANNEL_IO);
}

TEST_F(DaemonFileTransferTest, ABusyAgentRefusesAFurtherOffer) {
    std::vector<int> offers;
    for (int i = 0; i < 4; ++i) {
        offers.push_back(offer(100));
        ASSERT_TRUE(offered().has_value());
    }
    const int beyond = offer(100);
    auto refused = done(*consumer, beyond);
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(refused->status(), wire::FILE_REJECTED);
    const int first = offers[0];
    EXPECT_FALSE(consumer->waitEvent(
        [first](const wire::Event& e) {
            return e.has_file_done() && e.file_done().transaction_id() == first;
        },
        milliseconds(300)))
        << "the earlier offers still wait";
}

// The daemon holds apps to their own folders and the shared media folders,
// whatever the app's process asks.
TEST_F(DaemonFileTransferTest, FilesOutsideTheAppsFoldersCanBeNeitherSentNorReceived) {
    for (const char* path : {"/etc/hostname", "/opt/usr/apps/provider/res/wgt/config.xml",
                             "/opt/usr/media/../../etc/hostname"}) {
        wire::Request request;
        request.mutable_push_file()->set_agent_id(consumerAgent);
        *request.mutable_push_file()->mutable_peer() = peer;
        request.mutable_push_file()->set_path(path);
        EXPECT_EQ(consumer->call(request).result(), wire::RESULT_INVALID) << path;
    }
    const int sent = offer(100);
    auto offer = offered();
    ASSERT_TRUE(offer.has_value());
    EXPECT_EQ(receive(offer->transaction_id(), true, "/opt/usr/apps/consumer/data/x.bin"),
              wire::RESULT_INVALID);
    EXPECT_EQ(receive(offer->transaction_id(), true, "/tmp/x.bin"), wire::RESULT_INVALID);
    EXPECT_EQ(receive(offer->transaction_id(), true, "/opt/usr/apps/provider/data/photo.bin"),
              wire::RESULT_SUCCESS);
    auto finished = done(*provider, offer->transaction_id());
    ASSERT_TRUE(finished.has_value());
    EXPECT_EQ(finished->status(), wire::FILE_DONE);
    EXPECT_TRUE(done(*consumer, sent).has_value());
}

}  // namespace
}  // namespace KvTest

namespace KvTest {
namespace {

// Over a BLE-like link a message takes 40 ms (± 10) each way, so a cancel
// can cross the receiver's report that the file arrived.
class DaemonFileTransferOverASlowLinkTest : public DaemonFileTransferTest {
protected:
    std::vector<std::string> daemonOptions() const override { return {"--link-profile", "ble"}; }
};

TEST_F(DaemonFileTransferOverASlowLinkTest,
       ACancelThatComesAfterTheWholeFileEndsAsDoneOnBothSides) {
    std::string content;
    const auto [sent, received] = sendInto("/opt/usr/media/Downloads/photo.bin", 1000, &content);
    auto receiverDone = done(*provider, received);
    ASSERT_TRUE(receiverDone.has_value());
    ASSERT_EQ(receiverDone->status(), wire::FILE_DONE);
    // The receiver's report is still on the link: the sender's service
    // knows the transfer, and takes the cancel.
    EXPECT_EQ(cancel(*consumer, sent).result(), 0);
    auto senderDone = done(*consumer, sent);
    ASSERT_TRUE(senderDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_DONE);
    EXPECT_EQ(Kv::Device::readFile(betaFile("/opt/usr/media/Downloads/photo.bin")), content);
}

TEST_F(DaemonFileTransferOverASlowLinkTest, ASendersCancelMidWayEndsAsCancelledOnBothSides) {
    const auto [sent, received] =
        sendInto("/opt/usr/media/Downloads/photo.bin", std::size_t{400} * 1024);
    auto progress = consumer->waitEvent([id = sent](const wire::Event& e) {
        return e.has_file_progress() && e.file_progress().transaction_id() == id;
    });
    ASSERT_TRUE(progress.has_value());
    EXPECT_EQ(cancel(*consumer, sent).result(), 0);
    EXPECT_EQ(cancel(*consumer, sent).result(), 0) << "a cancel under way takes another";
    auto senderDone = done(*consumer, sent);
    auto receiverDone = done(*provider, received);
    ASSERT_TRUE(senderDone.has_value());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_CANCELLED);
    EXPECT_EQ(receiverDone->status(), wire::FILE_CANCELLED);
    EXPECT_EQ(cancel(*consumer, sent).result(), -2);
    EXPECT_FALSE(std::filesystem::exists(betaFile("/opt/usr/media/Downloads/photo.bin")));
    EXPECT_TRUE(hiddenFiles("/opt/usr/media/Downloads/").empty());
}

TEST_F(DaemonFileTransferOverASlowLinkTest,
       ACancelCrossingTheAcceptanceEndsAsCancelledOnBothSides) {
    const int sent = offer(std::size_t{64} * 1024);
    auto offer = offered();
    ASSERT_TRUE(offer.has_value());
    // Both leave at once: the acceptance reaches the sender after its cancel
    // went, and must not start the file.
    EXPECT_EQ(cancel(*consumer, sent).result(), 0);
    EXPECT_EQ(receive(offer->transaction_id(), true), 0);
    auto senderDone = done(*consumer, sent);
    auto receiverDone = done(*provider, offer->transaction_id());
    ASSERT_TRUE(senderDone.has_value());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(senderDone->status(), wire::FILE_CANCELLED);
    EXPECT_EQ(receiverDone->status(), wire::FILE_CANCELLED);
    EXPECT_FALSE(consumer->waitEvent(
        [id = sent](const wire::Event& e) {
            return e.has_file_progress() && e.file_progress().transaction_id() == id;
        },
        milliseconds(300)));
    EXPECT_TRUE(hiddenFiles("/opt/usr/media/Downloads/").empty());
}

}  // namespace
}  // namespace KvTest
