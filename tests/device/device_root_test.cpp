#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// Runs the test body with KV_DEVICE unset and the other variables as given,
// restoring all three afterwards.
class DefaultDeviceTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"KV_DEVICE", "XDG_RUNTIME_DIR", "HOME"}) {
            const char* value = std::getenv(name);
            m_saved.emplace_back(
                name, value != nullptr ? std::optional<std::string>(value) : std::nullopt);
        }
        unsetenv("KV_DEVICE");
    }

    void TearDown() override {
        for (const auto& [name, value] : m_saved) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            } else {
                unsetenv(name.c_str());
            }
        }
    }

    KvTest::TempFolder m_folder;

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> m_saved;
};

}  // namespace

TEST(DeviceRootTest, RootIsTheFolderNamedByKvDeviceWithItsLayoutCreated) {
    KvTest::TempDevice device;
    EXPECT_EQ(Kv::Device::root(), device.path());
    for (const char* part :
         {"fs/opt/usr/apps", "fs/opt/usr/media/Documents", "fs/opt/usr/media/Downloads",
          "fs/opt/usr/media/Images", "fs/opt/usr/media/Music", "fs/opt/usr/media/Videos",
          "fs/opt/usr/media/Sounds", "fs/opt/usr/media/Camera",
          "fs/opt/usr/share/settings/Ringtones", "vconf", "running"}) {
        EXPECT_TRUE(fs::is_directory(device.path() + "/" + part)) << part;
    }
    EXPECT_EQ(Kv::Device::readFile(device.path() + "/fs/opt/.kv-device"), device.path());
}

TEST(DeviceRootTest, RelativeKvDeviceIsMadeAbsolute) {
    KvTest::TempDevice device;
    const fs::path previous = fs::current_path();
    fs::current_path(fs::path(device.path()).parent_path());
    setenv("KV_DEVICE", "./device/../device/", 1);
    EXPECT_EQ(Kv::Device::root(), device.path());
    fs::current_path(previous);
}

TEST(DeviceRootTest, LayoutIsMadeAgainWhenTheFolderWasRemoved) {
    KvTest::TempDevice device;
    Kv::Device::root();
    fs::remove_all(device.path());
    EXPECT_EQ(Kv::Device::root(), device.path());
    EXPECT_TRUE(fs::is_directory(device.path() + "/vconf"));
}

TEST(DeviceRootTest, HostPathPrefixesTheDeviceFileSystemFolder) {
    KvTest::TempDevice device;
    EXPECT_EQ(Kv::Device::hostPath("/opt/usr/media/Downloads/a.txt"),
              device.path() + "/fs/opt/usr/media/Downloads/a.txt");
    EXPECT_EQ(Kv::Device::hostPath(Kv::Device::kAppsRoot), device.path() + "/fs/opt/usr/apps/");
}

TEST(DeviceRootTest, PartsOfTheDeviceAreUnderItsFolder) {
    KvTest::TempDevice device;
    EXPECT_EQ(Kv::Device::vconfDir(), device.path() + "/vconf");
    EXPECT_EQ(Kv::Device::runningDir(), device.path() + "/running");
    EXPECT_EQ(Kv::Device::policyFile(), device.path() + "/policy.conf");
    EXPECT_EQ(Kv::Device::accessorySocket(), device.path() + "/accessory.sock");
}

TEST(DeviceRootTest, SelectSetsKvDeviceToTheAbsoluteFolderAndCreatesIt) {
    KvTest::TempDevice device;
    const std::string other = fs::path(device.path()).parent_path().string() + "/other";
    Kv::Device::select(other + "/");
    EXPECT_STREQ(std::getenv("KV_DEVICE"), other.c_str());
    EXPECT_TRUE(fs::is_directory(other + "/fs/opt/usr/media/Camera"));
    EXPECT_EQ(Kv::Device::root(), other);
}

TEST(DeviceRootTest, SelectOfAnEmptyFolderNameThrows) {
    EXPECT_THROW(Kv::Device::select(""), std::runtime_error);
}

TEST(DeviceRootTest, EnsureLayoutKeepsExistingContent) {
    KvTest::TempDevice device;
    KvTest::writeTextFile(device.path() + "/fs/opt/usr/media/Music/song.mp3", "la");
    Kv::Device::ensureLayout(device.path());
    EXPECT_EQ(Kv::Device::readFile(device.path() + "/fs/opt/usr/media/Music/song.mp3"), "la");
}

TEST(DeviceRootTest, UncreatableDeviceFolderThrowsNamingIt) {
    KvTest::TempDevice device;
    KvTest::writeTextFile(device.path(), "a file, not a folder");
    try {
        Kv::Device::root();
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find(device.path()), std::string::npos) << error.what();
    }
}

TEST_F(DefaultDeviceTest, DefaultIsUnderTheRuntimeFolderWhenItIsUsable) {
    setenv("XDG_RUNTIME_DIR", m_folder.path().c_str(), 1);
    EXPECT_EQ(Kv::Device::root(), m_folder.path() + "/kv/default-device");
    EXPECT_TRUE(fs::is_directory(m_folder.path() + "/kv/default-device/vconf"));
}

TEST_F(DefaultDeviceTest, DefaultIsUnderHomeWithoutAUsableRuntimeFolder) {
    setenv("XDG_RUNTIME_DIR", (m_folder.path() + "/missing").c_str(), 1);
    setenv("HOME", m_folder.path().c_str(), 1);
    EXPECT_EQ(Kv::Device::root(), m_folder.path() + "/.local/share/kv/default-device");
    unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(Kv::Device::root(), m_folder.path() + "/.local/share/kv/default-device");
}

TEST(FileUtilTest, AtomicWriteReplacesTheContentAndLeavesNoTemporaryFile) {
    KvTest::TempFolder folder;
    const std::string path = folder.path() + "/value";
    Kv::Device::writeFileAtomically(path, "first");
    Kv::Device::writeFileAtomically(path, "second");
    EXPECT_EQ(Kv::Device::readFile(path), "second");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST(FileUtilTest, AtomicWriteIntoAMissingFolderThrowsNamingTheFile) {
    KvTest::TempFolder folder;
    const std::string path = folder.path() + "/missing/value";
    try {
        Kv::Device::writeFileAtomically(path, "x");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
    }
}

TEST(FileUtilTest, ReadingAMissingFileGivesNothing) {
    EXPECT_EQ(Kv::Device::readFile("/nonexistent/kv/file"), std::nullopt);
}
