// Turning the file names of web apps into the device's absolute paths.
//
// A virtual path starts with a virtual root, then optionally "/" and a path
// under it ("downloads", "documents/notes/a.txt"):
//   documents  /opt/usr/media/Documents     downloads  /opt/usr/media/Downloads
//   images     /opt/usr/media/Images        music      /opt/usr/media/Music
//   videos     /opt/usr/media/Videos        camera     /opt/usr/media/Camera
//   ringtones  /opt/usr/share/settings/Ringtones
//   wgt-package      /opt/usr/apps/<package>/res/wgt   (the running app's package)
//   wgt-private      /opt/usr/apps/<package>/data
//   wgt-private-tmp  /opt/usr/apps/<package>/tmp
// A file URI is "file://" followed by an absolute path ("file:///a/b.txt"); an
// app may name only files of the shared media folders and of its own package
// that way (see Kv::Device::appMayUseFile).
#ifndef KV_PLATFORM_FILESYSTEM_UTILS_H
#define KV_PLATFORM_FILESYSTEM_UTILS_H

#include <Filesystem/Path.h>

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace DeviceAPI {
namespace Filesystem {
namespace Utils {

// True when the first segment of `path` is a virtual root (case-sensitive).
bool isVirtualPath(const std::string& path);

// True when `path` is "file://" followed by an absolute path.
bool isUriPath(const std::string& path);

// The device path of a virtual path or file URI, normalised (no "//", "."
// segments or trailing "/"). Raises WrtDeviceApis::Commons::ConversionException
// for an empty text, a relative path that is not virtual, another scheme, a
// ".." segment, a file URI outside the folders the running app may use, or a
// wgt-* root when the running app's package is unknown.
// `context` is not needed and may be null.
IPathPtr fromVirtualPath(JSContextRef context, const std::string& path);

}  // namespace Utils
}  // namespace Filesystem
}  // namespace DeviceAPI

#endif
