#include <Commons/Exception.h>
#include <Commons/FunctionDefinition.h>
#include <Commons/WrtAccess/Privileges.h>
#include <Commons/WrtAccess/WrtAccess.h>
#include <dlog-capture.h>
#include <dpl/singleton.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

using namespace WrtDeviceApis::Commons;
namespace fs = std::filesystem;

namespace {

constexpr char kSensorApp[] = "wsensor01.WatchSensor";
constexpr char kPlainApp[] = "plain01.Plain";
constexpr char kOtherPrivilege[] = "http://kv-project.org/privilege/other";

// A device in a temporary folder with two installed apps: one that declares
// the accessory privilege and one that declares none.
class WrtAccessTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/kv-wrt-access-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_dir = pattern;
        setenv("KV_DEVICE", (m_dir / "device").c_str(), 1);
        install("wsensor01", kSensorApp,
                std::string("<privilege name=\"") + Privileges::ACCESSORY + "\"/>");
        install("plain01", kPlainApp, "");
    }

    void TearDown() override {
        Kv::Device::unregisterRunningApp(getpid());
        unsetenv("KV_DEVICE");
        fs::remove_all(m_dir);
    }

    void install(const std::string& package, const std::string& appId,
                 const std::string& privileges) {
        fs::path folder = m_dir / package;
        fs::create_directories(folder);
        std::ofstream(folder / "main.js") << "// app\n";
        std::ofstream(folder / "config.xml")
            << "<widget id=\"http://example.org/" << package << "\" version=\"1.0\">\n"
            << "  <name>" << package << "</name>\n"
            << "  <application id=\"" << appId << "\" package=\"" << package << "\"/>\n"
            << "  " << privileges << "\n"
            << "  <content src=\"main.js\"/>\n"
            << "</widget>\n";
        Kv::Device::installApp(folder.string());
    }

    void run(const std::string& appId) { Kv::Device::registerRunningApp(getpid(), appId); }

    void writePolicy(const std::string& text) { std::ofstream(Kv::Device::policyFile()) << text; }

    static AceFunction function(std::initializer_list<const char*> privileges) {
        AceFunction function{"KvManager.requestKvAgent", {}, {}};
        for (const char* privilege : privileges) {
            aceAddApiFeature(AceFeature{privilege}, function.features);
        }
        aceAddDeviceCap(AceDeviceCapability{"kvplink", {}}, function.deviceCapabilities);
        return function;
    }

    fs::path m_dir;
};

TEST_F(WrtAccessTest, ListsAreBuiltInOrder) {
    AceFeatures features;
    aceAddApiFeature(AceFeature{"a"}, features);
    aceAddApiFeature(AceFeature{"b"}, features);
    ASSERT_EQ(features.size(), 2u);
    EXPECT_EQ(features[1].name, "b");
    AceDeviceCaps capabilities;
    aceAddDeviceCap(AceDeviceCapability{"kvplink", {{"param", "value"}}}, capabilities);
    ASSERT_EQ(capabilities.size(), 1u);
    EXPECT_EQ(capabilities[0].devCapName, "kvplink");
    EXPECT_EQ(capabilities[0].devCapParams[0].value, "value");
}

TEST_F(WrtAccessTest, ThePrivilegeUriOfTheAccessoryApi) {
    EXPECT_STREQ(Privileges::ACCESSORY, "http://kv-project.org/privilege/accessory");
}

TEST_F(WrtAccessTest, UninitialisedChecksAreInternalErrors) {
    WrtAccess access;
    EXPECT_FALSE(access.isInitialized());
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_INTERNAL_ERROR);
}

TEST_F(WrtAccessTest, ADeclaredPrivilegeIsGranted) {
    run(kSensorApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_TRUE(access.isInitialized());
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_GRANTED);
    EXPECT_EQ(access.checkAccessControl(function({})), WrtAccess::CHECK_ACCESS_GRANTED);
}

TEST_F(WrtAccessTest, AnUndeclaredPrivilegeIsDenied) {
    run(kPlainApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_PRIVILEGE_DENIED);
}

TEST_F(WrtAccessTest, EveryFeatureOfTheFunctionMustBeDeclared) {
    run(kSensorApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY, kOtherPrivilege})),
              WrtAccess::CHECK_ACCESS_PRIVILEGE_DENIED);
}

TEST_F(WrtAccessTest, APrivilegeTheUserBlocksIsBlocked) {
    writePolicy(std::string("block ") + kSensorApp + " " + Privileges::ACCESSORY + "\n");
    run(kSensorApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_PRIVACY_DENIED);
}

TEST_F(WrtAccessTest, AnUndeclaredPrivilegeIsDeniedEvenWhenBlocked) {
    writePolicy(std::string("block ") + kPlainApp + " " + Privileges::ACCESSORY + "\n");
    run(kPlainApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_PRIVILEGE_DENIED);
}

TEST_F(WrtAccessTest, ABlockForAnotherAppOrPrivilegeDoesNotApply) {
    writePolicy(std::string("block ") + kPlainApp + " " + Privileges::ACCESSORY + "\n" + "block " +
                kSensorApp + " " + kOtherPrivilege + "\n");
    run(kSensorApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_GRANTED);
}

TEST_F(WrtAccessTest, MalformedPolicyLinesAreLoggedAndSkipped) {
    writePolicy(std::string("# the user's choices\n") + "\n" + "   \t\n" + "allow " + kSensorApp +
                " " + Privileges::ACCESSORY + "\n" + "block " + kSensorApp + "\n" +
                "block a b c d\n" + "\tblock\t" + kSensorApp + "  " + Privileges::ACCESSORY +
                "  \n");
    run(kSensorApp);
    DlogCapture capture;
    WrtAccess access;
    access.initialize(7);
    EXPECT_TRUE(capture.contains(DLOG_WARN, "policy.conf:4: malformed policy line skipped"));
    EXPECT_TRUE(capture.contains(DLOG_WARN, "policy.conf:5: malformed policy line skipped"));
    EXPECT_TRUE(capture.contains(DLOG_WARN, "policy.conf:6: malformed policy line skipped"));
    EXPECT_EQ(capture.count("malformed policy line"), 3u);
    // The well-formed entry after the bad ones still counts.
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_PRIVACY_DENIED);
}

TEST_F(WrtAccessTest, ThePolicyIsReadAtInitialisation) {
    run(kSensorApp);
    WrtAccess access;
    access.initialize(7);
    writePolicy(std::string("block ") + kSensorApp + " " + Privileges::ACCESSORY + "\n");
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_GRANTED);
    access.initialize(7);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_PRIVACY_DENIED);
}

TEST_F(WrtAccessTest, AnUnreadablePolicyFailsInitialisation) {
    fs::create_directories(Kv::Device::policyFile());
    run(kSensorApp);
    WrtAccess access;
    EXPECT_THROW(access.initialize(7), PlatformException);
    EXPECT_FALSE(access.isInitialized());
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_INTERNAL_ERROR);
}

TEST_F(WrtAccessTest, AProcessWithoutARunningAppCannotInitialise) {
    WrtAccess access;
    EXPECT_THROW(access.initialize(7), NotFoundException);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_INTERNAL_ERROR);
}

TEST_F(WrtAccessTest, ARunningAppThatIsNotInstalledCannotInitialise) {
    run("ghost01.Ghost");
    WrtAccess access;
    EXPECT_THROW(access.initialize(7), NotFoundException);
    EXPECT_FALSE(access.isInitialized());
}

TEST_F(WrtAccessTest, ANegativeWidgetIdIsRefused) {
    run(kSensorApp);
    WrtAccess access;
    EXPECT_THROW(access.initialize(-1), InvalidArgumentException);
}

TEST_F(WrtAccessTest, AnotherWidgetCannotTakeOver) {
    run(kSensorApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_THROW(access.initialize(8), PlatformWrongStateException);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_GRANTED);
}

TEST_F(WrtAccessTest, DeinitialisationEndsAccess) {
    run(kSensorApp);
    WrtAccess access;
    access.initialize(7);
    EXPECT_THROW(access.deinitialize(8), PlatformWrongStateException);
    access.deinitialize(7);
    EXPECT_FALSE(access.isInitialized());
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_INTERNAL_ERROR);
    EXPECT_THROW(access.deinitialize(7), PlatformWrongStateException);
}

TEST_F(WrtAccessTest, FailuresAreCommonsExceptions) {
    WrtAccess access;
    EXPECT_THROW(access.initialize(7), Exception);
    EXPECT_THROW(access.deinitialize(7), Exception);
}

TEST_F(WrtAccessTest, TheProcessSingletonWorksThroughItsLifecycle) {
    run(kSensorApp);
    WrtAccess& access = DPL::Singleton<WrtAccess>::Instance();
    EXPECT_EQ(&access, &DPL::Singleton<WrtAccess>::Instance());
    access.initialize(3);
    EXPECT_EQ(access.checkAccessControl(function({Privileges::ACCESSORY})),
              WrtAccess::CHECK_ACCESS_GRANTED);
    access.deinitialize(3);
}

}  // namespace
