#include "E2eSupport.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace KvE2e {

std::string testApp(const std::string& name) { return std::string(KV_E2E_APPS) + "/" + name; }

WorkFolder::WorkFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kv-e2e-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    }
    m_path = pattern;
}

WorkFolder::~WorkFolder() {
    if (testing::Test::HasFailure()) {
        std::printf("the devices and logs of the failed test stay in %s\n", m_path.c_str());
        return;
    }
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

bool waitForText(const std::string& path, const std::string& text, milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (readText(path).find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(20));
    }
    return true;
}

int countLines(const std::string& text, const std::string& line) {
    int count = 0;
    for (std::size_t at = text.find(line + "\n"); at != std::string::npos;
         at = text.find(line + "\n", at + 1)) {
        count += at == 0 || text[at - 1] == '\n' ? 1 : 0;
    }
    return count;
}

void AppsOnPair::start(const std::string& watchApp, const std::vector<std::string>& watchArguments,
                       const std::string& phoneApp, const std::vector<std::string>& phoneArguments,
                       const std::string& phoneReady) {
    watch = std::make_unique<AppRun>(m_devices.watch(), watchApp, "watch", m_devices.work(),
                                     watchArguments, seconds(60));
    ASSERT_TRUE(watch->waitForOutput("watch: ready")) << watch->output();
    phone = std::make_unique<AppRun>(m_devices.phone(), phoneApp, "phone", m_devices.work(),
                                     phoneArguments, seconds(60));
    ASSERT_TRUE(phone->waitForOutput(phoneReady)) << both();
}

std::string AppsOnPair::both() const {
    return (phone ? phone->output() : std::string()) + (watch ? watch->output() : "");
}

void AppsOnPair::expectPhone(const std::string& line, milliseconds timeout) {
    expect(*phone, "phone", line, timeout);
}

void AppsOnPair::expectWatch(const std::string& line, milliseconds timeout) {
    expect(*watch, "watch", line, timeout);
}

void AppsOnPair::expect(AppRun& app, const std::string& label, const std::string& line,
                        milliseconds timeout) const {
    EXPECT_TRUE(app.waitForOutput(line + "\n", timeout))
        << label << " did not say: " << line << "\n"
        << both();
}

}  // namespace KvE2e
