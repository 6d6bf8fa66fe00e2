#include "PageDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

namespace KvTest {

namespace {

std::map<std::string, std::string> environmentFor(const std::string& log) {
    return {{"KV_LOG_FILE", log},
            {"KV_LOG_LEVEL", "INFO"},
            {"KV_PAGE_DISPLAY", "virtual"},
            {"ECORE_NO_SYSTEM_MODULES", "1"}};
}

}  // namespace

PageDevice::PageDevice() = default;

std::string PageDevice::install(const std::string& appFolder) const {
    const ProcessResult result = runProcess({KV_RUNTIME_PATH, "--device", dir(), "install",
                                             std::string(KV_PAGE_APPS_DIR) + "/" + appFolder},
                                            environmentFor(m_dir.file("kv.log")));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.out.empty() ? std::string() : result.out.substr(0, result.out.size() - 1);
}

void PageDevice::setScreen(const std::vector<std::string>& words) const {
    std::vector<std::string> command = {KV_DEVICE_TOOL, "--device", dir(), "screen"};
    command.insert(command.end(), words.begin(), words.end());
    const ProcessResult result = runProcess(command);
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

std::vector<std::string> PageDevice::hostTestPlugin() { return {"--plugin", KV_HOST_TEST_PLUGIN}; }

std::vector<std::string> PageDevice::kvWithDouble() { return {"--plugins", KV_TEST_PLUGINS_DIR}; }

std::vector<std::string> PageDevice::command(const std::string& appId,
                                             const std::vector<std::string>& options,
                                             const std::vector<std::string>& arguments) const {
    std::vector<std::string> words = {KV_RUNTIME_PATH, "--device", dir(), "run", appId};
    words.insert(words.end(), options.begin(), options.end());
    if (std::find(options.begin(), options.end(), "--timeout") == options.end()) {
        words.insert(words.end(), {"--timeout", "30"});
    }
    words.emplace_back("--");
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

std::unique_ptr<ChildProcess> PageDevice::start(const std::string& appId,
                                                const std::vector<std::string>& options,
                                                const std::vector<std::string>& arguments) const {
    return std::make_unique<ChildProcess>(command(appId, options, arguments),
                                          environmentFor(m_dir.file("kv.log")));
}

ProcessResult PageDevice::run(const std::string& appId, const std::vector<std::string>& options,
                              const std::vector<std::string>& arguments,
                              const std::map<std::string, std::string>& environment) const {
    std::map<std::string, std::string> merged = environmentFor(m_dir.file("kv.log"));
    merged.insert(environment.begin(), environment.end());
    return runProcess(command(appId, options, arguments), merged, std::chrono::seconds(60));
}

std::string PageDevice::log() const { return readFile(m_dir.file("kv.log")); }

std::vector<std::string> logMessages(const std::string& log, const std::string& text) {
    std::vector<std::string> messages;
    std::istringstream lines(log);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.find(text) == std::string::npos) {
            continue;
        }
        const auto place = line.find(" > ");
        messages.push_back(place == std::string::npos ? line : line.substr(place + 3));
    }
    return messages;
}

}  // namespace KvTest
