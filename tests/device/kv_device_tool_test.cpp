#include <kv-device/Device.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

KvTest::ProcessResult tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KV_DEVICE_TOOL_PATH);
    return KvTest::runProcess(arguments);
}

}  // namespace

TEST(KvDeviceToolTest, CreateMakesTheLayoutAndPrintsTheFolder) {
    KvTest::TempFolder folder;
    const std::string device = folder.path() + "/dev";
    const KvTest::ProcessResult result = tool({"--device", device, "create"});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, device + "\n");
    EXPECT_TRUE(fs::is_directory(device + "/fs/opt/usr/media/Downloads"));
}

TEST(KvDeviceToolTest, PathPrintsTheDeviceOfKvDevice) {
    KvTest::TempDevice device;
    const KvTest::ProcessResult result = tool({"path"});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, device.path() + "\n");
}

TEST(KvDeviceToolTest, RunExecutesTheCommandInsideTheDeviceAndReturnsItsExitCode) {
    KvTest::TempDevice device;
    KvTest::writeTextFile(Kv::Device::hostPath("/opt/usr/media/Documents/note.txt"), "inside");
    const KvTest::ProcessResult shown =
        tool({"run", "--", "cat", "/opt/usr/media/Documents/note.txt"});
    EXPECT_EQ(shown.exitCode, 0) << shown.output;
    EXPECT_EQ(shown.output, "inside");
    const KvTest::ProcessResult failed = tool({"run", "--", "sh", "-c", "exit 7"});
    EXPECT_EQ(failed.exitCode, 7) << failed.output;
}

TEST(KvDeviceToolTest, RunWorksForAnOrdinaryUser) {
    if (geteuid() != 0 || !fs::exists("/usr/bin/setpriv")) {
        GTEST_SKIP() << "needs root and setpriv to switch to another user";
    }
    KvTest::TempDevice device;
    KvTest::writeTextFile(Kv::Device::hostPath("/opt/usr/media/Documents/note.txt"), "inside");
    KvTest::openToEveryone(device.path());
    const KvTest::ProcessResult result = KvTest::runProcess(
        {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
         KV_DEVICE_TOOL_PATH, "run", "--", "cat", "/opt/usr/media/Documents/note.txt"});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, "inside");
}

TEST(KvDeviceToolTest, RunOfAMissingCommandFails) {
    KvTest::TempDevice device;
    const KvTest::ProcessResult result = tool({"run", "--", "/nonexistent/command"});
    EXPECT_EQ(result.exitCode, 127);
    EXPECT_NE(result.output.find("cannot run /nonexistent/command"), std::string::npos)
        << result.output;
}

TEST(KvDeviceToolTest, InstallAndAppsListTheInstalledApps) {
    KvTest::TempDevice device;
    KvTest::TempFolder sources;
    KvTest::makeAppFolder(sources.path() + "/b", "pb", "pb.Second");
    KvTest::makeAppFolder(sources.path() + "/a", "pa", "pa.First");
    EXPECT_EQ(tool({"install", sources.path() + "/b"}).output, "pb.Second\n");
    EXPECT_EQ(tool({"install", sources.path() + "/a"}).exitCode, 0);
    const KvTest::ProcessResult result = tool({"apps"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "pa.First\tpa\tApp pa\npb.Second\tpb\tApp pb\n");
}

TEST(KvDeviceToolTest, InstallOfABrokenAppFailsWithTheReason) {
    KvTest::TempDevice device;
    KvTest::TempFolder sources;
    KvTest::writeTextFile(sources.path() + "/config.xml", "<widget/>");
    const KvTest::ProcessResult result = tool({"install", sources.path()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.output.find("missing <application"), std::string::npos) << result.output;
}

TEST(KvDeviceToolTest, UsageErrorsExitWithTwoAndAHint) {
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {}, {"frobnicate"}, {"--device"}, {"run"}, {"run", "--"}, {"path", "extra"}}) {
        const KvTest::ProcessResult result = tool(arguments);
        EXPECT_EQ(result.exitCode, 2) << result.output;
        EXPECT_NE(result.output.find("; try 'kv-device --help'\n"), std::string::npos)
            << result.output;
    }
}

TEST(KvDeviceToolTest, DeviceOptionWinsOverKvDeviceWhereverItStands) {
    KvTest::TempDevice environment;
    KvTest::TempFolder folder;
    const std::string device = folder.path() + "/dev";
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--device", device, "path"},
                                               {"path", "--device", device},
                                               {"path", "--device=" + device}}) {
        const KvTest::ProcessResult result = tool(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.output;
        EXPECT_EQ(result.output, device + "\n");
    }
}

TEST(KvDeviceToolTest, RunTakesTheCommandWithOrWithoutTheDashes) {
    KvTest::TempDevice device;
    KvTest::writeTextFile(Kv::Device::hostPath("/opt/usr/media/Documents/note.txt"), "inside");
    const KvTest::ProcessResult plain = tool({"run", "cat", "/opt/usr/media/Documents/note.txt"});
    EXPECT_EQ(plain.exitCode, 0) << plain.output;
    EXPECT_EQ(plain.output, "inside");
    const KvTest::ProcessResult dashes = tool({"run", "--", "sh", "-c", "echo --device"});
    EXPECT_EQ(dashes.exitCode, 0) << dashes.output;
    EXPECT_EQ(dashes.output, "--device\n");
}
