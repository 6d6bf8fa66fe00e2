#include <vconf.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

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
                                               {"get", "k", "--frob"},
                                               {}}) {
        const KvTest::ProcessResult result = tool(arguments);
        EXPECT_EQ(result.exitCode, 2) << result.output;
        EXPECT_NE(result.output.find("; try 'kv-vconf --help'\n"), std::string::npos)
            << result.output;
    }
    int value = 0;
    EXPECT_EQ(vconf_get_int("k", &value), VCONF_ERROR);
}

TEST(KvVconfToolTest, UsageErrorsSayWhatIsWrongInOneLine) {
    KvTest::TempDevice device;
    EXPECT_EQ(tool({"set", "k", "int", "abc"}).output,
              "kv-vconf: bad int value \"abc\"; try 'kv-vconf --help'\n");
    EXPECT_EQ(tool({"set", "k", "colour", "red"}).output,
              "kv-vconf: unknown type \"colour\"; try 'kv-vconf --help'\n");
}

TEST(KvVconfToolTest, DeviceOptionNamesTheStoreInsteadOfKvDevice) {
    KvTest::TempDevice environment;
    KvTest::TempFolder folder;
    const std::string other = folder.path() + "/other";
    ASSERT_EQ(tool({"--device", other, "set", "db/where", "string", "other"}).exitCode, 0);
    EXPECT_EQ(tool({"get", "db/where", "--device", other}).output, "other\n");
    EXPECT_EQ(tool({"get", "db/where"}).exitCode, 1);
    char* mine = vconf_get_str("db/where");
    EXPECT_EQ(mine, nullptr);
    std::free(mine);
}

TEST(KvVconfToolTest, NegativeNumbersAreValuesNotOptions) {
    KvTest::TempDevice device;
    ASSERT_EQ(tool({"set", "db/cold", "double", "-2.5"}).exitCode, 0);
    ASSERT_EQ(tool({"set", "db/low", "int", "--", "-7"}).exitCode, 0);
    double cold = 0;
    ASSERT_EQ(vconf_get_dbl("db/cold", &cold), VCONF_OK);
    EXPECT_EQ(cold, -2.5);
    EXPECT_EQ(tool({"get", "db/low"}).output, "-7\n");
}
