#include <dpl/assert.h>

#include <cstdio>
#include <cstdlib>

namespace DPL {

void AssertProc(const char* condition, const char* file, int line, std::string_view function) {
    std::fprintf(stderr, "Assertion failed: %s (%s:%d, %.*s)\n", condition, file, line,
                 static_cast<int>(function.size()), function.data());
    std::fflush(stderr);
    std::abort();
}

}  // namespace DPL
