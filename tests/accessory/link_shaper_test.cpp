// The link profiles and the shaper that paces the daemon's link writer: when
// a frame may leave and when it arrives, and the sizes each profile derives
// for channel queues and file pieces.
#include <gtest/gtest.h>

#include <chrono>

#include "LinkShaper.h"

namespace {

using namespace Kv::Accessory;
using namespace std::chrono_literals;
using Clock = LinkShaper::Clock;

LinkProfile customProfile(std::uint64_t bandwidth, std::chrono::microseconds latency,
                          std::chrono::microseconds jitter) {
    LinkProfile made;
    made.name = "custom";
    made.bandwidth = bandwidth;
    made.latency = latency;
    made.jitter = jitter;
    return made;
}

TEST(LinkShaperTest, FramesTakeTheirTurnAtTheLinksBandwidth) {
    LinkShaper shaper(customProfile(1000, 0us, 0us));
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(shaper.serialize(100, start), start + 100ms);
    EXPECT_EQ(shaper.freeAt(), start + 100ms);
    // Handed over while the link is still busy: it waits for its turn.
    EXPECT_EQ(shaper.serialize(50, start + 10ms), start + 150ms);
    // Handed over after a pause: it leaves at once.
    EXPECT_EQ(shaper.serialize(10, start + 1s), start + 1s + 10ms);
}

TEST(LinkShaperTest, FramesArriveAfterTheLatencyWithinItsJitterAndInOrder) {
    LinkShaper shaper(customProfile(1'000'000, 20ms, 5ms));
    Clock::time_point now = Clock::now();
    Clock::time_point lastArrival = now;
    for (int i = 0; i < 1000; ++i) {
        now += 1ms;
        const Clock::time_point arrival = shaper.serialize(1000, now);
        const auto delay = arrival - shaper.freeAt();
        ASSERT_GE(arrival, lastArrival) << i;
        ASSERT_LE(delay, 25ms) << i;
        // Only keeping the order may hold a frame beyond its own latency.
        ASSERT_TRUE(delay >= 15ms || arrival == lastArrival) << i;
        lastArrival = arrival;
    }
}

TEST(LinkShaperTest, AnUnshapedLinkDelaysNothing) {
    LinkShaper shaper(*findLinkProfile("unlimited"));
    const Clock::time_point now = Clock::now();
    EXPECT_EQ(shaper.serialize(std::size_t{64} * 1024 * 1024, now), now);
}

TEST(LinkProfilesTest, EveryProfileIsFoundByItsNameAndListed) {
    EXPECT_EQ(linkProfileNames(), "unlimited|wifi|usb|bt|ble");
    for (const LinkProfile& profile : linkProfiles()) {
        ASSERT_EQ(findLinkProfile(profile.name), &profile);
    }
    EXPECT_EQ(findLinkProfile("carrier-pigeon"), nullptr);
    EXPECT_EQ(std::string(kDefaultLinkProfile), "unlimited");
    EXPECT_FALSE(findLinkProfile(kDefaultLinkProfile)->shaped());
}

TEST(LinkProfilesTest, TransportAndDeviceTypeAgree) {
    const std::map<wire::TransportType, wire::DeviceType> pairs{
        {wire::TRANSPORT_BT, wire::DEVICE_TYPE_BT},
        {wire::TRANSPORT_BLE, wire::DEVICE_TYPE_BLE},
        {wire::TRANSPORT_USB, wire::DEVICE_TYPE_USB},
        {wire::TRANSPORT_WIFI, wire::DEVICE_TYPE_WIFI}};
    for (const LinkProfile& profile : linkProfiles()) {
        EXPECT_EQ(pairs.at(profile.transport), profile.deviceType) << profile.name;
        EXPECT_LE(profile.maxDataSize, kMaxDataSize) << profile.name;
        EXPECT_GE(profile.latency, profile.jitter) << profile.name;
    }
}

TEST(LinkProfilesTest, QueuesAndFilePiecesFollowTheBandwidth) {
    const LinkProfile& bt = *findLinkProfile("bt");
    EXPECT_EQ(bt.bandwidth, 250'000u);
    EXPECT_EQ(bt.channelQueueBytes(), 250'000u);  // a second of the link
    EXPECT_EQ(bt.fileChunkBytes(), 5000u);        // 20 ms of it
    EXPECT_EQ(bt.fileBacklogBytes(), 62'500u);    // a quarter of a second
    // A channel always holds at least one send of the largest size.
    LinkProfile slow = customProfile(1000, 0us, 0us);
    slow.maxDataSize = 8 * 1024;
    EXPECT_EQ(slow.channelQueueBytes(), 8u * 1024);
    EXPECT_EQ(slow.fileChunkBytes(), 4u * 1024);
    EXPECT_EQ(slow.fileBacklogBytes(), 8u * 1024);
    const LinkProfile& unlimited = *findLinkProfile("unlimited");
    EXPECT_EQ(unlimited.channelQueueBytes(), SIZE_MAX);
    for (const LinkProfile& profile : linkProfiles()) {
        EXPECT_GE(profile.fileBacklogBytes(), 2 * profile.fileChunkBytes()) << profile.name;
    }
}

}  // namespace
