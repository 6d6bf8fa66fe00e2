#include "KeyLog.h"

#include <Logger.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

// The slot of a TLS context that holds its key log.
int keyLogSlot() {
    static const int slot = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return slot;
}

// OpenSSL's key-log callback: hands the line to the context's key log.
void writeSecret(const SSL* session, const char* line) {
    auto* keyLog =
        static_cast<KeyLog*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(session), keyLogSlot()));
    if (keyLog != nullptr) {
        keyLog->write(line);
    }
}

// A file that others than its owner may read is named in the log: the
// secrets in it are everybody's.
void warnWhenReadableByOthers(int fd, const std::string& path) {
    struct stat status {};
    if (::fstat(fd, &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        LoggerW("link: the key log " << path << " is open to other users (mode 0" << std::oct
                                     << (status.st_mode & 07777) << std::dec << ")");
    }
}

}  // namespace

KeyLog::KeyLog(std::string path) : m_path(std::move(path)) {
    m_fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600);
    if (m_fd < 0) {
        throw std::runtime_error("cannot open the key log " + m_path + ": " + std::strerror(errno));
    }
    warnWhenReadableByOthers(m_fd, m_path);
}

KeyLog::~KeyLog() { ::close(m_fd); }

void KeyLog::attachTo(SSL_CTX* context) {
    SSL_CTX_set_ex_data(context, keyLogSlot(), this);
    SSL_CTX_set_keylog_callback(context, writeSecret);
}

void KeyLog::write(const char* line) {
    // One write per line: lines of the two daemons of a pair that share the
    // file never interleave.
    const std::string text = std::string(line) + "\n";
    const ssize_t written = ::write(m_fd, text.data(), text.size());
    if (written != static_cast<ssize_t>(text.size()) && !m_failed) {
        m_failed = true;
        LoggerE("link: cannot write the key log "
                << m_path << ": " << (written < 0 ? std::strerror(errno) : "short write"));
    }
}

}  // namespace Accessory
}  // namespace Kv
