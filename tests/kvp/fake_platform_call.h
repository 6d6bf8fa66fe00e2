// Shared helpers of the fakes of the platform's C functions: the place where
// each fake records its calls, and the lookup of the platform library's own
// function for a fake that is switched to the real library.
#ifndef KV_TESTS_KVP_FAKE_PLATFORM_CALL_H
#define KV_TESTS_KVP_FAKE_PLATFORM_CALL_H

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace FakePlatformCall {

// The platform library's definition of `name`: the next one after the test
// program's own, which overrides it. When the linker left the library out of
// the program (every symbol the program uses from it is the fake's), the
// library `library` is loaded here. Aborts with a clear message when neither
// works, since a test switched to the real library can't go on without it.
template <typename Function>
Function realFunction(const char* library, const char* name) {
    void* symbol = dlsym(RTLD_NEXT, name);
    if (symbol == nullptr) {
        // Loaded once and kept for the rest of the process.
        void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
        symbol = handle != nullptr ? dlsym(handle, name) : nullptr;
    }
    if (symbol == nullptr) {
        std::fprintf(stderr, "fake: cannot find %s of the platform library %s: %s\n", name, library,
                     dlerror());
        std::abort();
    }
    return reinterpret_cast<Function>(symbol);
}

}  // namespace FakePlatformCall

#endif
