// Files between the apps of two linked devices: offered, accepted and
// written at the device path, rejected, cancelled, and cut by the link.
#include <gtest/gtest.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"

namespace KvTest {
namespace {

class DaemonFileTransferTest : public testing::Test {
protected:
    void SetUp() override {
        devices.start();
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

    int receive(int transactionId, bool accept) {
        wire::Request request;
        request.mutable_receive_file()->set_transaction_id(transactionId);
        request.mutable_receive_file()->set_path("/opt/usr/media/Downloads/photo.bin");
        request.mutable_receive_file()->set_accept(accept);
        return provider->call(request).result();
    }

    static std::optional<wire::FileDone> done(WireClient& client, int transactionId) {
        auto event = client.waitEvent([transactionId](const wire::Event& e) {
            return e.has_file_done() && e.file_done().transaction_id() == transactionId;
        });
        return event ? std::optional<wire::FileDone>(event->file_done()) : std::nullopt;
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
    EXPECT_EQ(senderDone->status(), 0);
    EXPECT_TRUE(senderDone->sending());
    EXPECT_EQ(receiverDone->status(), 0);
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
    EXPECT_EQ(senderDone->status(), 9);
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
    EXPECT_EQ(senderDone->status(), 5);
    EXPECT_EQ(receiverDone->status(), 5);
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
    EXPECT_EQ(senderDone->status(), 5);
    auto receiverDone = done(*provider, offer->transaction_id());
    ASSERT_TRUE(receiverDone.has_value());
    EXPECT_EQ(receiverDone->status(), 5);
}

}  // namespace
}  // namespace KvTest
