// The daemon's framed sessions: write priorities, the queue bound, and the
// end of a session on bad input or when the other end goes.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

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
    void SetUp() override { open(1024); }

    // A fresh channel that queues up to `bound` bytes, in place of the last.
    void open(std::size_t bound) {
        if (channel) {
            channel->close("replaced");
        }
        Socket ours(io);
        other = Socket(io);
        asio::local::connect_pair(ours, other);
        channel = std::make_shared<Channel>(std::move(ours), "test session", bound);
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

    // The texts of the frames that the other end has received so far.
    std::vector<std::string> receivedTexts() {
        std::array<char, 4096> buffer;
        asio::error_code error;
        other.non_blocking(true);
        for (;;) {
            const std::size_t count = other.read_some(asio::buffer(buffer), error);
            if (error) {
                break;
            }
            received.feed(buffer.data(), count);
        }
        while (auto payload = received.next()) {
            texts.push_back(decodeLinkMessage(*payload).data().data());
        }
        return texts;
    }

    // Runs the loop until the other end has `count` frames; how long it took.
    std::chrono::steady_clock::duration timeToReceive(std::size_t count) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(runUntil([&] { return receivedTexts().size() >= count; }));
        return std::chrono::steady_clock::now() - start;
    }

    asio::io_context io;
    Socket other{io};
    std::shared_ptr<Channel> channel;
    std::vector<std::string> payloads;
    std::optional<std::string> closeReason;
    FrameDecoder received;
    std::vector<std::string> texts;
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

// A shaped link lets frames leave at its bandwidth and arrive after its
// latency, and tells of each tagged frame once it has left, in order.
TEST_F(FramedChannelTest, AShapedChannelWritesAtTheLinksPace) {
    LinkProfile slow;
    slow.bandwidth = 20'000;
    slow.latency = std::chrono::milliseconds(30);
    channel->shape(slow);
    std::vector<std::uint64_t> written;
    channel->onWritten([&](std::uint64_t tag) { written.push_back(tag); });
    for (std::uint64_t tag = 1; tag <= 4; ++tag) {
        ASSERT_TRUE(channel->send(frameOf(std::string(200, 'x')), kPriorityLow, tag));
    }
    // 4 frames of a little over 200 bytes at 20 kB/s: 40 ms, then the latency.
    EXPECT_GE(timeToReceive(4), std::chrono::milliseconds(70));
    // The other end reads the last frame straight from the socket, which may
    // be before the channel's loop has run the completion of its write.
    runUntil([&] { return written.size() >= 4; });
    EXPECT_EQ(written, (std::vector<std::uint64_t>{1, 2, 3, 4}));
}

// A writer that runs late (a busy processor) writes late, but the link keeps
// its pace: what was queued meanwhile went on the link while the writer
// waited, and goes out at once when it runs.
TEST_F(FramedChannelTest, AWriterThatRunsLateDoesNotSlowTheLink) {
    open(std::size_t{1} << 20);
    LinkProfile slow;
    slow.bandwidth = 20'000;
    channel->shape(slow);
    constexpr std::size_t kFrames = 40;
    const std::string frame = frameOf(std::string(500, 'x'));
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < kFrames; ++i) {
        ASSERT_TRUE(channel->send(frame, kPriorityLow));
    }
    const auto linkTime = std::chrono::microseconds(kFrames * frame.size() * 1'000'000 /
                                                    slow.bandwidth);  // about a second
    // The writer gets no turn for 60 % of the link's time.
    std::this_thread::sleep_for(linkTime * 6 / 10);
    const auto deadline = start + linkTime * 3;
    while (receivedTexts().size() < kFrames && std::chrono::steady_clock::now() < deadline) {
        io.run_for(std::chrono::milliseconds(10));
        io.restart();
    }
    ASSERT_EQ(receivedTexts().size(), kFrames);
    // A writer that started each frame when it ran would take the link's
    // time after the pause, 1.6 times the link's time in all.
    EXPECT_LT(std::chrono::steady_clock::now() - start, linkTime * 13 / 10);
}

// A stalled channel neither writes nor hands on what it reads; once resumed
// both go on, and nothing is lost.
TEST_F(FramedChannelTest, AStalledChannelHoldsBothWaysUntilResumed) {
    channel->stall(true);
    ASSERT_TRUE(channel->send(frameOf("held out")));
    asio::write(other, asio::buffer(frameOf("held in")));
    runUntil([] { return false; });
    EXPECT_TRUE(receivedTexts().empty());
    EXPECT_TRUE(payloads.empty());
    EXPECT_FALSE(closeReason.has_value());

    channel->stall(false);
    timeToReceive(1);
    EXPECT_EQ(receivedTexts(), std::vector<std::string>{"held out"});
    ASSERT_TRUE(runUntil([this] { return payloads.size() == 1; }));
    EXPECT_EQ(decodeLinkMessage(payloads[0]).data().data(), "held in");
}

}  // namespace
