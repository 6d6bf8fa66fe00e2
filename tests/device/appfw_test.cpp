#include <app_manager.h>
#include <pkgmgr-info.h>

#include <kv-device/AppRegistry.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdlib>

namespace {

const char kExtra[] =
    "  <metadata key=\"AccessoryServicesLocation\" value=\"res/xml/services.xml\"/>\n"
    "  <metadata key=\"empty\"/>\n"
    "  <metadata key=\"AccessoryServicesLocation\" value=\"later.xml\"/>\n";

using Metadata = std::vector<std::pair<std::string, std::string>>;

struct Walk {
    Metadata seen;
    size_t stopAfter = 100;
};

int collect(const char* key, const char* value, void* userData) {
    auto* walk = static_cast<Walk*>(userData);
    walk->seen.emplace_back(key, value);
    return walk->seen.size() >= walk->stopAfter ? -1 : 0;
}

std::string take(char* text) {
    std::string copy = text != nullptr ? text : "(null)";
    std::free(text);
    return copy;
}

class AppfwTest : public testing::Test {
protected:
    void SetUp() override {
        KvTest::makeAppFolder(m_sources.path() + "/app", "wsensor01", "wsensor01.WatchSensor",
                              kExtra);
        KvTest::writeEmptyProfile(m_sources.path() + "/app/later.xml");
        Kv::Device::installApp(m_sources.path() + "/app");
    }

    void TearDown() override { Kv::Device::unregisterRunningApp(getpid()); }

    KvTest::TempDevice m_device;
    KvTest::TempFolder m_sources;
};

}  // namespace

TEST_F(AppfwTest, AppIdOfAProcessComesFromTheRunningTable) {
    char* appId = nullptr;
    EXPECT_EQ(app_manager_get_app_id(getpid(), &appId), APP_MANAGER_ERROR_NO_SUCH_APP);
    EXPECT_EQ(appId, nullptr);
    Kv::Device::registerRunningApp(getpid(), "wsensor01.WatchSensor");
    ASSERT_EQ(app_manager_get_app_id(getpid(), &appId), APP_MANAGER_ERROR_NONE);
    EXPECT_EQ(take(appId), "wsensor01.WatchSensor");
}

TEST_F(AppfwTest, AppInfoGivesThePackageAndTheId) {
    app_info_h info = nullptr;
    ASSERT_EQ(app_manager_get_app_info("wsensor01.WatchSensor", &info), APP_MANAGER_ERROR_NONE);
    char* text = nullptr;
    ASSERT_EQ(app_info_get_package(info, &text), APP_MANAGER_ERROR_NONE);
    EXPECT_EQ(take(text), "wsensor01");
    ASSERT_EQ(app_info_get_app_id(info, &text), APP_MANAGER_ERROR_NONE);
    EXPECT_EQ(take(text), "wsensor01.WatchSensor");
    EXPECT_EQ(app_info_destroy(info), APP_MANAGER_ERROR_NONE);
}

TEST_F(AppfwTest, UnknownAppHasNoInfo) {
    app_info_h info = nullptr;
    EXPECT_EQ(app_manager_get_app_info("other.App", &info), APP_MANAGER_ERROR_NO_SUCH_APP);
    EXPECT_EQ(info, nullptr);
}

TEST_F(AppfwTest, NullArgumentsAreInvalidParameters) {
    char* text = nullptr;
    app_info_h info = nullptr;
    EXPECT_EQ(app_manager_get_app_id(getpid(), nullptr), APP_MANAGER_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_manager_get_app_id(0, &text), APP_MANAGER_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_manager_get_app_info(nullptr, &info), APP_MANAGER_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_manager_get_app_info("wsensor01.WatchSensor", nullptr),
              APP_MANAGER_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_info_get_package(nullptr, &text), APP_MANAGER_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_info_get_app_id(nullptr, &text), APP_MANAGER_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_info_destroy(nullptr), APP_MANAGER_ERROR_INVALID_PARAMETER);
    ASSERT_EQ(app_manager_get_app_info("wsensor01.WatchSensor", &info), APP_MANAGER_ERROR_NONE);
    EXPECT_EQ(app_info_get_package(info, nullptr), APP_MANAGER_ERROR_INVALID_PARAMETER);
    app_info_destroy(info);
}

TEST_F(AppfwTest, MetadataIsWalkedInDocumentOrderWithDuplicates) {
    pkgmgrinfo_appinfo_h handle = nullptr;
    ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("wsensor01.WatchSensor", &handle), PMINFO_R_OK);
    Walk walk;
    EXPECT_EQ(pkgmgrinfo_appinfo_foreach_metadata(handle, collect, &walk), PMINFO_R_OK);
    EXPECT_EQ(walk.seen, (Metadata{{"AccessoryServicesLocation", "res/xml/services.xml"},
                                   {"empty", ""},
                                   {"AccessoryServicesLocation", "later.xml"}}));
    EXPECT_EQ(pkgmgrinfo_appinfo_destroy_appinfo(handle), PMINFO_R_OK);
}

TEST_F(AppfwTest, MetadataWalkStopsWhenTheCallbackReturnsANegativeValue) {
    pkgmgrinfo_appinfo_h handle = nullptr;
    ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("wsensor01.WatchSensor", &handle), PMINFO_R_OK);
    Walk walk;
    walk.stopAfter = 1;
    EXPECT_EQ(pkgmgrinfo_appinfo_foreach_metadata(handle, collect, &walk), PMINFO_R_OK);
    EXPECT_EQ(walk.seen.size(), 1u);
    pkgmgrinfo_appinfo_destroy_appinfo(handle);
}

TEST_F(AppfwTest, PackageInfoOfAnUnknownAppIsAnError) {
    pkgmgrinfo_appinfo_h handle = nullptr;
    EXPECT_EQ(pkgmgrinfo_appinfo_get_appinfo("other.App", &handle), PMINFO_R_ERROR);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(AppfwTest, PackageInfoNullArgumentsAreInvalid) {
    pkgmgrinfo_appinfo_h handle = nullptr;
    Walk walk;
    EXPECT_EQ(pkgmgrinfo_appinfo_get_appinfo(nullptr, &handle), PMINFO_R_EINVAL);
    EXPECT_EQ(pkgmgrinfo_appinfo_get_appinfo("wsensor01.WatchSensor", nullptr), PMINFO_R_EINVAL);
    EXPECT_EQ(pkgmgrinfo_appinfo_foreach_metadata(nullptr, collect, &walk), PMINFO_R_EINVAL);
    EXPECT_EQ(pkgmgrinfo_appinfo_destroy_appinfo(nullptr), PMINFO_R_EINVAL);
    ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("wsensor01.WatchSensor", &handle), PMINFO_R_OK);
    EXPECT_EQ(pkgmgrinfo_appinfo_foreach_metadata(handle, nullptr, &walk), PMINFO_R_EINVAL);
    pkgmgrinfo_appinfo_destroy_appinfo(handle);
}
