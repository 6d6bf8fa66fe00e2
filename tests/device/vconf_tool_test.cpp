#include <vconf.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

namespace {

KvTest::ProcessResult tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KV_VCONF_TOOL_PATH);
    return KvTest::runProcess(arguments);
}

}  // namespace

TEST(KvVconfToolTest, SetValuesAreReadByTheLibraryAndPrintedByGet) {
    KvTest::TempDevice device;
    ASSERT_EQ(tool({"set", "db/int", "int", "-4"}).exitCode, 0);
    ASSERT_EQ(tool({"set", "db/text", "string", "a b"}).exitCode, 0);
    int value = 0;
    ASSERT_EQ(vconf_get_int("db/int", &value), VCONF_OK);
    EXPECT_EQ(value, -4);
    EXPECT_EQ(tool({"get", "db/int"}).output, "-4\n");
    EXPECT_EQ(tool({"get", "db/text"}).output, "a b\n");
}

TEST(KvVconfToolTest, UnsetRemovesAndGetOfAMissingKeyFails) {
    KvTest::TempDevice device;
    ASSERT_EQ(vconf_set_bool("db/flag", 1), VCONF_OK);
    EXPECT_EQ(tool({"unset", "db/flag"}).exitCode, 0);
    const KvTest::ProcessResult missing = tool({"get", "db/flag"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("no key db/flag"), std::string::npos) << missing.output;
}

TEST(KvVconfToolTest, BadValuesAndCommandLinesAreUsageErrors) {
    KvTest::TempDevice device;
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"set", "k", "int", "abc"},
                                               {"set", "k", "int", "1x"},
                                               {"set", "k", "double", ""},
                                               {"set", "k", "colour", "red"},
                                               {"get"},
                                               {}}) {
        const KvTest::ProcessResult result = tool(arguments);
        EXPECT_EQ(result.exitCode, 2) << result.output;
        EXPECT_NE(result.output.find("usage: kv-vconf"), std::string::npos) << result.output;
    }
    int value = 0;
    EXPECT_EQ(vconf_get_int("k", &value), VCONF_ERROR);
}
