// Back-pressure between two daemons: a sender faster than its reader waits
// instead of the daemons' memory growing or data being dropped, and an app
// that stops reading is cut off so that it holds up nobody for long.
#include <gtest/gtest.h>
#include <kv-device/FileUtil.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "AccessoryTestSupport.h"
#include "Limits.h"

namespace KvTest {
namespace {

using Kv::Accessory::kPauseSendersAbove;
using Kv::Accessory::kSlowReaderGrace;

constexpr std::size_t kMessageSize = std::size_t{1024} * 1024;

// A field of the device's daemon's /proc status in bytes ("VmRSS", "VmHWM").
std::size_t daemonMemory(const std::string& device, const std::string& field) {
    const std::optional<std::string> pid = Kv::Device::readFile(device + "/accessoryd.pid");
    std::ifstream status("/proc/" + pid.value_or("0").substr(0, pid->find('\n')) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return std::stoull(line.substr(field.size() + 1)) * 1024;
        }
    }
    ADD_FAILURE() << "no " << field << " for the daemon of " << device;
    return 0;
}

// The device's daemon's write queues: {for its apps, for the link}.
std::pair<std::uint64_t, std::uint64_t> daemonQueues(const std::string& device) {
    WireClient tool(device, "");
    wire::Request request;
    request.mutable_status();
    const wire::Reply reply = tool.call(request);
    return {reply.status_report().queued_for_apps(), reply.status_report().queued_for_link()};
}

// Message `index` of a numbered run: its number, then filler.
std::string numbered(std::size_t index) {
    std::string message = std::to_string(index) + ":";
    message.resize(kMessageSize, static_cast<char>('a' + index % 26));
    return message;
}

// Sends `count` numbered messages from a thread of its own, without waiting
// for answers, as the client library does on an open connection.
class Flood {
public:
    Flood(WireClient& sender, std::uint32_t connectionId, std::uint32_t channelId,
          std::size_t count)
        : m_thread([this, &sender, connectionId, channelId, count] {
              for (std::size_t i = 0; i < count; ++i) {
                  if (!sender.post(connectionId, channelId, numbered(i))) {
                      m_refused = true;
                      return;
                  }
                  ++m_sent;
              }
          }) {}
    ~Flood() { finish(); }

    void finish() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    std::size_t sent() const { return m_sent; }
    bool refused() const { return m_refused; }

private:
    std::atomic<std::size_t> m_sent{0};
    std::atomic<bool> m_refused{false};
    std::thread m_thread;
};

class BackPressureTest : public testing::Test {
protected:
    void SetUp() override { devices.start(); }

    DevicePair devices;
};

TEST_F(BackPressureTest, AFastSenderWaitsForASlowReaderAndNothingIsLost) {
    WireClient consumer(devices.alpha(), kConsumerApp);
    WireClient provider(devices.beta(), kProviderApp);
    const auto [consumerConnection, providerConnection] =
        openConnection(consumer, provider, "/test/echo");
    ASSERT_NE(consumerConnection, 0u);
    const std::size_t alphaBefore = daemonMemory(devices.alpha(), "VmRSS");
    const std::size_t betaBefore = daemonMemory(devices.beta(), "VmRSS");

    // The consumer reads nothing for a while: 96 MiB can't all be on the way.
    constexpr std::size_t kCount = 96;
    Flood flood(provider, providerConnection, 102, kCount);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_LT(flood.sent(), kCount);
    EXPECT_FALSE(flood.refused());
    // Stalled: the queues hold their bounds and the frames in hand, no more.
    const std::uint64_t bound = kPauseSendersAbove + 4 * kMessageSize;
    EXPECT_LE(daemonQueues(devices.alpha()).first, bound);
    EXPECT_LE(daemonQueues(devices.beta()).second, bound);

    for (std::size_t i = 0; i < kCount; ++i) {
        auto event = consumer.waitEvent(isData(consumerConnection), milliseconds(20000));
        ASSERT_TRUE(event.has_value()) << "message " << i << " of " << kCount;
        ASSERT_EQ(event->data().data().size(), kMessageSize);
        ASSERT_EQ(event->data().data(), numbered(i));
    }
    flood.finish();
    EXPECT_EQ(flood.sent(), kCount);
#if !defined(KV_SANITIZED)  // which keeps freed memory in quarantine
    // What each daemon held at its peak: the queues' bounds and the frames
    // in hand, far below what went through.
    const std::size_t peak = 4 * kPauseSendersAbove;
    EXPECT_LT(daemonMemory(devices.alpha(), "VmHWM") - alphaBefore, peak);
    EXPECT_LT(daemonMemory(devices.beta(), "VmHWM") - betaBefore, peak);
#else
    (void)alphaBefore;
    (void)betaBefore;
#endif
}

TEST_F(BackPressureTest, AnAppThatStopsReadingIsCutOffAndTheLinkGoesOn) {
    auto stuck = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
    WireClient provider(devices.beta(), kProviderApp);
    const auto [stuckConnection, providerConnection] =
        openConnection(*stuck, provider, "/test/echo");
    ASSERT_NE(stuckConnection, 0u);
    Flood flood(provider, providerConnection, 102, 64);
    std::this_thread::sleep_for(kSlowReaderGrace + std::chrono::seconds(2));
    // The stuck app's session was ended: it finds the end after what was
    // queued for it, and the provider hears its connection end.
    EXPECT_TRUE(stuck->waitClosed(milliseconds(10000)));
    EXPECT_TRUE(provider.waitEvent(isTerminated(providerConnection), milliseconds(10000)));
    flood.finish();
    EXPECT_FALSE(flood.refused());

    // Others go on over the same link.
    WireClient consumer(devices.alpha(), kConsumerApp);
    WireClient otherProvider(devices.beta(), kProviderApp);
    const auto [consumerConnection, otherConnection] =
        openConnection(consumer, otherProvider, "/test/single");
    ASSERT_NE(consumerConnection, 0u);
    ASSERT_EQ(otherProvider.sendData(otherConnection, 1, "still here"), 0);
    auto event = consumer.waitEvent(isData(consumerConnection));
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->data().data(), "still here");
}

}  // namespace
}  // namespace KvTest
