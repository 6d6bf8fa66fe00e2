// Contract checks that stay on in every build: a broken contract prints
// "Assertion failed: <what>" with its place to stderr and aborts.
#ifndef KV_PLATFORM_DPL_ASSERT_H
#define KV_PLATFORM_DPL_ASSERT_H

#include <FunctionName.h>

#include <string_view>

namespace DPL {

[[noreturn]] void AssertProc(const char* condition, const char* file, int line,
                             std::string_view function);

}  // namespace DPL

#define AssertMsg(condition, message)                                              \
    do {                                                                           \
        if (!(condition)) {                                                        \
            ::DPL::AssertProc(message, __FILE_NAME__, __LINE__, KV_FUNCTION_NAME); \
        }                                                                          \
    } while (0)

#define Assert(condition) AssertMsg(condition, #condition)

#endif
