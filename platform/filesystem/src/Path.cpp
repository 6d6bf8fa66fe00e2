#include <Filesystem/Path.h>

namespace DeviceAPI {
namespace Filesystem {

IPath::~IPath() = default;

Path::Path(std::string fullPath) : m_fullPath(std::move(fullPath)) {}

IPathPtr Path::create(const std::string& fullPath) { return IPathPtr(new Path(fullPath)); }

std::string Path::getFullPath() const { return m_fullPath; }

std::string Path::getPath() const {
    const std::string::size_type slash = m_fullPath.rfind('/');
    if (slash == std::string::npos) {
        return {};
    }
    return slash == 0 ? "/" : m_fullPath.substr(0, slash);
}

std::string Path::getName() const {
    const std::string::size_type slash = m_fullPath.rfind('/');
    return slash == std::string::npos ? m_fullPath : m_fullPath.substr(slash + 1);
}

}  // namespace Filesystem
}  // namespace DeviceAPI
