#include <vconf.h>

#include <kv-device/Device.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// The text of vconf_get_str, freed.
std::optional<std::string> getString(const char* key) {
    char* value = vconf_get_str(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::string text = value;
    std::free(value);
    return text;
}

class VconfStoreTest : public testing::Test {
protected:
    KvTest::TempDevice m_device;
};

}  // namespace

TEST_F(VconfStoreTest, IntegerIsStoredAndRead) {
    ASSERT_EQ(vconf_set_int("memory/private/kvp/conn_status", 1), VCONF_OK);
    int value = 0;
    ASSERT_EQ(vconf_get_int("memory/private/kvp/conn_status", &value), VCONF_OK);
    EXPECT_EQ(value, 1);
    ASSERT_EQ(vconf_set_int("memory/private/kvp/conn_status", -2147483647 - 1), VCONF_OK);
    ASSERT_EQ(vconf_get_int("memory/private/kvp/conn_status", &value), VCONF_OK);
    EXPECT_EQ(value, -2147483647 - 1);
}

TEST_F(VconfStoreTest, BooleanIsStoredAsZeroOrOne) {
    ASSERT_EQ(vconf_set_bool("db/flag", 5), VCONF_OK);
    int value = 0;
    ASSERT_EQ(vconf_get_bool("db/flag", &value), VCONF_OK);
    EXPECT_EQ(value, 1);
    ASSERT_EQ(vconf_set_bool("db/flag", 0), VCONF_OK);
    ASSERT_EQ(vconf_get_bool("db/flag", &value), VCONF_OK);
    EXPECT_EQ(value, 0);
}

TEST_F(VconfStoreTest, DoubleIsStoredExactly) {
    ASSERT_EQ(vconf_set_dbl("db/ratio", 0.1), VCONF_OK);
    double value = 0;
    ASSERT_EQ(vconf_get_dbl("db/ratio", &value), VCONF_OK);
    EXPECT_EQ(value, 0.1);
}

TEST_F(VconfStoreTest, StringIsStoredWithNewlinesAndReturnedAsACopy) {
    ASSERT_EQ(vconf_set_str("db/text", "two\nlines\n"), VCONF_OK);
    EXPECT_EQ(getString("db/text"), "two\nlines\n");
    ASSERT_EQ(vconf_set_str("db/text", ""), VCONF_OK);
    EXPECT_EQ(getString("db/text"), "");
}

TEST_F(VconfStoreTest, MissingKeyIsAnError) {
    int value = 42;
    EXPECT_EQ(vconf_get_int("db/missing", &value), VCONF_ERROR);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(getString("db/missing"), std::nullopt);
}

TEST_F(VconfStoreTest, KeyOfAnotherTypeIsAnError) {
    ASSERT_EQ(vconf_set_str("db/key", "1"), VCONF_OK);
    int value = 0;
    double real = 0;
    EXPECT_EQ(vconf_get_int("db/key", &value), VCONF_ERROR);
    EXPECT_EQ(vconf_get_bool("db/key", &value), VCONF_ERROR);
    EXPECT_EQ(vconf_get_dbl("db/key", &real), VCONF_ERROR);
    ASSERT_EQ(vconf_set_int("db/key", 1), VCONF_OK);
    EXPECT_EQ(getString("db/key"), std::nullopt);
    EXPECT_EQ(vconf_get_bool("db/key", &value), VCONF_ERROR);
}

TEST_F(VconfStoreTest, NullArgumentsAreErrors) {
    int value = 0;
    EXPECT_EQ(vconf_set_int(nullptr, 1), VCONF_ERROR);
    EXPECT_EQ(vconf_get_int(nullptr, &value), VCONF_ERROR);
    EXPECT_EQ(vconf_set_int("db/key", 1), VCONF_OK);
    EXPECT_EQ(vconf_get_int("db/key", nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_set_bool(nullptr, 1), VCONF_ERROR);
    EXPECT_EQ(vconf_get_bool(nullptr, &value), VCONF_ERROR);
    EXPECT_EQ(vconf_set_str(nullptr, "x"), VCONF_ERROR);
    EXPECT_EQ(vconf_set_str("db/key", nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_get_str(nullptr), nullptr);
    EXPECT_EQ(vconf_unset(nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_get_int("db/key", &value), VCONF_OK) << "a failed set changes nothing";
}

TEST_F(VconfStoreTest, EmptyAndOverlongKeysAreErrors) {
    EXPECT_EQ(vconf_set_int("", 1), VCONF_ERROR);
    EXPECT_EQ(vconf_set_int(std::string(300, 'k').c_str(), 1), VCONF_ERROR);
}

TEST_F(VconfStoreTest, UnsetRemovesTheKey) {
    ASSERT_EQ(vconf_set_int("db/key", 3), VCONF_OK);
    EXPECT_EQ(vconf_unset("db/key"), VCONF_OK);
    int value = 0;
    EXPECT_EQ(vconf_get_int("db/key", &value), VCONF_ERROR);
    EXPECT_EQ(vconf_unset("db/key"), VCONF_ERROR);
}

TEST_F(VconfStoreTest, EachKeyIsOneFileInTheDeviceStore) {
    ASSERT_EQ(vconf_set_int("memory/private/kvp/conn_status", 1), VCONF_OK);
    ASSERT_EQ(vconf_set_int(".hidden key", 1), VCONF_OK);
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_device.path() + "/vconf")) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"%2Ehidden%20key",
                                               "memory%2Fprivate%2Fkvp%2Fconn_status"}));
}

TEST_F(VconfStoreTest, KeysWithSimilarNamesStaySeparate) {
    ASSERT_EQ(vconf_set_int("a/b", 1), VCONF_OK);
    ASSERT_EQ(vconf_set_int("a%2Fb", 2), VCONF_OK);
    int value = 0;
    ASSERT_EQ(vconf_get_int("a/b", &value), VCONF_OK);
    EXPECT_EQ(value, 1);
}

TEST_F(VconfStoreTest, AnotherDeviceHasItsOwnStore) {
    ASSERT_EQ(vconf_set_int("db/key", 1), VCONF_OK);
    KvTest::TempDevice other;
    int value = 0;
    EXPECT_EQ(vconf_get_int("db/key", &value), VCONF_ERROR);
}

TEST_F(VconfStoreTest, GarbledFileReadsAsMissing) {
    KvTest::writeTextFile(m_device.path() + "/vconf/db%2Fkey", "int\nnot a number\n");
    int value = 0;
    EXPECT_EQ(vconf_get_int("db/key", &value), VCONF_ERROR);
    KvTest::writeTextFile(m_device.path() + "/vconf/db%2Fkey", "bool\n2\n");
    EXPECT_EQ(vconf_get_bool("db/key", &value), VCONF_ERROR);
}
