// Which files of its device an app may name: the shared media folders and its
// own package, nothing else, and no way out through ".." or a link.
#include <gtest/gtest.h>
#include <kv-device/FileAccess.h>
#include <unistd.h>

#include <filesystem>

#include "DeviceTestSupport.h"

namespace {

using Kv::Device::appMayUseFile;
namespace fs = std::filesystem;

TEST(FileAccessTest, SharedMediaAndTheAppsOwnPackageAreAllowed) {
    EXPECT_TRUE(appMayUseFile("/opt/usr/media/Documents/report.txt", "wsensor01"));
    EXPECT_TRUE(appMayUseFile("/opt/usr/media/Downloads/a b.txt", ""));
    EXPECT_TRUE(appMayUseFile("/opt/usr/share/settings/Ringtones/ring.ogg", "wsensor01"));
    EXPECT_TRUE(appMayUseFile("/opt/usr/apps/wsensor01/data/notes.txt", "wsensor01"));
    EXPECT_TRUE(appMayUseFile("/opt/usr/apps/wsensor01/res/wgt/main.js", "wsensor01"));
    EXPECT_TRUE(appMayUseFile("/opt/usr//media/./Images/x.png", "wsensor01"));
}

TEST(FileAccessTest, EverythingElseIsRefused) {
    for (const char* path :
         {"/etc/passwd", "/", "/opt/usr/media", "/opt/usr/media/", "relative/file.txt", "",
          "/opt/usr/apps/other0001/data/secret.txt", "/opt/usr/apps/wsensor01",
          "/opt/usr/media/../apps/other0001/data/x", "/opt/usr/media/Documents/../../../etc/x",
          "/opt/usr/share/settings/x", "/tmp/x"}) {
        EXPECT_FALSE(appMayUseFile(path, "wsensor01")) << path;
    }
    EXPECT_FALSE(appMayUseFile("/opt/usr/apps/wsensor01/data/x", ""));
    EXPECT_FALSE(appMayUseFile("/opt/usr/apps/../data/x", ".."));
}

std::string hostFolder;
std::string inHostFolder(const std::string& devicePath) { return hostFolder + devicePath; }

TEST(FileAccessTest, ALinkThatLeadsOutIsRefusedWhereItLeads) {
    KvTest::TempFolder folder;
    hostFolder = folder.path();
    fs::create_directories(hostFolder + "/opt/usr/media/Documents");
    fs::create_directories(hostFolder + "/outside");
    fs::create_symlink(hostFolder + "/outside", hostFolder + "/opt/usr/media/Documents/way-out");
    EXPECT_TRUE(appMayUseFile("/opt/usr/media/Documents/way-out/x", "wsensor01"));
    EXPECT_FALSE(Kv::Device::resolvesInside("/opt/usr/media/Documents/way-out/x", "wsensor01",
                                            inHostFolder));
    EXPECT_TRUE(
        Kv::Device::resolvesInside("/opt/usr/media/Documents/new.txt", "wsensor01", inHostFolder));
}

}  // namespace
