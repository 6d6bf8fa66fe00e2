#include <kv-accessory/SocketAddress.h>
#include <sys/socket.h>

#include <cstring>
#include <stdexcept>

namespace Kv {
namespace Accessory {

sockaddr_un socketAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error("socket path too long: " + path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

}  // namespace Accessory
}  // namespace Kv
