#include <kv-runtime/WidgetId.h>

#include <cstdint>

namespace Kv {
namespace Runtime {

int widgetIdFor(const std::string& appId) {
    uint32_t hash = 2166136261u;  // FNV-1a, 32 bits
    for (unsigned char byte : appId) {
        hash ^= byte;
        hash *= 16777619u;
    }
    const auto id = static_cast<int>(hash & 0x7fffffffu);
    return id == 0 ? 1 : id;
}

}  // namespace Runtime
}  // namespace Kv
