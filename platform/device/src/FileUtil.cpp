#include <kv-device/FileUtil.h>

#include <fcntl.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Kv {
namespace Device {

namespace {

// A name in the folder of `path` that no other writer uses: the process id
// and a counter of this process. It starts with a dot, which readers of
// folders (vconf's watcher) take as "not a finished file".
std::string temporaryName(const std::string& path) {
    static std::atomic<unsigned> counter{0};
    const std::string::size_type slash = path.rfind('/');
    const std::string folder =
        slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    return folder + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
}

void writeAll(int fd, const std::string& content) {
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t written = write(fd, content.data() + done, content.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            throw std::runtime_error(errorText(errno));
        }
        done += static_cast<size_t>(written);
    }
}

}  // namespace

std::string errorText(int error) { return std::strerror(error); }

void writeFileAtomically(const std::string& path, const std::string& content) {
    const std::string temporary = temporaryName(path);
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        throw std::runtime_error("cannot write " + path + ": " + errorText(errno));
    }
    try {
        writeAll(fd, content);
    } catch (const std::runtime_error& error) {
        close(fd);
        unlink(temporary.c_str());
        throw std::runtime_error("cannot write " + path + ": " + error.what());
    }
    close(fd);
    if (rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(temporary.c_str());
        throw std::runtime_error("cannot write " + path + ": " + errorText(error));
    }
}

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream content;
    content << file.rdbuf();
    if (file.bad()) {
        return std::nullopt;
    }
    return content.str();
}

}  // namespace Device
}  // namespace Kv
