// A path of the device's file system, as seen inside the device.
#ifndef KV_PLATFORM_FILESYSTEM_PATH_H
#define KV_PLATFORM_FILESYSTEM_PATH_H

#include <dpl/shared_ptr.h>

#include <string>

namespace DeviceAPI {
namespace Filesystem {

class IPath {
public:
    virtual ~IPath();
    // The whole absolute path, e.g. "/opt/usr/media/Downloads/a.txt".
    virtual std::string getFullPath() const = 0;
    // The folder that holds it, e.g. "/opt/usr/media/Downloads" ("/" for "/a").
    virtual std::string getPath() const = 0;
    // The last segment, e.g. "a.txt" (empty for "/").
    virtual std::string getName() const = 0;
};

typedef DPL::SharedPtr<IPath> IPathPtr;

// The plain IPath: an absolute path held as text.
class Path : public IPath {
public:
    // `fullPath` must be absolute and normalised (no "//", "." or "..").
    static IPathPtr create(const std::string& fullPath);

    std::string getFullPath() const override;
    std::string getPath() const override;
    std::string getName() const override;

private:
    explicit Path(std::string fullPath);

    std::string m_fullPath;
};

}  // namespace Filesystem
}  // namespace DeviceAPI

#endif
