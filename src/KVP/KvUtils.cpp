#include "KvUtils.h"

#include <Commons/Exception.h>
#include <Filesystem/Path.h>
#include <Filesystem/Utils.h>
#include <Logger.h>

namespace DeviceAPI {
namespace KVP {

namespace {

const std::string kFileScheme = "file://";
const std::string kEscapedSlash = "\\/";

}  // namespace

bool isValidFileUri(const std::string& uri) {
    if (Filesystem::Utils::isVirtualPath(uri)) {
        return true;
    }
    return Filesystem::Utils::isUriPath(uri);
}

std::string convertUriToPath(const std::string& uri) {
    try {
        Filesystem::IPathPtr path = Filesystem::Utils::fromVirtualPath(nullptr, uri);
        return path ? path->getFullPath() : std::string();
    } catch (const WrtDeviceApis::Commons::ConversionException&) {
        LoggerW("Invalid file scheme");
        return std::string();
    }
}

std::string convertPathToUri(const std::string& path) {
    if (path.find(kFileScheme) != std::string::npos) {
        return path;
    }
    return kFileScheme + path;
}

std::string getFileName(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos) {
        return path;
    }
    return path.substr(slash + 1);
}

std::string unescapeSlashes(const std::string& text) {
    std::string result(text);
    std::string::size_type position = result.find(kEscapedSlash);
    while (position != std::string::npos) {
        result.replace(position, kEscapedSlash.size(), "/");
        position = result.find(kEscapedSlash, position + 1);
    }
    return result;
}

}  // namespace KVP
}  // namespace DeviceAPI
