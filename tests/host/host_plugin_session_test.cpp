// The host test plug-in run in this process through the runtime library's
// runApp, for the one access-control case that kv-runtime cannot produce:
// kv-runtime registers the app as the process's running app before any
// plug-in hook runs, so a widget start for a process without a registered
// app happens only when a runner skips that step, as these tests do.
#include "TestFiles.h"

#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-runtime/AppSession.h>

#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

using Kv::Runtime::AppRunOptions;
using Kv::Runtime::AppRunResult;
using Kv::Runtime::ExitReason;

namespace {

class HostPluginSessionTest : public testing::Test {
protected:
    void SetUp() override { Kv::Device::select(m_dir.file("device")); }

    void TearDown() override { Kv::Device::unregisterRunningApp(getpid()); }

    // Runs the start script of an app folder of tests/host/apps with the
    // host test plug-in, as the runtime would for widget 7.
    static AppRunResult runScriptOf(const std::string& appFolder) {
        AppRunOptions options;
        options.scriptPath = std::string(KV_HOST_APPS_DIR) + "/" + appFolder + "/main.js";
        options.scriptName = "main.js";
        options.widgetId = 7;
        options.pluginFiles = {KV_HOST_TEST_PLUGIN};
        options.timeoutSeconds = 20;
        return Kv::Runtime::runApp(options);
    }

    KvTest::TempDir m_dir;
};

}  // namespace

TEST_F(HostPluginSessionTest, WidgetStartWithoutARegisteredAppLeavesAccessUninitialised) {
    DlogCapture log;
    const AppRunResult result = runScriptOf("access-uninitialised");
    EXPECT_EQ(result.reason, ExitReason::Script);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(log.contains(DLOG_ERROR,
                             "Access control is not available for widget 7: No app is "
                             "registered as running in process " +
                                 std::to_string(getpid())));
    EXPECT_TRUE(log.contains(DLOG_WARN, "Access control was not initialised for widget 7"));
}

TEST_F(HostPluginSessionTest, WidgetStartOfARegisteredAppInitialisesAccess) {
    const std::string appId = Kv::Device::installApp(KV_HOST_APPS_DIR "/access-granted").appId;
    Kv::Device::registerRunningApp(getpid(), appId);
    DlogCapture log;
    const AppRunResult result = runScriptOf("access-granted");
    EXPECT_EQ(result.reason, ExitReason::Script);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(log.contains(DLOG_INFO, "Access control initialised for widget 7, app " + appId));
    EXPECT_TRUE(log.contains(DLOG_INFO, "Access control deinitialised for widget 7"));
    EXPECT_EQ(log.count("Access control is not available"), 0u);
}
