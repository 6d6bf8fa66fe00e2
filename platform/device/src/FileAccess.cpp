#include <kv-device/FileAccess.h>
#include <kv-device/Paths.h>

#include <filesystem>
#include <vector>

namespace Kv {
namespace Device {

namespace {

// The folders an app of `package` may use, each ending in "/".
std::vector<std::string> allowedFolders(const std::string& package) {
    std::vector<std::string> folders{kMediaRoot, std::string(kRingtonesRoot) + "/"};
    if (!package.empty() && package.find('/') == std::string::npos && package != "." &&
        package != "..") {
        folders.push_back(packageRoot(package) + "/");
    }
    return folders;
}

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool hasParentSegment(const std::string& path) {
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (path.compare(start, end - start, "..") == 0 && end - start == 2) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

}  // namespace

bool appMayUseFile(const std::string& devicePath, const std::string& package) {
    if (devicePath.empty() || devicePath[0] != '/' || hasParentSegment(devicePath)) {
        return false;
    }
    const std::string normal = std::filesystem::path(devicePath).lexically_normal().string();
    for (const std::string& folder : allowedFolders(package)) {
        if (startsWith(normal, folder) && normal.size() > folder.size()) {
            return true;
        }
    }
    return false;
}

bool resolvesInside(const std::string& path, const std::string& package,
                    std::string (*localRoot)(const std::string& devicePath)) {
    std::error_code error;
    const std::string resolved = std::filesystem::weakly_canonical(localRoot(path), error).string();
    if (error) {
        return false;
    }
    for (const std::string& folder : allowedFolders(package)) {
        const std::string root =
            std::filesystem::weakly_canonical(localRoot(folder), error).string() + "/";
        if (!error && startsWith(resolved, root)) {
            return true;
        }
    }
    return false;
}

}  // namespace Device
}  // namespace Kv
