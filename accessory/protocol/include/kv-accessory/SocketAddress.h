// The address of a service's Unix socket, for the client library that
// connects to it and the service that listens on it alike.
#ifndef KV_ACCESSORY_SOCKET_ADDRESS_H
#define KV_ACCESSORY_SOCKET_ADDRESS_H

#include <sys/un.h>

#include <string>

namespace Kv {
namespace Accessory {

// `path` as a socket address; throws std::runtime_error("socket path too
// long: PATH") when it does not fit one.
sockaddr_un socketAddress(const std::string& path);

}  // namespace Accessory
}  // namespace Kv

#endif
