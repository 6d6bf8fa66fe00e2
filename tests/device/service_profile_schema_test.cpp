// Tests of the service-profile check that installing an app runs: a valid
// file installs, a malformed one and one that breaks the schema are refused
// with the file, the line and the reason, and every profile of the
// repository follows the schema.
#include <kv-device/AppRegistry.h>
#include <kv-device/ServiceProfileSchema.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const char kLocation[] = "res/xml/accessoryservices.xml";
const char kLocationMetadata[] =
    "  <metadata key=\"AccessoryServicesLocation\" value=\"res/xml/accessoryservices.xml\"/>\n";

// A profile file: the XML declaration on line 1, <resources> on line 2,
// <application> on line 3, then `profiles` from line 4 on.
std::string profileFile(const std::string& profiles) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<resources>\n<application name=\"T\">\n" +
           profiles + "</application>\n</resources>\n";
}

const char kValidProfiles[] =
    "<serviceProfile id=\"/t/chat\" name=\"Chat\" role=\"provider\" serviceLimit=\"any\"\n"
    "                serviceTimeout=\"10\" version=\"2.0\">\n"
    "  <supportedTransports><transport type=\"transport_wifi\"/></supportedTransports>\n"
    "  <serviceChannel id=\"1\" dataRate=\"low\" priority=\"high\" reliability=\"enable\"/>\n"
    "  <serviceChannel id=\"65535\" dataRate=\"high\" priority=\"low\" reliability=\"disable\"/>\n"
    "</serviceProfile>\n"
    "<serviceProfile id=\"/t/other\" role=\"CONSUMER\" serviceLimit=\"One_Accessory\">\n"
    "  <transport type=\"TRANSPORT_BT\"/>\n"
    "  <serviceChannel id=\"1\" priority=\"Medium\"/>\n"
    "  <transport type=\"transport_ble\"/>\n"
    "</serviceProfile>\n"
    "<serviceProfile name=\"No id\" role=\"consumer\"/>\n";

class ServiceProfileSchemaTest : public testing::Test {
protected:
    // Makes the app folder with `profile` as its profile file (none when
    // empty) and installs it.
    Kv::Device::AppInfo install(const std::string& profile,
                                const std::string& metadata = kLocationMetadata) {
        KvTest::makeAppFolder(appFolder(), "schema01", "schema01.App", metadata);
        if (!profile.empty()) {
            KvTest::writeTextFile(profileSource(), profile);
        }
        return Kv::Device::installApp(appFolder());
    }

    // The message of the error that installing `profile` raises.
    std::string installError(const std::string& profile,
                             const std::string& metadata = kLocationMetadata) {
        try {
            install(profile, metadata);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    }

    std::string appFolder() const { return m_sources.path() + "/schema01"; }
    std::string profileSource() const { return appFolder() + "/" + kLocation; }

    KvTest::TempDevice m_device;
    KvTest::TempFolder m_sources;
};

}  // namespace

TEST_F(ServiceProfileSchemaTest, ValidProfileInstalls) {
    const Kv::Device::AppInfo info = install(profileFile(kValidProfiles));
    EXPECT_TRUE(fs::is_regular_file(info.hostRoot + "/" + kLocation));
    EXPECT_TRUE(Kv::Device::findApp("schema01.App").has_value());
}

TEST_F(ServiceProfileSchemaTest, EmptyResourcesInstall) {
    EXPECT_NO_THROW(install("<?xml version=\"1.0\"?><resources/>"));
}

TEST_F(ServiceProfileSchemaTest, AppWithoutProfileInstalls) {
    EXPECT_NO_THROW(install("", ""));
    EXPECT_TRUE(Kv::Device::findApp("schema01.App").has_value());
}

// A mistyped location is an install error that quotes it and the path it
// names; nothing is installed.
TEST_F(ServiceProfileSchemaTest, ALocationThatNamesNoFileIsRefused) {
    EXPECT_NE(installError("", kLocationMetadata).find("names no file"), std::string::npos);
    const std::string error = installError(
        profileFile(kValidProfiles),
        "  <metadata key=\"AccessoryServicesLocation\" value=\"res/xml/acessoryservices.xml\"/>\n");
    EXPECT_NE(error.find("config.xml: the AccessoryServicesLocation "
                         "\"res/xml/acessoryservices.xml\" names no file: " +
                         appFolder() + "/res/xml/acessoryservices.xml is missing"),
              std::string::npos)
        << error;
    EXPECT_FALSE(Kv::Device::findApp("schema01.App").has_value());
    EXPECT_NE(installError(profileFile(kValidProfiles),
                           "  <metadata key=\"AccessoryServicesLocation\" value=\"/\"/>\n")
                  .find("config.xml: the AccessoryServicesLocation \"/\" names no file"),
              std::string::npos);
    // A folder is no file either.
    EXPECT_NE(installError(profileFile(kValidProfiles),
                           "  <metadata key=\"AccessoryServicesLocation\" value=\"res/xml\"/>\n")
                  .find("names no file"),
              std::string::npos);
}

// A key that is all but the location key would leave the app without its
// agents at run time: it is named at install.
TEST_F(ServiceProfileSchemaTest, AMistypedLocationKeyIsRefused) {
    for (const std::string key : {"AccessoryServiceLocation", "accessoryserviceslocation",
                                  "AccessoryServicesLocaton", "AccesoryServicesLocations"}) {
        const std::string error = installError(
            profileFile(kValidProfiles),
            "  <metadata key=\"" + key + "\" value=\"res/xml/accessoryservices.xml\"/>\n");
        EXPECT_NE(error.find("config.xml: the metadata key \"" + key +
                             "\" is not \"AccessoryServicesLocation\""),
                  std::string::npos)
            << error;
    }
    // Other keys are the app's business.
    EXPECT_NO_THROW(install("", "  <metadata key=\"AccessoryLocation\" value=\"x\"/>\n"));
}

TEST_F(ServiceProfileSchemaTest, MalformedProfileIsRefusedWithFileAndLine) {
    const std::string error = installError(profileFile(
        "<serviceProfile id=\"/t/a\">\n  <serviceChannel id=\"1\">\n</serviceProfile>\n"));
    // The channel opened on line 5 is still open when line 6 closes the profile.
    EXPECT_NE(error.find(profileSource() + ":6: not well-formed XML: "), std::string::npos)
        << error;
    EXPECT_FALSE(Kv::Device::findApp("schema01.App").has_value());
}

TEST_F(ServiceProfileSchemaTest, SchemaBreakingProfileIsRefusedWithFileLineAndReason) {
    const std::string error =
        installError(profileFile("<serviceProfile id=\"/t/a\" role=\"provider\">\n"
                                 "  <serviceChannel id=\"1\" priority=\"urgent\"/>\n"
                                 "</serviceProfile>\n"));
    EXPECT_NE(error.find(profileSource() +
                         ":5: breaks the service-profile schema: Element 'serviceChannel', "
                         "attribute 'priority': 'urgent' is not one of high, medium, low "
                         "(in any letter case)"),
              std::string::npos)
        << error;
    EXPECT_FALSE(Kv::Device::findApp("schema01.App").has_value());
}

TEST_F(ServiceProfileSchemaTest, FailedCheckKeepsTheOlderInstall) {
    install(profileFile(kValidProfiles));
    EXPECT_NE(installError(profileFile("<serviceProfile unknown=\"1\"/>\n")), "no error");
    const auto app = Kv::Device::findApp("schema01.App");
    ASSERT_TRUE(app.has_value());
    EXPECT_EQ(fs::file_size(app->hostRoot + "/" + kLocation), profileFile(kValidProfiles).size());
}

// What the reader would skip or replace by a default is refused, each on its
// line and with its reason.
TEST_F(ServiceProfileSchemaTest, WhatTheReaderWouldSilentlyIgnoreIsRefused) {
    struct Case {
        std::string profiles;
        int line;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {"<serviceProfile id=\"/t/a\" role=\"server\"/>\n", 4,
         "attribute 'role': 'server' is not one of provider, consumer"},
        {"<serviceProfile id=\"/t/a\" role=\" provider\"/>\n", 4,
         "attribute 'role': ' provider' is not one of provider, consumer"},
        {"<serviceProfile id=\"/t/a\" serviceLimit=\"two\"/>\n", 4,
         "'two' is not one of any, one_accessory, one_peeragent"},
        {"<serviceProfile id=\"/t/a\" serviceTimeout=\"abc\"/>\n", 4, "attribute 'serviceTimeout'"},
        {"<serviceProfile id=\"/t/a\" serviceTimeout=\"0\"/>\n", 4,
         "attribute 'serviceTimeout': [facet 'minInclusive']"},
        {"<serviceProfile id=\"/t/a\" serviceTimeout=\"45s\"/>\n", 4, "attribute 'serviceTimeout'"},
        {"<serviceProfile id=\"/t/a\" Role=\"provider\"/>\n", 4,
         "The attribute 'Role' is not allowed"},
        {"<serviceProfile id=\"/my id\"/>\n", 4, "'/my id' is not a text without blanks"},
        {"<serviceProfile id=\"/t/a\">\n<serviceChannel id=\"0\"/>\n</serviceProfile>\n", 5,
         "attribute 'id': [facet 'minInclusive']"},
        {"<serviceProfile id=\"/t/a\">\n<serviceChannel id=\"70000\"/>\n</serviceProfile>\n", 5,
         "'70000' is not a channel id from 1 to 65535"},
        {"<serviceProfile id=\"/t/a\">\n<serviceChannel dataRate=\"low\"/>\n</serviceProfile>\n", 5,
         "The attribute 'id' is required but missing"},
        {"<serviceProfile id=\"/t/a\">\n<serviceChannel id=\"2\" dataRate=\"fast\"/>\n"
         "</serviceProfile>\n",
         5, "'fast' is not one of high, low"},
        {"<serviceProfile id=\"/t/a\">\n<serviceChannel id=\"2\" reliability=\"yes\"/>\n"
         "</serviceProfile>\n",
         5, "'yes' is not one of enable, disable"},
        {"<serviceProfile id=\"/t/a\">\n<serviceChannel id=\"2\"/>\n<serviceChannel id=\"2\"/>\n"
         "</serviceProfile>\n",
         6,
         "Duplicate key-sequence ['2'] in unique identity-constraint "
         "'channelIdsAreUniqueWithinAProfile'"},
        {"<serviceProfile id=\"/t/a\"/>\n<serviceProfile id=\"/t/a\"/>\n", 5,
         "Duplicate key-sequence ['/t/a'] in unique identity-constraint 'profileIdsAreUnique'"},
        {"<serviceProfile id=\"/t/a\">\n<transport type=\"transport_x\"/>\n</serviceProfile>\n", 5,
         "'transport_x' is not one of transport_bt, transport_ble, transport_usb, "
         "transport_wifi"},
        {"<serviceProfile id=\"/t/a\">\n<transport/>\n</serviceProfile>\n", 5,
         "The attribute 'type' is required but missing"},
        {"<serviceProfile id=\"/t/a\">\n<ServiceChannel id=\"2\"/>\n</serviceProfile>\n", 5,
         "Element 'ServiceChannel': This element is not expected"},
        {"<serviceProfile id=\"/t/a\">\n<serviceProfile id=\"/t/b\"/>\n</serviceProfile>\n", 5,
         "Element 'serviceProfile': This element is not expected"},
    };
    for (const Case& entry : cases) {
        const std::string error = installError(profileFile(entry.profiles));
        EXPECT_NE(error.find(profileSource() + ":" + std::to_string(entry.line) +
                             ": breaks the service-profile schema: "),
                  std::string::npos)
            << entry.profiles << error;
        EXPECT_NE(error.find(entry.reason), std::string::npos) << entry.profiles << error;
    }
}

TEST_F(ServiceProfileSchemaTest, OtherRootIsRefused) {
    const std::string error = installError(
        "<?xml version=\"1.0\"?>\n<services>\n<serviceProfile id=\"/t/a\"/>\n"
        "</services>\n");
    EXPECT_NE(error.find(":2: breaks the service-profile schema: Element 'services': No matching "
                         "global declaration"),
              std::string::npos)
        << error;
}

TEST_F(ServiceProfileSchemaTest, SeveralProblemsAreCounted) {
    const std::string error = installError(
        profileFile("<serviceProfile id=\"/t/a\" role=\"x\" serviceLimit=\"y\" extra=\"z\"/>\n"));
    EXPECT_NE(error.find("(and 2 more problems)"), std::string::npos) << error;
}

TEST_F(ServiceProfileSchemaTest, LocationOutsideTheAppFolderIsRefused) {
    const std::string error = installError(
        profileFile(kValidProfiles),
        "  <metadata key=\"AccessoryServicesLocation\" value=\"../elsewhere.xml\"/>\n");
    EXPECT_NE(error.find("config.xml: the AccessoryServicesLocation \"../elsewhere.xml\" leaves "
                         "the app folder"),
              std::string::npos)
        << error;
}

TEST_F(ServiceProfileSchemaTest, TheLastLocationIsChecked) {
    KvTest::writeTextFile(appFolder() + "/res/xml/old.xml", "<broken");
    const std::string metadata =
        "  <metadata key=\"AccessoryServicesLocation\" value=\"res/xml/old.xml\"/>\n"
        "  <metadata key=\"AccessoryServicesLocation\" "
        "value=\"/res/xml/accessoryservices.xml\"/>\n";
    EXPECT_NO_THROW(install(profileFile(kValidProfiles), metadata));
}

TEST_F(ServiceProfileSchemaTest, TooLargeFileIsRefused) {
    std::string large = profileFile("<!-- " + std::string(std::size_t{300} * 1024, 'x') + " -->\n");
    const std::string error = installError(large);
    EXPECT_NE(error.find(profileSource() + ":0: the service-profile file has"), std::string::npos)
        << error;
}

TEST(ServiceProfileSchema, IsBuiltIntoTheLibrary) {
    const std::string schema = Kv::Device::serviceProfileSchema();
    EXPECT_NE(schema.find("<xs:schema"), std::string::npos);
    EXPECT_NE(schema.find("name=\"serviceChannel\""), std::string::npos);
}

// Every profile file of the repository's apps (samples, tests, benchmarks)
// follows the schema.
TEST(ServiceProfileSchema, EveryProfileOfTheRepositoryFollowsIt) {
    int checked = 0;
    for (const char* top : {"examples", "tests", "bench"}) {
        if (!fs::is_directory(fs::path(KV_SOURCE_DIR) / top)) {
            continue;
        }
        for (const fs::directory_entry& entry :
             fs::recursive_directory_iterator(fs::path(KV_SOURCE_DIR) / top)) {
            const fs::path& path = entry.path();
            if (entry.is_regular_file() && path.extension() == ".xml" &&
                path.parent_path().filename() == "xml" &&
                path.parent_path().parent_path().filename() == "res") {
                EXPECT_NO_THROW(Kv::Device::checkServiceProfile(path.string())) << path;
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 10);
}
