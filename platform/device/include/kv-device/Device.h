// The device a process belongs to. A device is a folder on the host:
//   <dev>/fs/opt/...      the device's /opt (installed apps, media folders)
//   <dev>/vconf/          the vconf store
//   <dev>/running/        the table of running apps, one entry per process
//   <dev>/policy.conf     the user's privilege policy
//   <dev>/accessory.sock  the accessory service's socket
// Every process finds its device through the environment variable KV_DEVICE,
// so children of a process belong to the same device.
#ifndef KV_PLATFORM_DEVICE_DEVICE_H
#define KV_PLATFORM_DEVICE_DEVICE_H

#include <kv-device/Paths.h>

#include <string>

namespace Kv {
namespace Device {

// The current device folder, absolute and without a trailing slash:
// $KV_DEVICE when set (a relative value is taken relative to the current
// directory), else $XDG_RUNTIME_DIR/kv/default-device when that folder is
// usable, else $HOME/.local/share/kv/default-device. The layout is created
// on first use. Throws std::runtime_error when it can't be created.
std::string root();

// Makes `dir` the device of this process and of the children it starts
// (sets KV_DEVICE to its absolute form) and creates its layout. Call it
// before any thread is made: it changes the environment.
void select(const std::string& dir);

// Creates the layout of the device folder `dir` where it is missing and
// writes the marker that enter() recognises. Existing content is kept.
void ensureLayout(const std::string& dir);

// True when `dir` holds a device's layout (made by ensureLayout), so that a
// command on an existing device can tell a mistyped folder from a device.
bool isDeviceFolder(const std::string& dir);

// <root>/fs followed by `devicePath` (an absolute device path such as
// "/opt/usr/media/Downloads/a.txt"): where a device file lies on the host.
std::string hostPath(const std::string& devicePath);

// Host paths of the other parts of the current device.
std::string vconfDir();
std::string runningDir();
std::string policyFile();
std::string accessorySocket();

// Makes the device's paths real for this process and its children: moves
// the process into a private mount namespace (and, when not root, a user
// namespace in which the user is root) where <root>/fs/opt is bound over
// /opt. Must be called at the start of main, before any thread is made.
// Does nothing when the process already sees this device's /opt. Throws
// std::runtime_error naming the failed step and the system's reason.
void enter();

// True when /opt of this process is the current device's.
bool entered();

}  // namespace Device
}  // namespace Kv

#endif
