#include "E2eSupport.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

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

}  // namespace KvE2e
