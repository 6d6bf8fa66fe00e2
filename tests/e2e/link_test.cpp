// The link between the devices as its profile makes it, and its faults. Each
// profile is seen the same by both apps (transport, largest send) and slows
// their round trips as it says; each fault, made with kv-accessory at an
// exact point of a conversation or a file transfer, ends with the same error
// on both sides, with no hang and no partial file; a short stall loses
// nothing.
#include <gtest/gtest.h>
#include <kv-accessory/LinkProfiles.h>
#include <kvp-client-stub-api.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>

#include "E2eSupport.h"

using namespace KvE2e;

namespace {

using Kv::Accessory::LinkProfile;

constexpr std::size_t kFileSize = std::size_t{1024} * 1024;

const LinkProfile& profileNamed(const std::string& name) {
    const LinkProfile* profile = Kv::Accessory::findLinkProfile(name);
    if (profile == nullptr) {
        throw std::invalid_argument("no link profile " + name);
    }
    return *profile;
}

// What a script's device-status listener is given as the transport, on any
// link: the plug-in reports every status with the Bluetooth transport (the
// link's own shows in the peer accessory).
constexpr char kDeviceStatusTransport[] = "TRANSPORT_BT";

// The transport as scripts name it ("TRANSPORT_BT").
std::string transportName(const LinkProfile& profile) {
    return Kv::Accessory::wire::TransportType_Name(profile.transport);
}

// A pair linked by one profile, with the link apps installed.
class LinkTest {
protected:
    explicit LinkTest(const std::string& profile)
        : link(profileNamed(profile)),
          devices(work, false, profile),
          watchApp(devices.install(devices.watch(), testApp("watch-link"))),
          phoneApp(devices.install(devices.phone(), testApp("phone-link"))) {
        std::ofstream(documents() + "/big.bin") << std::string(kFileSize, 'b');
    }

    std::string documents() const { return devices.phone() + "/fs/opt/usr/media/Documents"; }
    std::string downloads() const { return devices.watch() + "/fs/opt/usr/media/Downloads"; }

    void start(const std::vector<std::string>& phoneArguments) {
        apps.start(watchApp, {}, phoneApp, phoneArguments);
    }

    // The files in the watch's downloads, hidden (unfinished) ones too.
    std::vector<std::string> received() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(downloads())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    const WorkFolder work;
    const LinkProfile& link;
    DevicePair devices;
    const std::string watchApp;
    const std::string phoneApp;
    AppsOnPair apps{devices};
};

class LinkProfileTest : public LinkTest, public testing::TestWithParam<std::string> {
protected:
    LinkProfileTest() : LinkTest(GetParam()) {}
};

// Both apps see the profile's transport and largest send; round trips take
// at least the link's latency each way, and data crosses whole.
TEST_P(LinkProfileTest, BothAppsSeeTheLinkAndItsLatency) {
    start({"ping", "10"});
    const std::string seen =
        "over " + transportName(link) + " max " + std::to_string(link.maxDataSize);
    apps.expectPhone("phone: found " + seen);
    apps.expectWatch("watch: request " + seen);
    apps.expectPhone("phone: connected");

    ASSERT_TRUE(apps.phone->waitForOutput("phone: rtt min ")) << apps.both();
    std::smatch found;
    const std::string out = apps.phone->output();
    ASSERT_TRUE(std::regex_search(out, found, std::regex("rtt min (\\d+) median (\\d+)")));
    const auto floor =
        std::chrono::duration_cast<std::chrono::milliseconds>(2 * (link.latency - link.jitter));
    EXPECT_GE(std::stol(found[1]), floor.count()) << out;
}

// What a peer agent reports as its largest send is what a send may carry:
// exactly that many bytes cross and come back whole; one byte more is
// refused and nothing of it crosses.
TEST_P(LinkProfileTest, TheLargestSendThePeerReportsCrossesAndOneByteMoreIsRefused) {
    start({"largest"});
    const std::string size = std::to_string(link.maxDataSize);
    const std::string longer = std::to_string(link.maxDataSize + 1);
    apps.expectPhone("phone: found over " + transportName(link) + " max " + size);
    apps.expectPhone("phone: sent " + size);
    ASSERT_TRUE(apps.phone->waitForOutput("phone: refused " + longer + " ")) << apps.both();
    if (link.maxDataSize == KVP_MAX_DATA_SIZE) {
        // Past the bound of every link, the script's own check refuses it.
        apps.expectPhone("phone: refused " + longer +
                         " InvalidValuesError data string is too long.");
    }
    apps.expectPhone("phone: echoed " + size, seconds(20));
    std::this_thread::sleep_for(milliseconds(300));
    // One echo, of the largest send: the longer one never crossed.
    const std::string both = apps.both();
    EXPECT_EQ(countLines(both, "phone: echoed " + size), 1) << both;
    EXPECT_EQ(both.find("phone: echoed "), both.rfind("phone: echoed ")) << both;
}

INSTANTIATE_TEST_SUITE_P(EveryProfile, LinkProfileTest,
                         testing::Values("unlimited", "wifi", "usb", "bt", "ble"),
                         [](const testing::TestParamInfo<std::string>& info) {
                             return info.param;
                         });

// Faults and full queues on a Bluetooth link.
class LinkFaultTest : public LinkTest, public testing::Test {
protected:
    LinkFaultTest() : LinkTest("bt") {}

    // Makes `fault` (a kv-accessory command with its options) on the phone.
    void fault(std::vector<std::string> command) {
        command.insert(command.begin() + 1, devices.phone());
        devices.tool(command);
    }
    std::vector<std::string> afterMessages(std::vector<std::string> command, int count) {
        command.insert(command.end(),
                       {"--after-messages", std::to_string(count), "--channel", "110"});
        return command;
    }
    std::vector<std::string> afterFileBytes(std::vector<std::string> command) {
        command.insert(command.end(), {"--after-file-bytes", std::to_string(kFileSize / 4)});
        return command;
    }

    // Both apps saw the link go, and their connection end, once.
    void expectLinkLostInConversation() {
        const std::string lost = std::string("device DETACHED ") + kDeviceStatusTransport;
        apps.expectPhone("phone: " + lost, seconds(15));
        apps.expectWatch("watch: " + lost, seconds(15));
        apps.expectPhone("phone: connection ended DEVICE_DETACHED");
        ASSERT_TRUE(apps.watch->waitForOutput("watch: connection ended DEVICE_DETACHED after "))
            << apps.both();
        std::this_thread::sleep_for(milliseconds(300));
        EXPECT_EQ(countLines(apps.both(), "phone: connection ended DEVICE_DETACHED"), 1);
        EXPECT_EQ(countLines(apps.both(), "phone: all echoed 200"), 0) << apps.both();
    }

    // Both apps saw the transfer fail, and no file (partial or whole) stays.
    void expectTransferLost() {
        apps.expectPhone("phone: file error PEER_CONN_LOST", seconds(15));
        apps.expectWatch("watch: file error PEER_CONN_LOST", seconds(15));
        EXPECT_EQ(countLines(apps.both(), "phone: file sent"), 0) << apps.both();
        const auto cleared = std::chrono::steady_clock::now() + seconds(10);
        while (!received().empty() && std::chrono::steady_clock::now() < cleared) {
            std::this_thread::sleep_for(milliseconds(20));
        }
        EXPECT_TRUE(received().empty()) << received().front();
    }

    // The link comes back by itself, or once attached again.
    void expectLinkBack() {
        apps.expectPhone(std::string("phone: device ATTACHED ") + kDeviceStatusTransport,
                         seconds(20));
        apps.expectWatch(std::string("watch: device ATTACHED ") + kDeviceStatusTransport,
                         seconds(20));
    }
};

TEST_F(LinkFaultTest, ADropMidConversationEndsItOnBothSides) {
    fault(afterMessages({"drop"}, 30));
    start({"talk", "200"});
    expectLinkLostInConversation();
    expectLinkBack();
}

TEST_F(LinkFaultTest, ADetachMidConversationEndsItOnBothSides) {
    fault(afterMessages({"detach"}, 30));
    start({"talk", "200"});
    expectLinkLostInConversation();
    devices.setLink(devices.phone(), true);
    expectLinkBack();
}

// A connection that ended stays known to the app's sockets until the device
// goes: its status listener hears the end, then the detach.
TEST_F(LinkFaultTest, AnEndedConnectionHearsTheLaterDetachToo) {
    start({"close"});
    apps.expectPhone("phone: closed");
    apps.expectWatch("watch: connection ended PEER_DISCONNECTED after 1 messages");
    devices.setLink(devices.phone(), false);
    apps.expectWatch("watch: connection ended DEVICE_DETACHED after 1 messages", seconds(15));
    apps.expectPhone("phone: connection ended DEVICE_DETACHED", seconds(15));
    devices.setLink(devices.phone(), true);
    expectLinkBack();
}

// A stall past the link's supervision is a lost link, reported by the
// service on its own before the detach.
TEST_F(LinkFaultTest, ALongStallMidConversationEndsItOnBothSides) {
    fault(afterMessages({"stall", "--seconds", "9"}, 30));
    start({"talk", "200"});
    expectLinkLostInConversation();
    for (const char* app : {"phone", "watch"}) {
        EXPECT_TRUE(waitForText(work.path() + "/" + app + ".log",
                                "the accessory service reports error 1 for"))
            << app;
    }
    expectLinkBack();
}

// A search under way when the link goes ends in an error at the script, so
// that an app that searches again on an error goes on.
class PendingSearchTest : public LinkFaultTest, public testing::WithParamInterface<std::string> {};

TEST_P(PendingSearchTest, EndsInAnErrorWhenTheLinkGoes) {
    start({"search-again", "2000"});
    ASSERT_TRUE(apps.phone->waitForOutput("phone: found over TRANSPORT_BT", seconds(20)))
        << apps.both();
    fault({"stall", "--seconds", "9"});  // the next search waits for an answer
    apps.expectPhone("phone: searching again");
    std::this_thread::sleep_for(milliseconds(300));
    if (GetParam() == "detach") {
        devices.setLink(devices.phone(), false);
    } else if (GetParam() == "drop") {
        fault({"drop"});
    }  // "silence": the stall outlasts the link's supervision
    ASSERT_TRUE(apps.phone->waitForOutput("phone: search error ", seconds(15))) << apps.both();
    const bool noDevice =
        apps.phone->output().find("phone: search error DEVICE_NOT_CONNECTED") != std::string::npos;
    const bool timedOut =
        apps.phone->output().find("phone: search error PEER_NOT_FOUND") != std::string::npos;
    EXPECT_TRUE(noDevice || (GetParam() == "silence" && timedOut)) << apps.both();
    apps.expectPhone(std::string("phone: device DETACHED ") + kDeviceStatusTransport, seconds(15));
}

INSTANTIATE_TEST_SUITE_P(EveryWayTheLinkGoes, PendingSearchTest,
                         testing::Values("drop", "detach", "silence"),
                         [](const testing::TestParamInfo<std::string>& info) {
                             return info.param;
                         });

TEST_F(LinkFaultTest, AShortStallMidConversationLosesNothing) {
    fault(afterMessages({"stall", "--seconds", "2"}, 30));
    start({"talk", "200"});
    apps.expectPhone("phone: all echoed 200", seconds(40));
    EXPECT_EQ(countLines(apps.both(), "phone: connection ended DEVICE_DETACHED"), 0);
    EXPECT_EQ(apps.both().find("out of order"), std::string::npos) << apps.both();
    EXPECT_EQ(apps.both().find("DETACHED"), std::string::npos) << apps.both();
}

TEST_F(LinkFaultTest, ADropMidTransferFailsItOnBothSides) {
    fault(afterFileBytes({"drop"}));
    start({"file", "1"});
    expectTransferLost();
    expectLinkBack();
}

TEST_F(LinkFaultTest, ADetachMidTransferFailsItOnBothSides) {
    fault(afterFileBytes({"detach"}));
    start({"file", "1"});
    expectTransferLost();
    devices.setLink(devices.phone(), true);
    expectLinkBack();
}

TEST_F(LinkFaultTest, ALongStallMidTransferFailsItOnBothSides) {
    fault(afterFileBytes({"stall", "--seconds", "9"}));
    start({"file", "1"});
    expectTransferLost();
    expectLinkBack();
}

TEST_F(LinkFaultTest, AShortStallMidTransferLosesNothing) {
    fault(afterFileBytes({"stall", "--seconds", "2"}));
    start({"file", "1"});
    apps.expectPhone("phone: file sent", seconds(40));
    apps.expectWatch("watch: file received file:///opt/usr/media/Downloads/big.bin");
    EXPECT_EQ(std::filesystem::file_size(downloads() + "/big.bin"), kFileSize);
}

// Two files that fit one at a time but not together: the one that runs out
// of room ends with no space on both sides and leaves nothing; the other
// arrives whole.
TEST_F(LinkFaultTest, StorageThatRunsOutMidTransferFailsItOnBothSides) {
    devices.tool({"storage", devices.watch(), "--free", std::to_string(kFileSize * 3 / 2)});
    start({"file", "2"});
    apps.expectPhone("phone: file error SPACE_NOT_AVAILABLE", seconds(30));
    apps.expectWatch("watch: file error SPACE_NOT_AVAILABLE");
    apps.expectPhone("phone: file sent", seconds(30));
    ASSERT_TRUE(apps.watch->waitForOutput("watch: file received ")) << apps.both();
    EXPECT_EQ(countLines(apps.watch->output(), "watch: file offered big.bin"), 2);
    const std::vector<std::string> names = received();
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(std::filesystem::file_size(downloads() + "/" + names[0]), kFileSize);
}

// An app that sends faster than the link carries is refused once its
// channel's queue is full, and its library is told when there is room again
// (the plug-in only logs that; the script tries again on its own).
TEST_F(LinkFaultTest, ARefusedSenderIsToldOfRoomOnceTheChannelDrains) {
    start({"flood"});
    ASSERT_TRUE(apps.phone->waitForOutput("phone: send refused IOError")) << apps.both();
    EXPECT_TRUE(waitForText(work.path() + "/phone.log", "<<<<<< OnSpaceAvailable", seconds(15)));
    EXPECT_EQ(apps.both().find("connection ended"), std::string::npos) << apps.both();
}

// An app that sends faster than the link carries is refused once its
// channel's queue is full; when the link then goes, what was still queued
// is reported by the service on its own, before the detach.
TEST_F(LinkFaultTest, DataStillQueuedWhenTheLinkGoesIsReported) {
    start({"flood"});
    ASSERT_TRUE(apps.phone->waitForOutput("phone: send refused ")) << apps.both();
    devices.setLink(devices.phone(), false);
    apps.expectPhone("phone: connection ended DEVICE_DETACHED");
    apps.expectWatch(std::string("watch: device DETACHED ") + kDeviceStatusTransport);
    EXPECT_TRUE(
        waitForText(work.path() + "/phone.log", "the accessory service reports error 0 for"));
}

}  // namespace
