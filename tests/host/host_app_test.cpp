// Apps run by kv-runtime on a temporary device with the host test plug-in:
// each app checks from script what the platform's argument validator, Web
// API errors and access control do, and ends with code 0 when every check
// held (1 and a "FAIL:" line on stderr for each one that did not). One app
// runs with the kv plug-in instead, to see what the host does with an
// exception that a plug-in's callback throws.
#include "HostDevice.h"

#include <gtest/gtest.h>

#include <string>

using KvTest::HostDevice;
using KvTest::ProcessResult;

namespace {

constexpr char kAccessoryPrivilege[] = "http://kv-project.org/privilege/accessory";

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Installs the app folder, runs the app and expects it to end with code 0
// after printing `lastWords`.
void expectAppPasses(const HostDevice& device, const std::string& appFolder,
                     const std::string& lastWords) {
    const std::string appId = device.install(appFolder);
    ASSERT_FALSE(appId.empty());
    const ProcessResult result = device.run(appId);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, lastWords + "\n");
    EXPECT_EQ(result.err, "");
}

std::string blockLine(const std::string& appId) {
    return "block " + appId + " " + kAccessoryPrivilege + "\n";
}

}  // namespace

TEST(HostAppTest, ArgumentsAreValidatedAndConverted) {
    HostDevice device;
    expectAppPasses(device, "arguments", "arguments: all checks passed");
}

TEST(HostAppTest, ErrorObjectsCarryNameMessageAndCode) {
    HostDevice device;
    expectAppPasses(device, "errors", "errors: all checks passed");
}

TEST(HostAppTest, DeclaredPrivilegeIsGranted) {
    HostDevice device;
    device.writePolicy("# the user blocks nothing for this app\n" + blockLine("other.App"));
    expectAppPasses(device, "access-granted", "access granted");
    EXPECT_TRUE(contains(device.log(), "Access control initialised for widget")) << device.log();
}

TEST(HostAppTest, UndeclaredPrivilegeIsDenied) {
    HostDevice device;
    expectAppPasses(device, "access-denied", "access denied");
    EXPECT_TRUE(contains(device.log(), "HostTest.guarded denied: hostdeny.Denied does not declare"))
        << device.log();
}

TEST(HostAppTest, PrivilegeBlockedByTheUserIsRefused) {
    HostDevice device;
    device.writePolicy(blockLine("hostblock.Blocked"));
    expectAppPasses(device, "access-blocked", "access blocked by the user");
    EXPECT_TRUE(contains(device.log(), "HostTest.guarded denied: the user blocks")) << device.log();
}

TEST(HostAppTest, UnreadablePolicyLeavesAccessControlUninitialised) {
    HostDevice device;
    device.breakPolicy();
    expectAppPasses(device, "access-uninitialised", "access not initialised");
    const std::string log = device.log();
    EXPECT_TRUE(contains(log, "Access control is not available for widget")) << log;
    EXPECT_TRUE(contains(log, "Can not read the user policy")) << log;
    EXPECT_TRUE(contains(log, "Access check of HostTest.guarded before initialisation")) << log;
    // The stop hook finds nothing to de-initialise and says so.
    EXPECT_TRUE(contains(log, "Access control was not initialised for widget")) << log;
}

TEST(HostAppTest, AFailedScriptCheckEndsTheAppWithCode1) {
    HostDevice device;
    // The app expects to be granted, but the user blocks it.
    device.writePolicy(blockLine("hostgrant.Granted"));
    const std::string appId = device.install("access-granted");
    const ProcessResult result = device.run(appId);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(contains(result.err,
                         "FAIL: guarded() threw SecurityError: The user blocks an application "
                         "from calling this method."))
        << result.err;
    EXPECT_FALSE(contains(result.err, "Sanitizer")) << result.err;
}

TEST(HostAppTest, AnExitInAPluginsCallbackEndsTheAppWithoutAnError) {
    HostDevice device;
    const std::string appId = device.install("callback-exits");
    const ProcessResult result = device.runWithPlugins(appId, KV_TEST_PLUGINS_DIR);
    EXPECT_EQ(result.exitCode, 5) << result.err;
    EXPECT_EQ(result.out, "device ATTACHED\n");
    EXPECT_EQ(result.err, "");
    EXPECT_FALSE(contains(device.log(), "callback threw")) << device.log();
    EXPECT_FALSE(contains(device.log(), " E/")) << device.log();
    EXPECT_TRUE(contains(device.log(), "ended the app")) << device.log();
}

TEST(HostAppTest, WhatAPluginsCallbackThrowsIsUncaughtAndEndsTheAppWithCode1) {
    HostDevice device;
    const std::string appId = device.install("callback-throws");
    const ProcessResult result = device.runWithPlugins(appId, KV_TEST_PLUGINS_DIR);
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(result.err,
              "Uncaught TypeError: listener threw on TRANSPORT_BT ATTACHED at line 6 in main.js\n");
    EXPECT_EQ(result.out, "");
    // The plug-in's own log line stays.
    EXPECT_TRUE(contains(device.log(), "callback threw: TypeError: listener threw"))
        << device.log();
}
