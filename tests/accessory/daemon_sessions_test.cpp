// Many app sessions, and many links, one after the other, against one pair
// of daemons: whatever a session or a link holds goes with it, so the
// daemons' heap in use after many stays within a fixed bound of what it was
// after the first ones. KV_SESSION_TRIALS and KV_LINK_CYCLES set how many
// (the soak runs 1,000 and 500).
//
// The daemons run without glibc's per-thread cache of freed blocks
// (ThreadCacheOff.h).
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "AccessoryTestSupport.h"
#include "TestEnvironment.h"
#include "ThreadCacheOff.h"

namespace KvTest {
namespace {

// What a daemon may still grow by after the first sessions: allocator
// bookkeeping and caches that fill once (the apps' parsed profiles), never
// per session or link.
constexpr std::uint64_t kHeapGrowthBound = std::uint64_t{16} * 1024;
constexpr int kWarmUpSessions = 50;

int trials() {
    const int asked = KvTest::environmentNumber("KV_SESSION_TRIALS", 0);
    return asked > kWarmUpSessions ? asked : 300;
}

std::uint64_t heapInUse(const std::string& device) {
    WireClient tool(device, "");
    wire::Request request;
    request.mutable_status();
    return tool.call(request).status_report().heap_in_use();
}

// One app session on each device: agents, a connection, a message each
// way, a close, then both sessions end.
void oneSession(const DevicePair& devices) {
    WireClient consumer(devices.alpha(), kConsumerApp);
    WireClient provider(devices.beta(), kProviderApp);
    const auto [consumerConnection, providerConnection] =
        openConnection(consumer, provider, "/test/echo");
    ASSERT_NE(consumerConnection, 0u);
    ASSERT_EQ(consumer.sendData(consumerConnection, 101, "ping"), 0);
    ASSERT_TRUE(provider.waitEvent(isData(providerConnection)).has_value());
    ASSERT_EQ(provider.sendData(providerConnection, 101, "pong"), 0);
    ASSERT_TRUE(consumer.waitEvent(isData(consumerConnection)).has_value());
    wire::Request close;
    close.mutable_terminate_connection()->set_connection_id(consumerConnection);
    ASSERT_EQ(consumer.call(close).result(), 0);
    ASSERT_TRUE(provider.waitEvent(isTerminated(providerConnection)).has_value());
}

void startWithoutThreadCache(DevicePair& devices) {
    const ThreadCacheOff off;
    devices.start();
}

TEST(DaemonSessions, LeaveTheHeapAsTheFirstOnesLeftIt) {
    DevicePair devices;
    startWithoutThreadCache(devices);
    for (int i = 0; i < kWarmUpSessions; ++i) {
        ASSERT_NO_FATAL_FAILURE(oneSession(devices)) << "session " << i;
    }
    const std::uint64_t alphaBefore = heapInUse(devices.alpha());
    const std::uint64_t betaBefore = heapInUse(devices.beta());
    const int count = trials();
    for (int i = kWarmUpSessions; i < count; ++i) {
        ASSERT_NO_FATAL_FAILURE(oneSession(devices)) << "session " << i;
    }
    const std::uint64_t alphaAfter = heapInUse(devices.alpha());
    const std::uint64_t betaAfter = heapInUse(devices.beta());
    EXPECT_LE(alphaAfter, alphaBefore + kHeapGrowthBound)
        << "alpha's daemon grew from " << alphaBefore << " to " << alphaAfter << " bytes over "
        << count - kWarmUpSessions << " sessions";
    EXPECT_LE(betaAfter, betaBefore + kHeapGrowthBound)
        << "beta's daemon grew from " << betaBefore << " to " << betaAfter << " bytes over "
        << count - kWarmUpSessions << " sessions";
    std::printf("heap in use after %d and %d sessions: alpha %llu -> %llu, beta %llu -> %llu\n",
                kWarmUpSessions, count, static_cast<unsigned long long>(alphaBefore),
                static_cast<unsigned long long>(alphaAfter),
                static_cast<unsigned long long>(betaBefore),
                static_cast<unsigned long long>(betaAfter));
}

// Links made and dropped, one after the other: after KV_LINK_CYCLES links
// (50 by default), as many more leave the heap as it was.
TEST(DaemonSessions, LinksMadeAndDroppedLeaveTheHeapAsTheFirstOnesLeftIt) {
    const int asked = KvTest::environmentNumber("KV_LINK_CYCLES", 0);
    const int cycles = asked > 0 ? asked : 50;
    DevicePair devices;
    startWithoutThreadCache(devices);
    const auto dropAndRelink = [&devices] {
        WireClient tool(devices.beta(), "");
        wire::Request drop;
        drop.mutable_fault()->set_action(wire::LinkFault::DROP);
        ASSERT_EQ(tool.call(drop).result(), 0);
        ASSERT_TRUE(devices.waitLinked(devices.beta(), false));
        ASSERT_TRUE(devices.waitLinked(devices.alpha(), true));
        ASSERT_TRUE(devices.waitLinked(devices.beta(), true));
    };
    for (int i = 0; i < cycles; ++i) {
        ASSERT_NO_FATAL_FAILURE(dropAndRelink()) << "link " << i;
    }
    const std::uint64_t alphaBefore = heapInUse(devices.alpha());
    const std::uint64_t betaBefore = heapInUse(devices.beta());
    for (int i = 0; i < cycles; ++i) {
        ASSERT_NO_FATAL_FAILURE(dropAndRelink()) << "link " << cycles + i;
    }
    const std::uint64_t alphaAfter = heapInUse(devices.alpha());
    const std::uint64_t betaAfter = heapInUse(devices.beta());
    EXPECT_LE(alphaAfter, alphaBefore + kHeapGrowthBound);
    EXPECT_LE(betaAfter, betaBefore + kHeapGrowthBound);
    std::printf("heap in use after %d and %d links: alpha %llu -> %llu, beta %llu -> %llu\n",
                cycles, 2 * cycles, static_cast<unsigned long long>(alphaBefore),
                static_cast<unsigned long long>(alphaAfter),
                static_cast<unsigned long long>(betaBefore),
                static_cast<unsigned long long>(betaAfter));
}

}  // namespace
}  // namespace KvTest
