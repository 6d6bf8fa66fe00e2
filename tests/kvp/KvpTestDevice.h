// For the plug-in tests that run inside a device of their own: the program's
// main enters a fresh device before any thread is made, so the device paths
// ("/opt/usr/apps/...") are real for it, and tests install apps with service
// profiles and register this process as one of them.
#ifndef KV_TESTS_KVP_TEST_DEVICE_H
#define KV_TESTS_KVP_TEST_DEVICE_H

#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

namespace KvpTestDevice {

inline void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << content;
}

// An app description of package `package`; `metadata` is the metadata element, if any.
inline std::string appConfig(const std::string& appId, const std::string& package,
                             const std::string& metadata) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<widget id="http://example.org/)" +
           package + R"(" version="1.0">
  <name>)" +
           package +
           R"(</name>
  <application id=")" +
           appId + R"(" package=")" + package + R"("/>
  )" + metadata +
           R"(
  <content src="main.js"/>
</widget>
)";
}

// A service profile of two entries: a provider with one transport and one
// channel, and a consumer with nothing but its role.
inline const char* exampleProfile() {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<resources>
  <application name="Example">
    <serviceProfile id="/kvtest/hello" name="HelloAccessory" role="provider"
                    serviceLimit="one_accessory" serviceTimeout="10">
      <supportedTransports><transport type="transport_bt"/></supportedTransports>
      <serviceChannel id="104" dataRate="low" priority="low" reliability="enable"/>
    </serviceProfile>
    <serviceProfile role="consumer"/>
  </application>
</resources>
)";
}

// The metadata element that points at res/xml/accessoryservices.xml.
inline const char* profileLocationMetadata() {
    return R"(<metadata key="AccessoryServicesLocation" value="res/xml/accessoryservices.xml"/>)";
}

// Installs an app from a scratch folder whose profile file holds `profile`
// (none when empty), and registers this process as running it.
inline void installAndRun(const std::string& scratchFolder, const std::string& appId,
                          const std::string& package, const std::string& metadata,
                          const std::string& profile) {
    writeFile(scratchFolder + "/config.xml", appConfig(appId, package, metadata));
    writeFile(scratchFolder + "/main.js", "");
    if (!profile.empty()) {
        writeFile(scratchFolder + "/res/xml/accessoryservices.xml", profile);
    }
    Kv::Device::installApp(scratchFolder);
    Kv::Device::registerRunningApp(getpid(), appId);
}

// The main of a device test program: runs every test inside a fresh device.
inline int runTestsInOwnDevice(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::string folder = testing::TempDir() + "kv-test-device-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    try {
        Kv::Device::select(folder);
        Kv::Device::enter();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cannot enter the test device %s: %s\n", folder.c_str(), error.what());
        std::filesystem::remove_all(folder);
        return 1;
    }
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}

}  // namespace KvpTestDevice

#endif
