#include <Filesystem/Path.h>
#include <Filesystem/Utils.h>

#include <Commons/Exception.h>
#include <kv-device/AppRegistry.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace Utils = DeviceAPI::Filesystem::Utils;
using WrtDeviceApis::Commons::ConversionException;

namespace {

std::string resolve(const std::string& path) {
    return Utils::fromVirtualPath(nullptr, path)->getFullPath();
}

// The message of the ConversionException that resolving `path` raises.
std::string conversionError(const std::string& path) {
    try {
        resolve(path);
    } catch (const ConversionException& error) {
        return error.GetMessage();
    }
    return "no error";
}

}  // namespace

TEST(FilesystemUtilsTest, VirtualPathsStartWithAVirtualRoot) {
    for (const char* path :
         {"documents", "downloads/x.txt", "images/a/b", "music", "videos/", "camera",
          "ringtones/r.ogg", "wgt-package/main.js", "wgt-private", "wgt-private-tmp/t"}) {
        EXPECT_TRUE(Utils::isVirtualPath(path)) << path;
    }
    for (const char* path :
         {"", "/opt/usr/media", "Downloads", "download", "file:///a", "downloadsx/a", "wgt"}) {
        EXPECT_FALSE(Utils::isVirtualPath(path)) << path;
    }
}

TEST(FilesystemUtilsTest, UriPathsAreFileUrisWithAnAbsolutePath) {
    EXPECT_TRUE(Utils::isUriPath("file:///abs/path"));
    EXPECT_TRUE(Utils::isUriPath("file:///"));
    for (const char* path : {"file://", "file://relative", "http:///a", "/abs", "downloads"}) {
        EXPECT_FALSE(Utils::isUriPath(path)) << path;
    }
}

TEST(FilesystemUtilsTest, MediaRootsMapToTheMediaFolders) {
    EXPECT_EQ(resolve("documents"), "/opt/usr/media/Documents");
    EXPECT_EQ(resolve("downloads/x.txt"), "/opt/usr/media/Downloads/x.txt");
    EXPECT_EQ(resolve("images/a/b.png"), "/opt/usr/media/Images/a/b.png");
    EXPECT_EQ(resolve("music/s.mp3"), "/opt/usr/media/Music/s.mp3");
    EXPECT_EQ(resolve("videos"), "/opt/usr/media/Videos");
    EXPECT_EQ(resolve("camera/c.jpg"), "/opt/usr/media/Camera/c.jpg");
    EXPECT_EQ(resolve("ringtones/r.ogg"), "/opt/usr/share/settings/Ringtones/r.ogg");
}

TEST(FilesystemUtilsTest, PathsAreNormalised) {
    EXPECT_EQ(resolve("downloads/"), "/opt/usr/media/Downloads");
    EXPECT_EQ(resolve("downloads//a/./b/"), "/opt/usr/media/Downloads/a/b");
    EXPECT_EQ(resolve("file:///opt//usr/./media/a.txt"), "/opt/usr/media/a.txt");
}

// An app names, by file URI, only files of the shared media folders and of
// its own package; this test process runs no app, so it has no package.
TEST(FilesystemUtilsTest, FileUrisOutsideTheAppsFoldersAreRefused) {
    for (const char* path : {"file:///", "file:///etc/passwd", "file:///opt/usr/apps/other/data/x",
                             "file:///opt/usr/media", "file:///opt/usr/share/x"}) {
        EXPECT_NE(conversionError(path).find("outside the app's folders"), std::string::npos)
            << path;
    }
}

TEST(FilesystemUtilsTest, FileUrisGiveTheirPath) {
    EXPECT_EQ(resolve("file:///opt/usr/media/Downloads/a b.txt"),
              "/opt/usr/media/Downloads/a b.txt");
}

TEST(FilesystemUtilsTest, AnythingElseIsAConversionError) {
    EXPECT_NE(conversionError("").find("Empty path"), std::string::npos);
    for (const char* path :
         {"relative/x", "/abs/path", "http://host/a", "file://relative", "Downloads/a"}) {
        EXPECT_NE(conversionError(path).find("Not a virtual path or file URI"), std::string::npos)
            << path;
    }
    for (const char* path : {"downloads/../etc/passwd", "file:///opt/../etc", "documents/.."}) {
        EXPECT_NE(conversionError(path).find("must not contain \"..\""), std::string::npos) << path;
    }
}

TEST(FilesystemUtilsTest, PackageRootsNeedARunningApp) {
    KvTest::TempDevice device;
    for (const char* path : {"wgt-package/main.js", "wgt-private", "wgt-private-tmp/x"}) {
        EXPECT_NE(conversionError(path).find("runs no installed app"), std::string::npos) << path;
    }
}

TEST(FilesystemUtilsTest, PackageRootsAreThoseOfTheRunningApp) {
    KvTest::TempDevice device;
    KvTest::TempFolder sources;
    KvTest::makeAppFolder(sources.path(), "wsensor01", "wsensor01.WatchSensor");
    Kv::Device::installApp(sources.path());
    Kv::Device::registerRunningApp(getpid(), "wsensor01.WatchSensor");
    EXPECT_EQ(resolve("wgt-package/main.js"), "/opt/usr/apps/wsensor01/res/wgt/main.js");
    EXPECT_EQ(resolve("wgt-private"), "/opt/usr/apps/wsensor01/data");
    EXPECT_EQ(resolve("wgt-private-tmp/t"), "/opt/usr/apps/wsensor01/tmp/t");
    Kv::Device::unregisterRunningApp(getpid());
}

TEST(FilesystemUtilsTest, RunningAppThatIsNotInstalledHasNoPackageRoots) {
    KvTest::TempDevice device;
    Kv::Device::registerRunningApp(getpid(), "ghost.App");
    EXPECT_NE(conversionError("wgt-package").find("runs no installed app"), std::string::npos);
    Kv::Device::unregisterRunningApp(getpid());
}

TEST(FilesystemPathTest, PathSplitsIntoFolderAndName) {
    const DeviceAPI::Filesystem::IPathPtr path =
        DeviceAPI::Filesystem::Path::create("/opt/usr/media/Downloads/a.txt");
    EXPECT_EQ(path->getFullPath(), "/opt/usr/media/Downloads/a.txt");
    EXPECT_EQ(path->getPath(), "/opt/usr/media/Downloads");
    EXPECT_EQ(path->getName(), "a.txt");
    const DeviceAPI::Filesystem::IPathPtr top = DeviceAPI::Filesystem::Path::create("/a");
    EXPECT_EQ(top->getPath(), "/");
    EXPECT_EQ(top->getName(), "a");
    const DeviceAPI::Filesystem::IPathPtr root = DeviceAPI::Filesystem::Path::create("/");
    EXPECT_EQ(root->getPath(), "/");
    EXPECT_EQ(root->getName(), "");
}
