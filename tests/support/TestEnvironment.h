// What a test run is asked for through its environment: the soak runs ask
// for more trials, larger files, other seeds.
#ifndef KV_TESTS_SUPPORT_TEST_ENVIRONMENT_H
#define KV_TESTS_SUPPORT_TEST_ENVIRONMENT_H

#include <string>

namespace KvTest {

// The variable's value, or `fallback` when it is unset or empty.
std::string environment(const char* name, const std::string& fallback);
// The variable's whole number, or `fallback` when it is unset or empty.
// Throws std::invalid_argument or std::out_of_range for any other value.
int environmentNumber(const char* name, int fallback);

}  // namespace KvTest

#endif
