#include "InspectorServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace Kv {
namespace Page {

namespace {

// A loopback port that nothing listens on now.
int freeLoopbackPort() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool ok = fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!ok) {
        throw std::runtime_error(std::string("no loopback port for the inspector: ") +
                                 std::strerror(error));
    }
    return ntohs(address.sin_port);
}

}  // namespace

std::string startInspectorServer() {
    const std::string endpoint = "127.0.0.1:" + std::to_string(freeLoopbackPort());
    setenv("WEBKIT_INSPECTOR_HTTP_SERVER", endpoint.c_str(), 1);
    return "http://" + endpoint + "/";
}

}  // namespace Page
}  // namespace Kv
