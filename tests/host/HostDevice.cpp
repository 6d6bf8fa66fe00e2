#include "HostDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>

namespace KvTest {

namespace {

// Longer than the run's own time limit, so that kv-runtime reports a hang.
constexpr std::chrono::seconds kProcessLimit{40};

}  // namespace

ProcessResult HostDevice::kvRuntime(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {KV_RUNTIME_PATH, "--device", deviceDir()});
    // The platform log goes to a file, so that stderr holds only what the
    // program and the app's console say.
    const std::map<std::string, std::string> environment = {{"KV_LOG_FILE", m_dir.file("kv.log")},
                                                            {"KV_LOG_LEVEL", "INFO"}};
    return runProcess(arguments, environment, kProcessLimit);
}

std::string HostDevice::install(const std::string& appFolder) const {
    const ProcessResult result =
        kvRuntime({"install", std::string(KV_HOST_APPS_DIR) + "/" + appFolder});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    if (result.exitCode != 0 || result.out.empty() || result.out.back() != '\n') {
        ADD_FAILURE() << "kv-runtime install printed \"" << result.out << "\"";
        return {};
    }
    return result.out.substr(0, result.out.size() - 1);
}

void HostDevice::writePolicy(const std::string& text) const {
    writeFile(deviceDir() + "/policy.conf", text);
}

void HostDevice::breakPolicy() const {
    std::filesystem::create_directories(deviceDir() + "/policy.conf");
}

ProcessResult HostDevice::run(const std::string& appId) const {
    return kvRuntime({"run", appId, "--plugin", KV_HOST_TEST_PLUGIN, "--timeout", "20"});
}

ProcessResult HostDevice::runWithPlugins(const std::string& appId,
                                         const std::string& pluginDir) const {
    return kvRuntime({"run", appId, "--plugins", pluginDir, "--timeout", "20"});
}

std::string HostDevice::log() const { return readFile(m_dir.file("kv.log")); }

}  // namespace KvTest
