#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <kv-device/Storage.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <stdexcept>

namespace Kv {
namespace Device {

std::optional<std::uint64_t> emulatedFreeSpace() {
    const std::optional<std::string> text = readFile(root() + "/" + kStorageFreeFile);
    if (!text) {
        return std::nullopt;
    }
    try {
        return std::stoull(*text);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void takeEmulatedSpace(std::uint64_t bytes) {
    const std::optional<std::uint64_t> free = emulatedFreeSpace();
    if (free) {
        writeFileAtomically(root() + "/" + kStorageFreeFile,
                            std::to_string(*free - std::min(*free, bytes)) + "\n");
    }
}

std::optional<std::uint64_t> freeSpace(const std::string& folder) {
    struct statvfs info {};
    if (::statvfs(folder.c_str(), &info) != 0) {
        return std::nullopt;
    }
    const std::uint64_t real = static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
    const std::optional<std::uint64_t> emulated = emulatedFreeSpace();
    return emulated ? std::min(real, *emulated) : real;
}

}  // namespace Device
}  // namespace Kv
