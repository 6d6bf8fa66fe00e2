#include "RecordingProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace KvTest {

namespace {

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

RecordingProxy::RecordingProxy(unsigned short upstream) : m_upstream(upstream) {
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (m_listener < 0 || ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(m_listener, 4) != 0 ||
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::pipe(m_wake) != 0) {
        throw std::runtime_error("the recording proxy can't listen");
    }
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { run(); });
}

RecordingProxy::~RecordingProxy() {
    m_stopping = true;
    [[maybe_unused]] const ssize_t ignored = ::write(m_wake[1], "x", 1);
    m_thread.join();
    for (int fd : {m_listener, m_wake[0], m_wake[1]}) {
        ::close(fd);
    }
}

std::string RecordingProxy::recorded() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_recorded;
}

void RecordingProxy::run() {
    while (!m_stopping) {
        pollfd ready[2] = {{m_listener, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
        if (::poll(ready, 2, -1) <= 0 || (ready[1].revents & POLLIN) != 0) {
            continue;
        }
        const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            relay(client);
            ::close(client);
        }
    }
}

// Passes bytes between `client` and a new connection upstream until either
// side closes or the proxy stops.
void RecordingProxy::relay(int client) {
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(m_upstream);
    if (server < 0 || ::connect(server, reinterpret_cast<sockaddr*>(&address), sizeof address)) {
        ::close(server);
        return;
    }
    char buffer[64 * 1024];
    while (!m_stopping) {
        pollfd ready[3] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
        if (::poll(ready, 3, -1) <= 0 || ready[2].revents != 0) {
            break;
        }
        const int from = ready[0].revents != 0 ? client : server;
        const int to = from == client ? server : client;
        const ssize_t count = ::read(from, buffer, sizeof buffer);
        if (count <= 0) {
            break;
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_recorded.append(buffer, static_cast<std::size_t>(count));
        }
        if (::send(to, buffer, static_cast<std::size_t>(count), MSG_NOSIGNAL) != count) {
            break;
        }
    }
    ::close(server);
}

}  // namespace KvTest
