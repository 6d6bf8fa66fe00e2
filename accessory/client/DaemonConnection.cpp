#include "DaemonConnection.h"

#include <errno.h>
#include <fcntl.h>
#include <kv-accessory/SocketAddress.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

std::runtime_error failure(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

int millisecondsUntil(DaemonConnection::Deadline deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

DaemonConnection::DaemonConnection(const std::string& path) {
    const sockaddr_un address = socketAddress(path);
    m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0) {
        throw failure("socket");
    }
    int result;
    do {
        result = ::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result != 0 && errno == EINTR);
    if (result != 0 || ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK) != 0) {
        const std::runtime_error error = failure("cannot reach the service at " + path);
        ::close(m_fd);
        throw error;
    }
}

DaemonConnection::~DaemonConnection() { ::close(m_fd); }

void DaemonConnection::write(const std::string& frame, Deadline deadline) {
    std::size_t written = 0;
    while (written < frame.size()) {
        const ssize_t count =
            ::send(m_fd, frame.data() + written, frame.size() - written, MSG_NOSIGNAL);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            throw failure("cannot write to the service");
        }
        // While the socket is full, the daemon may be waiting for us to read.
        pollfd entry{m_fd, POLLIN | POLLOUT, 0};
        if (::poll(&entry, 1, millisecondsUntil(deadline)) == 0) {
            throw std::runtime_error("the service does not take the request in time");
        }
        if ((entry.revents & POLLIN) != 0) {
            readAvailable();
        }
    }
}

bool DaemonConnection::waitReadable(Deadline deadline) const {
    pollfd entry{m_fd, POLLIN, 0};
    int result;
    do {
        result = ::poll(&entry, 1, millisecondsUntil(deadline));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

void DaemonConnection::readAvailable(std::size_t enough) {
    constexpr std::size_t kReadChunk = std::size_t{64} * 1024;
    for (std::size_t taken = 0; taken < enough;) {
        // Straight into the decoder's buffer, the whole rest of a large frame
        // at once when the socket has it.
        const std::size_t room = std::max(kReadChunk, m_decoder.missing());
        const ssize_t count = ::recv(m_fd, m_decoder.prepare(room), room, 0);
        if (count > 0) {
            m_decoder.commit(static_cast<std::size_t>(count));
            taken += static_cast<std::size_t>(count);
            continue;
        }
        if (count == 0) {
            throw std::runtime_error("the service closed the session");
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return;
        }
        throw failure("cannot read from the service");
    }
}

std::optional<wire::ServiceMessage> DaemonConnection::next() {
    std::optional<std::string_view> payload = m_decoder.next();
    if (!payload) {
        return std::nullopt;
    }
    return decodeServiceMessage(*payload);
}

}  // namespace Accessory
}  // namespace Kv
