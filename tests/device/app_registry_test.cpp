#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

const char kSensorExtra[] =
    "  <privilege name=\"http://kv-project.org/privilege/accessory\"/>\n"
    "  <metadata key=\"AccessoryServicesLocation\" value=\"res/xml/accessoryservices.xml\"/>\n"
    "  <metadata key=\"second\" value=\"2\"/>\n"
    "  <metadata key=\"AccessoryServicesLocation\" value=\"later.xml\"/>\n";

// The message of the std::runtime_error that parsing `content` raises.
std::string parseError(const std::string& content) {
    KvTest::TempFolder folder;
    const std::string path = folder.path() + "/config.xml";
    KvTest::writeTextFile(path, content);
    try {
        Kv::Device::parseAppConfig(path);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

std::string configWith(const std::string& body) {
    return "<?xml version=\"1.0\"?>\n<widget>\n" + body + "</widget>\n";
}

class AppRegistryTest : public testing::Test {
protected:
    Kv::Device::AppInfo install(const std::string& package, const std::string& appId,
                                const std::string& extra = {}) {
        const std::string folder = m_sources.path() + "/" + package;
        KvTest::makeAppFolder(folder, package, appId, extra);
        // The file that kSensorExtra's last location names.
        KvTest::writeEmptyProfile(folder + "/later.xml");
        return Kv::Device::installApp(folder);
    }

    KvTest::TempDevice m_device;
    KvTest::TempFolder m_sources;
};

}  // namespace

TEST_F(AppRegistryTest, ParsesEveryPartOfTheConfig) {
    const std::string path = m_sources.path() + "/config.xml";
    KvTest::writeTextFile(path,
                          KvTest::appConfigXml("wsensor01", "wsensor01.WatchSensor", kSensorExtra));
    const Kv::Device::AppInfo info = Kv::Device::parseAppConfig(path);
    EXPECT_EQ(info.appId, "wsensor01.WatchSensor");
    EXPECT_EQ(info.package, "wsensor01");
    EXPECT_EQ(info.name, "App wsensor01");
    EXPECT_EQ(info.startScript, "main.js");
    EXPECT_EQ(info.privileges,
              std::vector<std::string>{"http://kv-project.org/privilege/accessory"});
    const std::vector<std::pair<std::string, std::string>> metadata = {
        {"AccessoryServicesLocation", "res/xml/accessoryservices.xml"},
        {"second", "2"},
        {"AccessoryServicesLocation", "later.xml"}};
    EXPECT_EQ(info.metadata, metadata);
    EXPECT_EQ(info.deviceRoot, "/opt/usr/apps/wsensor01/res/wgt");
    EXPECT_EQ(info.hostRoot, m_device.path() + "/fs/opt/usr/apps/wsensor01/res/wgt");
}

TEST_F(AppRegistryTest, ParseAcceptsANamespacedWidget) {
    const std::string path = m_sources.path() + "/config.xml";
    KvTest::writeTextFile(path,
                          "<widget xmlns=\"http://www.w3.org/ns/widgets\">"
                          "<application id=\"p1.A\" package=\"p1\"/><content src=\"a/b.js\"/>"
                          "</widget>");
    const Kv::Device::AppInfo info = Kv::Device::parseAppConfig(path);
    EXPECT_EQ(info.appId, "p1.A");
    EXPECT_EQ(info.startScript, "a/b.js");
    EXPECT_EQ(info.name, "");
}

TEST(AppConfigErrorTest, NamesTheFileTheLineAndTheReason) {
    const std::string message =
        parseError(configWith("  <application id=\"p1.A\" package=\"p-1\"/>\n"
                              "  <content src=\"main.js\"/>\n"));
    EXPECT_NE(message.find("config.xml:3: bad package \"p-1\""), std::string::npos) << message;
}

TEST(AppConfigErrorTest, MissingApplicationIsNamed) {
    const std::string message = parseError(configWith("  <content src=\"main.js\"/>\n"));
    EXPECT_NE(message.find(":2: missing <application"), std::string::npos) << message;
}

TEST(AppConfigErrorTest, EmptyApplicationIdIsNamed) {
    const std::string message = parseError(
        configWith("<application id=\" \" package=\"p1\"/><content src=\"main.js\"/>\n"));
    EXPECT_NE(message.find("<application> needs a non-empty id attribute"), std::string::npos)
        << message;
}

TEST(AppConfigErrorTest, MissingPackageIsNamed) {
    const std::string message =
        parseError(configWith("<application id=\"p1.A\"/><content src=\"main.js\"/>\n"));
    EXPECT_NE(message.find("non-empty package attribute"), std::string::npos) << message;
}

TEST(AppConfigErrorTest, AppIdOutsideItsPackageIsNamed) {
    for (const char* appId : {"other.A", "p1.", "p1", "p1.a/b"}) {
        const std::string message =
            parseError(configWith("<application id=\"" + std::string(appId) +
                                  "\" package=\"p1\"/><content src=\"main.js\"/>\n"));
        EXPECT_NE(message.find("bad application id"), std::string::npos) << message;
    }
}

TEST(AppConfigErrorTest, PackageLongerThan32CharactersIsRefused) {
    const std::string package(33, 'a');
    const std::string message =
        parseError(configWith("<application id=\"" + package + ".A\" package=\"" + package +
                              "\"/><content src=\"main.js\"/>\n"));
    EXPECT_NE(message.find("bad package"), std::string::npos) << message;
    const std::string longest(32, 'a');
    EXPECT_EQ(parseError(configWith("<application id=\"" + longest + ".A\" package=\"" + longest +
                                    "\"/><content src=\"main.js\"/>\n")),
              "no error");
}

TEST(AppConfigErrorTest, MissingOrEscapingContentIsNamed) {
    EXPECT_NE(parseError(configWith("<application id=\"p1.A\" package=\"p1\"/>\n"))
                  .find("missing <content src="),
              std::string::npos);
    EXPECT_NE(parseError(configWith("<application id=\"p1.A\" package=\"p1\"/><content/>\n"))
                  .find("<content> needs a non-empty src attribute"),
              std::string::npos);
    for (const char* src : {"/etc/passwd", "../x.js", "a/../../x.js"}) {
        const std::string message =
            parseError(configWith("<application id=\"p1.A\" package=\"p1\"/><content src=\"" +
                                  std::string(src) + "\"/>\n"));
        EXPECT_NE(message.find("bad content src"), std::string::npos) << message;
    }
}

TEST(AppConfigErrorTest, DuplicateApplicationIsNamed) {
    const std::string message = parseError(
        configWith("<application id=\"p1.A\" package=\"p1\"/>\n"
                   "<application id=\"p1.B\" package=\"p1\"/><content src=\"main.js\"/>\n"));
    EXPECT_NE(message.find(":4: more than one <application> element"), std::string::npos)
        << message;
}

TEST(AppConfigErrorTest, PrivilegeWithoutNameIsNamed) {
    const std::string message = parseError(configWith(
        "<application id=\"p1.A\" package=\"p1\"/><privilege/><content src=\"main.js\"/>\n"));
    EXPECT_NE(message.find("<privilege> needs a non-empty name attribute"), std::string::npos)
        << message;
}

TEST(AppConfigErrorTest, WrongRootIsNamed) {
    const std::string message = parseError("<?xml version=\"1.0\"?>\n<app/>\n");
    EXPECT_NE(message.find(":2: the root element is <app>, not <widget>"), std::string::npos)
        << message;
}

TEST(AppConfigErrorTest, BrokenXmlNamesTheLine) {
    const std::string message =
        parseError("<?xml version=\"1.0\"?>\n<widget>\n<name></nam>\n</widget>\n");
    EXPECT_NE(message.find("config.xml:3: not well-formed XML"), std::string::npos) << message;
}

TEST(AppConfigErrorTest, MissingFileIsNamed) {
    try {
        Kv::Device::parseAppConfig("/nonexistent/config.xml");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/config.xml:0: cannot read"),
                  std::string::npos)
            << error.what();
    }
}

TEST_F(AppRegistryTest, InstallCopiesTheFolderIntoTheDevice) {
    const Kv::Device::AppInfo info = install("wsensor01", "wsensor01.WatchSensor", kSensorExtra);
    EXPECT_EQ(info.appId, "wsensor01.WatchSensor");
    const std::string root = m_device.path() + "/fs/opt/usr/apps/wsensor01";
    EXPECT_TRUE(fs::is_regular_file(root + "/res/wgt/config.xml"));
    EXPECT_TRUE(fs::is_regular_file(root + "/res/wgt/main.js"));
    EXPECT_TRUE(fs::is_directory(root + "/data"));
    EXPECT_TRUE(fs::is_directory(root + "/tmp"));
}

TEST_F(AppRegistryTest, ReinstallReplacesTheFilesAndKeepsTheData) {
    install("p1", "p1.App");
    KvTest::writeTextFile(m_sources.path() + "/p1/extra.js", "old");
    Kv::Device::installApp(m_sources.path() + "/p1");
    const std::string root = m_device.path() + "/fs/opt/usr/apps/p1";
    KvTest::writeTextFile(root + "/data/state", "kept");
    fs::remove(m_sources.path() + "/p1/extra.js");
    Kv::Device::installApp(m_sources.path() + "/p1");
    EXPECT_FALSE(fs::exists(root + "/res/wgt/extra.js"));
    EXPECT_TRUE(fs::exists(root + "/data/state"));
    EXPECT_EQ(std::distance(fs::directory_iterator(root + "/res"), fs::directory_iterator()), 1);
}

TEST_F(AppRegistryTest, FailedInstallKeepsTheOlderOne) {
    install("p1", "p1.App");
    KvTest::writeTextFile(m_sources.path() + "/p1/config.xml", "<widget>");
    EXPECT_THROW(Kv::Device::installApp(m_sources.path() + "/p1"), std::runtime_error);
    ASSERT_TRUE(Kv::Device::findApp("p1.App").has_value());
}

TEST_F(AppRegistryTest, FindAppFindsInstalledAppsOnly) {
    install("p1", "p1.App", kSensorExtra);
    const std::optional<Kv::Device::AppInfo> found = Kv::Device::findApp("p1.App");
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->package, "p1");
    EXPECT_EQ(found->metadata.size(), 3u);
    EXPECT_FALSE(Kv::Device::findApp("p2.App").has_value());
    EXPECT_FALSE(Kv::Device::findApp("").has_value());
}

TEST_F(AppRegistryTest, ListAppsIsSortedByAppIdAndSkipsBrokenPackages) {
    install("zeta", "zeta.Last");
    install("alpha", "alpha.First");
    install("mid", "mid.Middle");
    KvTest::writeTextFile(m_device.path() + "/fs/opt/usr/apps/broken/res/wgt/config.xml",
                          "<widget>");
    std::vector<std::string> ids;
    for (const Kv::Device::AppInfo& app : Kv::Device::listApps()) {
        ids.push_back(app.appId);
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"alpha.First", "mid.Middle", "zeta.Last"}));
}

TEST_F(AppRegistryTest, PackageFolderNamingAnotherPackageIsSkipped) {
    KvTest::writeTextFile(m_device.path() + "/fs/opt/usr/apps/p1/res/wgt/config.xml",
                          KvTest::appConfigXml("p2", "p2.App"));
    EXPECT_TRUE(Kv::Device::listApps().empty());
}

TEST_F(AppRegistryTest, InstallOfAFolderWithoutConfigThrows) {
    EXPECT_THROW(Kv::Device::installApp(m_sources.path()), std::runtime_error);
    EXPECT_TRUE(Kv::Device::listApps().empty());
}

TEST_F(AppRegistryTest, RunningAppIsFoundByProcessIdUntilUnregistered) {
    EXPECT_FALSE(Kv::Device::runningAppId(getpid()).has_value());
    Kv::Device::registerRunningApp(getpid(), "p1.App");
    EXPECT_EQ(Kv::Device::runningAppId(getpid()), "p1.App");
    Kv::Device::unregisterRunningApp(getpid());
    EXPECT_FALSE(Kv::Device::runningAppId(getpid()).has_value());
}

TEST_F(AppRegistryTest, RunningAppsOfAnotherDeviceAreNotSeen) {
    Kv::Device::registerRunningApp(getpid(), "p1.App");
    KvTest::TempDevice other;
    EXPECT_FALSE(Kv::Device::runningAppId(getpid()).has_value());
}

TEST_F(AppRegistryTest, EntryOfAProcessThatIsGoneIsRemoved) {
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    const pid_t child = fork();
    if (child == 0) {
        char byte;
        close(pipeFds[1]);
        (void)!read(pipeFds[0], &byte, 1);
        _exit(0);
    }
    close(pipeFds[0]);
    Kv::Device::registerRunningApp(child, "p1.App");
    EXPECT_EQ(Kv::Device::runningAppId(child), "p1.App");
    close(pipeFds[1]);
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(Kv::Device::runningAppId(child).has_value());
    EXPECT_FALSE(fs::exists(m_device.path() + "/running/" + std::to_string(child)));
}

TEST_F(AppRegistryTest, EntryWhoseProcessIdWasReusedIsStale) {
    KvTest::writeTextFile(m_device.path() + "/running/" + std::to_string(getpid()), "1\np1.App\n");
    EXPECT_FALSE(Kv::Device::runningAppId(getpid()).has_value());
    EXPECT_FALSE(fs::exists(m_device.path() + "/running/" + std::to_string(getpid())));
}

TEST_F(AppRegistryTest, RegisteringABadEntryThrows) {
    EXPECT_THROW(Kv::Device::registerRunningApp(getpid(), ""), std::runtime_error);
    EXPECT_THROW(Kv::Device::registerRunningApp(0, "p1.App"), std::runtime_error);
    EXPECT_THROW(Kv::Device::registerRunningApp(getpid(), "p1\nApp"), std::runtime_error);
}
