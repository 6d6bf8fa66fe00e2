// The daemon's framed sessions: write priorities, the queue bound, and the
// end of a session on bad input or when the other end goes.
#include <gtest/gtest.h>

#include <chrono>

#include "FramedChannel.h"

namespace {

using namespace Kv::Accessory;
using Socket = asio::local::stream_protocol::socket;
using Channel = FramedChannel<Socket>;

std::string frameOf(const std::string& text) {
    wire::LinkMessage message;
    message.mutable_data()->set_data(text);
    return encodeFrame(message);
}

class FramedChannelTest : public testing::Test {
protected:
    void SetUp() override {
        Socket ours(io);
        asio::local::connect_pair(ours, other);
        channel = std::make_shared<Channel>(std::move(ours), "test session", 1024);
        channel->start([this](std::string_view payload) { payloads.emplace_back(payload); },
                       [this](const std::string& reason) { closeReason = reason; });
    }

    // Runs the loop until `done()` holds or a second has passed.
    bool runUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            io.run_for(std::chrono::milliseconds(10));
            io.restart();
        }
        return done();
    }

    // The texts of the frames that the other end has received.
    std::vector<std::string> receivedTexts() {
        FrameDecoder decoder;
        std::array<char, 4096> buffer;
        asio::error_code error;
        other.non_blocking(true);
        for (;;) {
            const std::size_t count = other.read_some(asio::buffer(buffer), error);
            if (error) {
                break;
            }
            decoder.feed(buffer.data(), count);
        }
        std::vector<std::string> texts;
        while (auto payload = decoder.next()) {
            texts.push_back(decodeLinkMessage(*payload).data().data());
        }
        return texts;
    }

    asio::io_context io;
    Socket other{io};
    std::shared_ptr<Channel> channel;
    std::vector<std::string> payloads;
    std::optional<std::string> closeReason;
};

TEST_F(FramedChannelTest, AHigherPriorityFrameOvertakesQueuedOnes) {
    ASSERT_TRUE(channel->send(frameOf("low 1"), kPriorityLow));
    ASSERT_TRUE(channel->send(frameOf("low 2"), kPriorityLow));
    ASSERT_TRUE(channel->send(frameOf("medium"), kPriorityMedium));
    ASSERT_TRUE(channel->send(frameOf("control"), kPriorityControl));
    ASSERT_TRUE(runUntil([this] { return channel->queuedBytes() == 0; }));
    // The first frame was on its way before the others came.
    EXPECT_EQ(receivedTexts(), (std::vector<std::string>{"low 1", "control", "medium", "low 2"}));
}

TEST_F(FramedChannelTest, RefusesFramesBeyondTheQueueBound) {
    ASSERT_TRUE(channel->send(frameOf(std::string(2000, 'x'))));
    EXPECT_FALSE(channel->send(frameOf("more")));
    EXPECT_FALSE(closeReason.has_value());
}

TEST_F(FramedChannelTest, DeliversPayloadsInOrder) {
    const std::string frames = frameOf("one") + frameOf("two");
    asio::write(other, asio::buffer(frames));
    ASSERT_TRUE(runUntil([this] { return payloads.size() == 2; }));
    EXPECT_EQ(decodeLinkMessage(payloads[1]).data().data(), "two");
}

TEST_F(FramedChannelTest, AnOversizedFrameEndsTheSessionWithItsReason) {
    asio::write(other, asio::buffer(std::string("\x7f\x00\x00\x00", 4)));
    ASSERT_TRUE(runUntil([this] { return closeReason.has_value(); }));
    EXPECT_NE(closeReason->find("protocol error"), std::string::npos);
    EXPECT_TRUE(channel->closed());
    EXPECT_FALSE(channel->send(frameOf("late")));
}

TEST_F(FramedChannelTest, AMalformedPayloadEndsTheSessionThroughTheHandler) {
    channel->close("reset for this test");
    closeReason.reset();
    Socket ours(io);
    Socket peer(io);
    asio::local::connect_pair(ours, peer);
    channel = std::make_shared<Channel>(std::move(ours), "strict session", 1024);
    channel->start([](std::string_view payload) { decodeLinkMessage(payload); },
                   [this](const std::string& reason) { closeReason = reason; });
    asio::write(peer, asio::buffer(std::string("\0\0\0\2\xff\xff", 6)));
    ASSERT_TRUE(runUntil([this] { return closeReason.has_value(); }));
    EXPECT_NE(closeReason->find("malformed"), std::string::npos);
}

TEST_F(FramedChannelTest, TheOtherEndClosingEndsTheSession) {
    other.close();
    ASSERT_TRUE(runUntil([this] { return closeReason.has_value(); }));
    EXPECT_EQ(*closeReason, "the other end closed");
}

}  // namespace
