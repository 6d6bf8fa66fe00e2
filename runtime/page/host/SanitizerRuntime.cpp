#include "SanitizerRuntime.h"

#include <Logger.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace Kv {
namespace Page {

namespace {

// The file of the sanitizer's runtime this process has loaded, if any: GCC's
// or clang's.
std::string loadedSanitizerRuntime() {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        const auto path = line.find('/');
        if (path == std::string::npos) {
            continue;
        }
        for (const char* name : {"/libasan.so", "/libclang_rt.asan-"}) {
            if (line.find(name, path) != std::string::npos) {
                return line.substr(path);
            }
        }
    }
    return {};
}

}  // namespace

void lendSanitizerToEngine() {
    const std::string runtime = loadedSanitizerRuntime();
    if (runtime.empty()) {
        return;
    }
    const char* preload = std::getenv("LD_PRELOAD");
    setenv("LD_PRELOAD",
           (runtime + (preload && *preload ? ":" + std::string(preload) : "")).c_str(), 1);
    const char* options = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS",
           ((options && *options ? std::string(options) + ":" : "") + "detect_leaks=0").c_str(), 1);
    LoggerI("the engine's processes run with the sanitizer's runtime " << runtime);
}

}  // namespace Page
}  // namespace Kv
