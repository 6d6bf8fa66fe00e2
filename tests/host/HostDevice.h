// A temporary device for the host's script tests: installs the app folders
// of tests/host/apps with `kv-runtime --device DIR install`, sets the
// user's policy, and runs an app with `kv-runtime --device DIR run APP
// --plugin <the host test plug-in> --timeout 20` (or with another folder of
// plug-ins).
#ifndef KV_TESTS_HOST_HOST_DEVICE_H
#define KV_TESTS_HOST_HOST_DEVICE_H

#include "ChildProcess.h"
#include "TestFiles.h"

#include <string>
#include <vector>

namespace KvTest {

class HostDevice {
public:
    HostDevice() = default;

    // Installs the app folder `apps/<appFolder>` and returns the app id that
    // kv-runtime printed (empty, with a test failure, when it failed).
    std::string install(const std::string& appFolder) const;

    // Writes the device's policy.conf.
    void writePolicy(const std::string& text) const;
    // Puts a folder where policy.conf belongs, so that the policy cannot be
    // read and access control fails to initialise.
    void breakPolicy() const;

    // Runs an installed app with the host test plug-in.
    ProcessResult run(const std::string& appId) const;
    // Runs an installed app with the plug-ins of `pluginDir` instead.
    ProcessResult runWithPlugins(const std::string& appId, const std::string& pluginDir) const;

    // The platform log of every kv-runtime run on this device.
    std::string log() const;

private:
    ProcessResult kvRuntime(std::vector<std::string> arguments) const;
    std::string deviceDir() const { return m_dir.file("device"); }

    TempDir m_dir;
};

}  // namespace KvTest

#endif
