// Tests of the daemon's view of the installed apps' service profiles: the
// values it takes from the shared reader's records, and the cache that keeps
// an app's parsed file for as long as the file is unchanged.
#include <gtest/gtest.h>
#include <kv-device/AppRegistry.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "DeviceTestSupport.h"
#include "ServiceProfile.h"

namespace KvTest {
namespace {

using namespace Kv::Accessory;

const char* const kAppId = "profiles.Main";
const char* const kLocation = "res/xml/accessoryservices.xml";

const char* const kProfiles = R"(<?xml version="1.0"?>
<resources>
  <serviceProfile id="/t/echo" name="Echo" version="2.0" role="Provider"
                  serviceLimit="one_accessory" serviceTimeout="abc">
    <serviceChannel id="70000" priority="low"/>
    <serviceChannel id="0" priority="low"/>
    <serviceChannel id="9" priority="MEDIUM"/>
    <serviceChannel id="8"/>
  </serviceProfile>
  <serviceProfile id="/t/plain" serviceTimeout="12"/>
</resources>
)";

// A device of its own with the app installed from a scratch folder and its
// profile file holding `profiles`. The file is written into the installed
// app, as for an app installed before installs checked service profiles:
// the profiles here break the schema on purpose, to show what the reader
// makes of them.
class ServiceProfileCacheTest : public testing::Test {
protected:
    void SetUp() override { install(kProfiles); }

    void install(const std::string& profiles) {
        const std::string app = scratch.path() + "/app";
        makeAppFolder(app, "profiles", kAppId,
                      std::string("  <metadata key=\"AccessoryServicesLocation\" value=\"") +
                          kLocation + "\"/>\n");
        // The install checks the file; the test's own text goes into the
        // installed copy, where the daemon reads it, broken or not.
        writeEmptyProfile(app + "/" + kLocation);
        Kv::Device::installApp(app);
        writeTextFile(installedFile(), profiles);
    }

    // The installed profile file, where the daemon reads it.
    std::string installedFile() const {
        return Kv::Device::findApp(kAppId).value().hostRoot + "/" + kLocation;
    }

    TempDevice device;
    TempFolder scratch;
};

TEST_F(ServiceProfileCacheTest, RecordsBecomeTheDaemonsProfiles) {
    const std::optional<ServiceProfile> echo = findAppProfile(kAppId, "/t/echo");
    ASSERT_TRUE(echo.has_value());
    EXPECT_EQ(echo->name, "Echo");
    EXPECT_EQ(echo->version, "2.0");
    EXPECT_FALSE(echo->consumer);
    EXPECT_EQ(echo->limit, ServiceLimit::OneAccessory);
    // A time-out without digits is no usable time-out: the default applies.
    EXPECT_EQ(echo->timeoutSeconds, 30);
    ASSERT_EQ(echo->channels.size(), 3u);
    EXPECT_EQ(echo->channels[0].id, 65535);
    EXPECT_EQ(echo->channels[0].priority, 3);
    EXPECT_EQ(echo->channels[1].id, 9);
    EXPECT_EQ(echo->channels[1].priority, 2);
    EXPECT_EQ(echo->channels[2].id, 8);
    EXPECT_EQ(echo->channels[2].priority, 1);

    const std::optional<ServiceProfile> plain = findAppProfile(kAppId, "/t/plain");
    ASSERT_TRUE(plain.has_value());
    EXPECT_EQ(plain->version, "1.0");
    EXPECT_TRUE(plain->consumer);
    EXPECT_EQ(plain->timeoutSeconds, 12);
}

TEST_F(ServiceProfileCacheTest, LookupsOfAnUnchangedFileParseItOnce) {
    const std::uint64_t before = profileFileParses();
    EXPECT_TRUE(findAppProfile(kAppId, "/t/echo").has_value());
    EXPECT_TRUE(findAppProfile(kAppId, "/t/plain").has_value());
    EXPECT_TRUE(findAppProfile(kAppId, "/t/echo").has_value());
    EXPECT_FALSE(findAppProfile(kAppId, "/t/unknown").has_value());
    EXPECT_EQ(profileFileParses(), before + 1);
}

TEST_F(ServiceProfileCacheTest, RewrittenFileIsParsedAgain) {
    const std::uint64_t before = profileFileParses();
    EXPECT_TRUE(findAppProfile(kAppId, "/t/plain").has_value());
    writeTextFile(installedFile(), R"(<resources><serviceProfile id="/t/new"/></resources>)");
    EXPECT_FALSE(findAppProfile(kAppId, "/t/plain").has_value());
    EXPECT_TRUE(findAppProfile(kAppId, "/t/new").has_value());
    EXPECT_EQ(profileFileParses(), before + 2);
}

TEST_F(ServiceProfileCacheTest, ReinstallIsParsedAgainEvenWithTheSameContent) {
    const std::uint64_t before = profileFileParses();
    EXPECT_TRUE(findAppProfile(kAppId, "/t/echo").has_value());
    install(kProfiles);
    EXPECT_TRUE(findAppProfile(kAppId, "/t/echo").has_value());
    EXPECT_EQ(profileFileParses(), before + 2);
}

TEST_F(ServiceProfileCacheTest, BrokenOffFileGivesTheProfilesClosedBeforeTheBreak) {
    install(R"(<resources><serviceProfile id="/t/first"/><serviceProfile id="/t/second">)");
    EXPECT_TRUE(findAppProfile(kAppId, "/t/first").has_value());
    EXPECT_FALSE(findAppProfile(kAppId, "/t/second").has_value());
}

TEST_F(ServiceProfileCacheTest, MissingFileGivesNothingAndIsNotCached) {
    std::remove(installedFile().c_str());
    const std::uint64_t before = profileFileParses();
    EXPECT_FALSE(findAppProfile(kAppId, "/t/echo").has_value());
    EXPECT_EQ(profileFileParses(), before);
}

}  // namespace
}  // namespace KvTest
