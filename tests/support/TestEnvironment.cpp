#include "TestEnvironment.h"

#include <cstdlib>

namespace KvTest {

std::string environment(const char* name, const std::string& fallback) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

int environmentNumber(const char* name, int fallback) {
    const std::string value = environment(name, "");
    return value.empty() ? fallback : std::stoi(value);
}

}  // namespace KvTest
