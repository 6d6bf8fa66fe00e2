// The daemon's Unix socket, where the device's apps (and the tools) open
// their sessions. The socket file is readable and writable by its owner only;
// a connecting process must run as the same user, and its app is found
// through the device's table of running apps.
//
// Limits against a misbehaving local process: at most kMaxSessionsPerUser
// sessions of one user at a time, and at most kMaxPartialFrameBytes held for
// frames that the sessions have only partly sent, all together. A session
// over a limit is closed and logged; the others go on.
#ifndef KV_ACCESSORYD_CLIENT_SERVER_H
#define KV_ACCESSORYD_CLIENT_SERVER_H

#include <asio.hpp>
#include <map>
#include <memory>
#include <string>

#include "Limits.h"
#include "Service.h"

namespace Kv {
namespace Accessory {

class ClientServer {
public:
    ClientServer(asio::io_context& io, Service& service, std::string path);
    // Removes the socket file this server made, so that a daemon that fails
    // after it started listening leaves no stale socket behind.
    ~ClientServer();
    ClientServer(const ClientServer&) = delete;
    ClientServer& operator=(const ClientServer&) = delete;

    // Binds and listens. Throws std::runtime_error when the path is too long,
    // another daemon already serves it, or the socket can't be made.
    void start();
    // Stops accepting and removes the socket file (only one this server made:
    // never that of another daemon it found serving the path).
    void stop();

private:
    void accept();
    void admit(asio::local::stream_protocol::socket socket);

    asio::io_context& m_io;
    Service& m_service;
    std::string m_path;
    asio::local::stream_protocol::acceptor m_acceptor;
    std::shared_ptr<ReadBudget> m_readBudget;
    std::map<uid_t, std::size_t> m_sessionsPerUser;
    bool m_madeSocketFile = false;
};

}  // namespace Accessory
}  // namespace Kv

#endif
