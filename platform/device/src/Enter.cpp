// Entering a device: the one place where the device's paths (/opt/...) are
// mapped onto its folder on the host, by a bind mount in a private mount
// namespace of the process.
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include <Logger.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string>

namespace Kv {
namespace Device {

namespace {

[[noreturn]] void fail(const std::string& dir, const std::string& step, int error) {
    throw std::runtime_error("cannot enter device " + dir + ": " + step +
                             " failed: " + errorText(error));
}

// The number of threads of this process, from /proc/self/status.
int threadCount() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Threads:", 0) == 0) {
            return std::stoi(line.substr(8));
        }
    }
    return -1;
}

void checkSingleThreaded(const std::string& dir) {
    const int threads = threadCount();
    if (threads != 1) {
        throw std::runtime_error("cannot enter device " + dir + ": the process has " +
                                 std::to_string(threads) +
                                 " threads; enter() must be called at the start of main, "
                                 "before any thread is made");
    }
}

void writeProcFile(const std::string& dir, const std::string& path, const std::string& content) {
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        fail(dir, "opening " + path, errno);
    }
    const ssize_t written = write(fd, content.data(), content.size());
    const int error = errno;
    close(fd);
    if (written != static_cast<ssize_t>(content.size())) {
        fail(dir, "writing \"" + content + "\" to " + path, error);
    }
}

// A user namespace in which the calling user is root, with its own mount
// namespace: what an ordinary user needs to mount.
void unshareAsUser(const std::string& dir) {
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        fail(dir, "unshare(CLONE_NEWUSER | CLONE_NEWNS)", errno);
    }
    writeProcFile(dir, "/proc/self/setgroups", "deny");
    writeProcFile(dir, "/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    writeProcFile(dir, "/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

// Root gets a mount namespace of its own; a root without the right to make
// one (in a restricted container) goes the ordinary user's way.
void unshareMounts(const std::string& dir) {
    if (geteuid() != 0) {
        unshareAsUser(dir);
        return;
    }
    if (unshare(CLONE_NEWNS) == 0) {
        return;
    }
    if (errno != EPERM) {
        fail(dir, "unshare(CLONE_NEWNS)", errno);
    }
    unshareAsUser(dir);
}

void bindDeviceOpt(const std::string& dir) {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        fail(dir, "making the mount tree private", errno);
    }
    const std::string source = dir + "/" + kFsDir + kOptRoot;
    if (mount(source.c_str(), kOptRoot, nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        fail(dir, "bind-mounting " + source + " over " + kOptRoot, errno);
    }
}

bool insideOpt(const std::string& dir) {
    const std::string opt = kOptRoot;
    return dir == opt || dir.rfind(opt + "/", 0) == 0;
}

}  // namespace

bool entered() { return readFile(kMarkerFile) == root(); }

void enter() {
    const std::string dir = root();
    if (entered()) {
        return;
    }
    checkSingleThreaded(dir);
    if (insideOpt(dir)) {
        throw std::runtime_error("cannot enter device " + dir + ": a device folder under " +
                                 kOptRoot + " would be hidden by its own mount");
    }
    unshareMounts(dir);
    bindDeviceOpt(dir);
    if (!entered()) {
        throw std::runtime_error("cannot enter device " + dir + ": " + kMarkerFile +
                                 " does not name the device after the mount");
    }
    LoggerD("entered device " << dir);
}

}  // namespace Device
}  // namespace Kv
