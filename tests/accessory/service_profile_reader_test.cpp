// Tests of the service-profile reader that the plug-in and the daemon share:
// small profile files written to a temporary folder and read back.
#include <gtest/gtest.h>
#include <kv-accessory/ServiceProfileReader.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TestFiles.h"

namespace KvTest {
namespace {

using namespace Kv::Accessory;

class ServiceProfileReaderTest : public testing::Test {
protected:
    // Reads a file of `content`.
    ServiceProfileFile read(const std::string& content) {
        const std::string path = folder.file("profile" + std::to_string(files++) + ".xml");
        writeFile(path, content);
        return readServiceProfileFile(path);
    }

    // Reads `elements` inside a root element; the file must be complete and
    // hold exactly one profile, which is returned.
    ServiceProfileRecord readOne(const std::string& elements) {
        const ServiceProfileFile file = read("<profiles>" + elements + "</profiles>");
        EXPECT_TRUE(file.complete);
        EXPECT_EQ(file.profiles.size(), 1u);
        return file.profiles.empty() ? ServiceProfileRecord() : file.profiles.front();
    }

    TempDir folder;
    int files = 0;
};

std::vector<std::uint16_t> channelIds(const ServiceProfileRecord& profile) {
    std::vector<std::uint16_t> ids;
    ids.reserve(profile.channels.size());
    for (const ServiceChannelRecord& channel : profile.channels) {
        ids.push_back(channel.id);
    }
    return ids;
}

TEST_F(ServiceProfileReaderTest, ProfileWithoutAttributesGetsTheDefaults) {
    const ServiceProfileRecord profile = readOne("<serviceProfile/>");
    EXPECT_EQ(profile.id, "");
    EXPECT_EQ(profile.name, "");
    EXPECT_EQ(profile.version, "1.0");
    EXPECT_EQ(profile.role, ProfileRole::kConsumer);
    EXPECT_EQ(profile.serviceLimit, ProfileServiceLimit::kAny);
    EXPECT_EQ(profile.serviceTimeout, 30);
    EXPECT_TRUE(profile.channels.empty());
    EXPECT_TRUE(profile.transports.empty());
}

TEST_F(ServiceProfileReaderTest, IdNameAndVersionAreKeptAsWritten) {
    const ServiceProfileRecord profile =
        readOne(R"(<serviceProfile id="/My/Id" name="Mixed Case" version=" 2.1b"/>)");
    EXPECT_EQ(profile.id, "/My/Id");
    EXPECT_EQ(profile.name, "Mixed Case");
    EXPECT_EQ(profile.version, " 2.1b");
}

TEST_F(ServiceProfileReaderTest, RoleProviderInAnyCaseIsProvider) {
    EXPECT_EQ(readOne(R"(<serviceProfile role="PROVIDER"/>)").role, ProfileRole::kProvider);
    EXPECT_EQ(readOne(R"(<serviceProfile role="providers"/>)").role, ProfileRole::kConsumer);
}

TEST_F(ServiceProfileReaderTest, ServiceLimitWordsAndUnknownLimit) {
    EXPECT_EQ(readOne(R"(<serviceProfile serviceLimit="ONE_PEERAGENT"/>)").serviceLimit,
              ProfileServiceLimit::kOnePeerAgent);
    EXPECT_EQ(readOne(R"(<serviceProfile serviceLimit="one_accessory"/>)").serviceLimit,
              ProfileServiceLimit::kOneAccessory);
    EXPECT_EQ(readOne(R"(<serviceProfile serviceLimit="two"/>)").serviceLimit,
              ProfileServiceLimit::kAny);
}

TEST_F(ServiceProfileReaderTest, ServiceTimeoutIsReadAsAStreamReadsIt) {
    EXPECT_EQ(readOne(R"(<serviceProfile serviceTimeout="abc"/>)").serviceTimeout, 0);
    EXPECT_EQ(readOne(R"(<serviceProfile serviceTimeout=" 45s"/>)").serviceTimeout, 45);
    EXPECT_EQ(readOne(R"(<serviceProfile serviceTimeout="70000"/>)").serviceTimeout, 65535);
}

TEST_F(ServiceProfileReaderTest, ChannelIdAboveTheRangeIsClampedAndKept) {
    const ServiceProfileRecord profile =
        readOne(R"(<serviceProfile><serviceChannel id="70000"/></serviceProfile>)");
    EXPECT_EQ(channelIds(profile), std::vector<std::uint16_t>{65535});
}

TEST_F(ServiceProfileReaderTest, ChannelWithoutAUsableIdIsDropped) {
    const ServiceProfileRecord profile =
        readOne(R"(<serviceProfile><serviceChannel id="0"/><serviceChannel priority="low"/>)"
                R"(<serviceChannel/><serviceChannel id="7"/></serviceProfile>)");
    EXPECT_EQ(channelIds(profile), std::vector<std::uint16_t>{7});
}

TEST_F(ServiceProfileReaderTest, ChannelWordsAreReadInAnyCase) {
    const ServiceProfileRecord profile = readOne(
        R"(<serviceProfile><serviceChannel id="3" dataRate="LOW" priority="Medium")"
        R"( reliability="DISABLE"/><serviceChannel id="4" priority="low"/></serviceProfile>)");
    ASSERT_EQ(profile.channels.size(), 2u);
    EXPECT_EQ(profile.channels[0].dataRate, ChannelDataRate::kLow);
    EXPECT_EQ(profile.channels[0].priority, ChannelPriority::kMedium);
    EXPECT_EQ(profile.channels[0].reliability, ChannelReliability::kDisable);
    EXPECT_EQ(profile.channels[1].dataRate, ChannelDataRate::kHigh);
    EXPECT_EQ(profile.channels[1].priority, ChannelPriority::kLow);
    EXPECT_EQ(profile.channels[1].reliability, ChannelReliability::kEnable);
}

TEST_F(ServiceProfileReaderTest, TransportDuplicatesAreKeptAndUnknownOnesIgnored) {
    const ServiceProfileRecord profile = readOne(
        R"(<serviceProfile><transport type="TRANSPORT_WIFI"/><transport type="transport_nfc"/>)"
        R"(<transport type="transport_bt"/><transport type="transport_wifi"/></serviceProfile>)");
    EXPECT_EQ(profile.transports,
              (std::vector<std::uint8_t>{ProfileTransport::kWifi, ProfileTransport::kBt,
                                         ProfileTransport::kWifi}));
}

TEST_F(ServiceProfileReaderTest, ChannelsAndTransportsOutsideAProfileAreIgnored) {
    const ServiceProfileFile file =
        read(R"(<profiles><serviceChannel id="1"/><transport type="transport_bt"/>)"
             R"(<serviceProfile id="a"/><serviceChannel id="2"/></profiles>)");
    ASSERT_EQ(file.profiles.size(), 1u);
    EXPECT_TRUE(file.profiles[0].channels.empty());
    EXPECT_TRUE(file.profiles[0].transports.empty());
}

TEST_F(ServiceProfileReaderTest, ProfileOpenedInsideAnotherReplacesIt) {
    const ServiceProfileFile file =
        read(R"(<profiles><serviceProfile id="outer"><serviceChannel id="1"/>)"
             R"(<serviceProfile id="inner"><serviceChannel id="2"/></serviceProfile>)"
             R"(<serviceChannel id="3"/></serviceProfile></profiles>)");
    EXPECT_TRUE(file.complete);
    ASSERT_EQ(file.profiles.size(), 1u);
    EXPECT_EQ(file.profiles[0].id, "inner");
    EXPECT_EQ(channelIds(file.profiles[0]), std::vector<std::uint16_t>{2});
}

TEST_F(ServiceProfileReaderTest, ProfilesComeInTheOrderOfTheirClosingTags) {
    const ServiceProfileFile file =
        read(R"(<resources><application><serviceProfile id="a"/><group>)"
             R"(<serviceProfile id="b" role="provider"/></group></application></resources>)");
    EXPECT_TRUE(file.complete);
    ASSERT_EQ(file.profiles.size(), 2u);
    EXPECT_EQ(file.profiles[0].id, "a");
    EXPECT_EQ(file.profiles[1].id, "b");
    EXPECT_EQ(file.profiles[1].role, ProfileRole::kProvider);
}

TEST_F(ServiceProfileReaderTest, BrokenOffFileKeepsTheProfileClosedBeforeTheBreak) {
    const ServiceProfileFile file =
        read(R"(<profiles><serviceProfile id="first"><serviceChannel id="5"/></serviceProfile>)"
             R"(<serviceProfile id="second"><serviceChannel id="6")");
    EXPECT_FALSE(file.complete);
    ASSERT_EQ(file.profiles.size(), 1u);
    EXPECT_EQ(file.profiles[0].id, "first");
    EXPECT_EQ(channelIds(file.profiles[0]), std::vector<std::uint16_t>{5});
}

TEST_F(ServiceProfileReaderTest, MissingFileIsIncompleteAndEmpty) {
    const ServiceProfileFile file = readServiceProfileFile(folder.file("missing.xml"));
    EXPECT_FALSE(file.complete);
    EXPECT_TRUE(file.profiles.empty());
}

TEST_F(ServiceProfileReaderTest, AFileLargerThanTheBoundIsNotRead) {
    const std::string padding(kMaxServiceProfileFileSize, ' ');
    const std::string profile = "<serviceProfile id=\"/big\"></serviceProfile>";
    const ServiceProfileFile file = read("<resources>" + profile + padding + "</resources>");
    EXPECT_FALSE(file.complete);
    EXPECT_TRUE(file.profiles.empty());
    EXPECT_EQ(read("<resources>" + profile + "</resources>").profiles.size(), 1u);
}

}  // namespace
}  // namespace KvTest
