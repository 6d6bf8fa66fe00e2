// The key log through the kv-accessory tool: pair and start hand --keylog to
// the services with the file's absolute path, start remembers it, status
// names it as text and as JSON, a file that can't be opened keeps the
// service from starting, and --insecure with --keylog is a usage error.
#include <gtest/gtest.h>
#include <kv-device/FileUtil.h>

#include <filesystem>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"

namespace KvTest {
namespace {

ProcessResult tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KV_ACCESSORY_TOOL_PATH);
    return runProcess(arguments);
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class ToolKeyLogTest : public testing::Test {
protected:
    void SetUp() override { setenv("KV_ACCESSORYD", KV_ACCESSORYD_PATH, 1); }
    void TearDown() override { tool({"stop", watch, phone}); }

    TempFolder folder;
    const std::string watch = folder.path() + "/watch";
    const std::string phone = folder.path() + "/phone";
    const std::string keyLog = folder.path() + "/keys.log";
};

TEST_F(ToolKeyLogTest, PairGivesBothServicesTheFileAndStartRemembersIt) {
    // A relative path, from the folder: the services get it whole.
    const ProcessResult pair =
        runProcess({"/bin/sh", "-c",
                    "cd '" + folder.path() +
                        "' && '" KV_ACCESSORY_TOOL_PATH "' pair watch phone --keylog keys.log"});
    ASSERT_EQ(pair.exitCode, 0) << pair.output;
    const std::string secrets = Kv::Device::readFile(keyLog).value_or("");
    EXPECT_TRUE(contains(secrets, "CLIENT_HANDSHAKE_TRAFFIC_SECRET ")) << secrets;
    EXPECT_TRUE(contains(secrets, "SERVER_TRAFFIC_SECRET_0 ")) << secrets;
    for (const std::string& device : {watch, phone}) {
        const ProcessResult json = tool({"status", device, "--json"});
        EXPECT_TRUE(contains(json.output, "\"keylog\":\"" + keyLog + "\"")) << json.output;
    }

    ASSERT_EQ(tool({"stop", watch}).exitCode, 0);
    const ProcessResult start = tool({"start", watch});
    ASSERT_EQ(start.exitCode, 0) << start.output;
    const ProcessResult text = tool({"status", watch});
    EXPECT_TRUE(contains(text.output, "key log: " + keyLog + " (")) << text.output;
}

TEST_F(ToolKeyLogTest, AFileThatCannotBeOpenedKeepsTheServiceFromStarting) {
    const std::string missing = folder.path() + "/no-such-folder/keys.log";
    const ProcessResult start =
        tool({"start", watch, "--listen", "127.0.0.1:0", "--keylog", missing});
    EXPECT_EQ(start.exitCode, 1) << start.output;
    EXPECT_TRUE(contains(start.output, "the service of " + watch +
                                           " failed: cannot open the key log " + missing +
                                           ": No such file or directory"))
        << start.output;
    EXPECT_FALSE(std::filesystem::exists(watch + "/accessoryd.pid"));
    EXPECT_FALSE(std::filesystem::exists(watch + "/accessory.sock"));
}

TEST_F(ToolKeyLogTest, AnInsecurePairTakesNoKeyLog) {
    const ProcessResult pair = tool({"pair", watch, phone, "--insecure", "--keylog", keyLog});
    EXPECT_EQ(pair.exitCode, 2) << pair.output;
    EXPECT_TRUE(contains(pair.output, "give one of --insecure and --keylog")) << pair.output;
    EXPECT_FALSE(std::filesystem::exists(watch + "/accessoryd.pid"));
    EXPECT_FALSE(std::filesystem::exists(keyLog));
}

}  // namespace
}  // namespace KvTest
