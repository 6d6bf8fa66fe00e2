#include <Filesystem/Utils.h>

#include "VirtualRoots.h"

#include <Commons/Exception.h>
#include <kv-device/FileAccess.h>

#include <vector>

namespace DeviceAPI {
namespace Filesystem {
namespace Utils {

namespace {

using WrtDeviceApis::Commons::ConversionException;

constexpr char kFileScheme[] = "file://";

std::string firstSegment(const std::string& path) { return path.substr(0, path.find('/')); }

std::vector<std::string> segments(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        const size_t end = std::min(path.find('/', start), path.size());
        parts.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

// `folder` followed by the segments of `rest`, without empty or "." ones.
// A ".." segment raises ConversionException: it could leave the root.
std::string join(const std::string& folder, const std::string& rest, const std::string& original) {
    std::string path = folder;
    for (const std::string& segment : segments(rest)) {
        if (segment == "..") {
            ThrowMsg(ConversionException, "Path must not contain \"..\": \"" << original << "\"");
        }
        if (!segment.empty() && segment != ".") {
            path += "/" + segment;
        }
    }
    return path.empty() ? "/" : path;
}

}  // namespace

bool isVirtualPath(const std::string& path) { return isVirtualRoot(firstSegment(path)); }

bool isUriPath(const std::string& path) {
    const std::string scheme = kFileScheme;
    return path.size() > scheme.size() && path.compare(0, scheme.size(), scheme) == 0 &&
           path[scheme.size()] == '/';
}

IPathPtr fromVirtualPath(JSContextRef /*context*/, const std::string& path) {
    if (path.empty()) {
        ThrowMsg(ConversionException, "Empty path");
    }
    if (isUriPath(path)) {
        const std::string file = join("", path.substr(std::string(kFileScheme).size()), path);
        if (!Kv::Device::appMayUseFile(file, runningPackage())) {
            ThrowMsg(
                ConversionException,
                "\"" << path << "\" is outside the app's folders and the shared media folders");
        }
        return Path::create(file);
    }
    if (isVirtualPath(path)) {
        const std::string root = firstSegment(path);
        const std::string rest = path.size() > root.size() ? path.substr(root.size() + 1) : "";
        return Path::create(join(virtualRootFolder(root), rest, path));
    }
    ThrowMsg(ConversionException, "Not a virtual path or file URI: \""
                                      << path
                                      << "\" (expected e.g. \"downloads/a.txt\""
                                         " or \"file:///opt/usr/media/a.txt\")");
}

}  // namespace Utils
}  // namespace Filesystem
}  // namespace DeviceAPI
