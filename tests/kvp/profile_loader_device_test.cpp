// The service profile loader on the platform's real application and package
// managers: an app is installed into a device of this run's own, this process
// is registered as that app, and the loader reads the app's profile through
// the device path ("/opt/usr/apps/<package>/res/wgt/..."). The program enters
// the device at the start of main, before any thread is made, so that the
// device paths are real for it.
#include <KvServiceProfileLoader.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fake_appfw.h"

#include "KvpTestDevice.h"

using namespace DeviceAPI::KVP;

namespace {

// The loader's path helper, opened up for the tests.
class TestLoader : public KvServiceProfileLoader {
public:
    using KvServiceProfileLoader::getServiceProfilePath;
};

const char* const kProfile = KvpTestDevice::exampleProfile();

// Lines that the plug-in logged (the platform libraries log under their own
// tags), without their source prefix.
std::vector<std::string> pluginMessages(const DlogCapture& capture) {
    std::vector<std::string> messages;
    for (const DlogLine& line : capture.lines()) {
        if (line.tag == "WRT_PLUGINS/TIZEN") {
            messages.push_back(line.message.substr(line.message.find(" > ") + 3));
        }
    }
    return messages;
}

class ProfileLoaderDeviceTest : public testing::Test {
protected:
    void SetUp() override {
        FakeAppfw::reset();
        FakeAppfw::useRealLibrary(true);
        AppIdCacheSingleton::RenewForTests();
        appFolder = testing::TempDir() + "kv-profile-app-" + std::to_string(getpid());
    }

    void TearDown() override {
        Kv::Device::unregisterRunningApp(getpid());
        std::filesystem::remove_all(appFolder);
        FakeAppfw::reset();
        AppIdCacheSingleton::RenewForTests();
    }

    // Installs an app of package kvtest01 whose metadata is `metadata`, with
    // the profile above at res/xml/accessoryservices.xml, and registers this
    // process as running it.
    void installAndRun(const std::string& appId, const std::string& metadata) {
        KvpTestDevice::installAndRun(appFolder, appId, "kvtest01", metadata, kProfile);
    }

    std::string appFolder;
};

const char* const kLocationMetadata = KvpTestDevice::profileLocationMetadata();

}  // namespace

TEST_F(ProfileLoaderDeviceTest, ProfileOfTheRunningAppIsReadThroughTheDevicePath) {
    installAndRun("kvtest01.ProfileTest", kLocationMetadata);
    DlogCapture capture;
    KvServiceProfileLoader loader;
    KvAgentInitListPtr profiles = loader.getKvAgentInits();

    ASSERT_EQ(profiles->size(), 2u);
    const KvAgentInit& first = *(*profiles)[0];
    EXPECT_EQ(first.id, "/kvtest/hello");
    EXPECT_EQ(first.name, "HelloAccessory");
    EXPECT_EQ(first.role, KV_ROLE_PROVIDER);
    EXPECT_EQ(first.serviceLimit, KV_SERVICE_LIMIT_ONE_ACCESSORY);
    EXPECT_EQ(first.serviceTimeout, 10);
    EXPECT_EQ(first.transportTypes, std::vector<KvTransportType>{KV_TRANSPORT_BT});
    ASSERT_EQ(first.channels.size(), 1u);
    EXPECT_EQ(first.channels[0].id, 104);
    EXPECT_EQ(first.channels[0].dataRate, KV_DATA_RATE_LOW);
    EXPECT_EQ(first.channels[0].priority, KV_PRIORITY_LOW);
    EXPECT_EQ(first.channels[0].reliability, KV_RELIABILITY_ENABLE);
    const KvAgentInit& second = *(*profiles)[1];
    EXPECT_EQ(second.role, KV_ROLE_CONSUMER);
    EXPECT_EQ(second.serviceTimeout, 30);

    EXPECT_EQ(loader.getKvAgentInits(), profiles);
    EXPECT_TRUE(pluginMessages(capture).empty());
}

TEST_F(ProfileLoaderDeviceTest, PathIsTheDevicePathOfTheFileInThePackage) {
    installAndRun("kvtest01.ProfileTest", kLocationMetadata);
    const std::string path = TestLoader().getServiceProfilePath();
    EXPECT_EQ(path, "/opt/usr/apps/kvtest01/res/wgt/res/xml/accessoryservices.xml");
    std::ifstream file(path);
    EXPECT_TRUE(file.good()) << path;
}

TEST_F(ProfileLoaderDeviceTest, AppWithoutTheLocationMetadataHasNoProfiles) {
    installAndRun("kvtest01.NoProfile", R"(<metadata key="http://example.org/other" value="x"/>)");
    DlogCapture capture;
    KvAgentInitListPtr profiles = KvServiceProfileLoader().getKvAgentInits();
    EXPECT_TRUE(profiles->empty());
    EXPECT_EQ(pluginMessages(capture), std::vector<std::string>{"xmlPath is wrong!"});
}

TEST_F(ProfileLoaderDeviceTest, ProcessThatRunsNoAppHasNoProfiles) {
    DlogCapture capture;
    KvAgentInitListPtr profiles = KvServiceProfileLoader().getKvAgentInits();
    EXPECT_TRUE(profiles->empty());
    EXPECT_EQ(pluginMessages(capture),
              (std::vector<std::string>{"Fail to get appid", "xmlPath is wrong!"}));
}

// The install checks that the file is there; one removed later is read as an
// unreadable profile.
TEST_F(ProfileLoaderDeviceTest, AProfileFileGoneAfterTheInstallIsUnreadable) {
    installAndRun("kvtest01.Missing", kLocationMetadata);
    ASSERT_TRUE(std::filesystem::remove(TestLoader().getServiceProfilePath()));
    DlogCapture capture;
    KvAgentInitListPtr profiles = KvServiceProfileLoader().getKvAgentInits();
    EXPECT_TRUE(profiles->empty());
    EXPECT_EQ(pluginMessages(capture), std::vector<std::string>{"Failed to open xml file."});
}

int main(int argc, char** argv) { return KvpTestDevice::runTestsInOwnDevice(argc, argv); }
