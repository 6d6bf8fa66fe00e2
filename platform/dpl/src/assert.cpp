#include <dpl/assert.h>

#include <cstdio>
#include <cstdlib>

namespace DPL {

void AssertProc(const char* condition, const char* file, int line, const char* function) {
    std::fprintf(stderr, "Assertion failed: %s (%s:%d, %s)\n", condition, file, line, function);
    std::fflush(stderr);
    std::abort();
}

}  // namespace DPL
