#include "ClientServer.h"

#include <Logger.h>
#include <kv-accessory/SocketAddress.h>
#include <kv-device/AppRegistry.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

constexpr std::size_t kSessionQueueBound = std::size_t{64} * 1024 * 1024;

// Whether a daemon already answers on `path`.
bool served(asio::io_context& io, const std::string& path) {
    asio::local::stream_protocol::socket probe(io);
    asio::error_code error;
    probe.connect(asio::local::stream_protocol::endpoint(path), error);
    return !error;
}

}  // namespace

ClientServer::ClientServer(asio::io_context& io, Service& service, std::string path)
    : m_io(io),
      m_service(service),
      m_path(std::move(path)),
      m_acceptor(io),
      m_readBudget(std::make_shared<ReadBudget>(kMaxPartialFrameBytes)) {}

ClientServer::~ClientServer() { stop(); }

void ClientServer::start() {
    socketAddress(m_path);  // throws when the path can't be a socket's
    if (served(m_io, m_path)) {
        throw std::runtime_error("another service already listens on " + m_path);
    }
    ::unlink(m_path.c_str());
    const mode_t previous = ::umask(0177);
    asio::error_code error;
    m_acceptor.open(asio::local::stream_protocol(), error);
    if (!error) {
        m_acceptor.bind(asio::local::stream_protocol::endpoint(m_path), error);
        m_madeSocketFile = !error;
    }
    ::umask(previous);
    if (!error) {
        m_acceptor.listen(asio::socket_base::max_listen_connections, error);
    }
    if (!error && ::chmod(m_path.c_str(), 0600) != 0) {
        error = asio::error_code(errno, asio::system_category());
    }
    if (error) {
        stop();
        throw std::runtime_error("cannot listen on " + m_path + ": " + error.message());
    }
    LoggerI("listening for apps on " << m_path);
    accept();
}

void ClientServer::stop() {
    asio::error_code ignored;
    m_acceptor.close(ignored);
    if (m_madeSocketFile) {
        ::unlink(m_path.c_str());
        m_madeSocketFile = false;
    }
}

void ClientServer::accept() {
    m_acceptor.async_accept(
        [this](const asio::error_code& error, asio::local::stream_protocol::socket socket) {
            if (error == asio::error::operation_aborted || !m_acceptor.is_open()) {
                return;
            }
            if (!error) {
                admit(std::move(socket));
            }
            accept();
        });
}

void ClientServer::admit(asio::local::stream_protocol::socket socket) {
    ucred credentials{};
    socklen_t length = sizeof(credentials);
    if (::getsockopt(socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
        credentials.uid != ::getuid()) {
        LoggerW("refused a process of another user");
        return;
    }
    std::size_t& sessions = m_sessionsPerUser[credentials.uid];
    if (sessions >= kMaxSessionsPerUser) {
        LoggerW("refused process " << credentials.pid << ": its user has " << sessions
                                   << " sessions already");
        return;
    }
    ++sessions;
    const std::string appId = Device::runningAppId(credentials.pid).value_or("");
    const std::string name =
        "app session of process " + std::to_string(credentials.pid) + " (" + appId + ")";
    auto channel =
        std::make_shared<ClientChannel>(std::move(socket), name, kSessionQueueBound, m_readBudget);
    const SessionId id = m_service.addSession(channel, appId);
    LoggerI(name << " opened");
    Service& service = m_service;
    channel->start(
        [&service, id](std::string_view payload) {
            wire::ClientMessage message = decodeClientMessage(payload);
            service.handleRequest(id, *message.mutable_request());
        },
        [this, id, uid = credentials.uid](const std::string&) {
            --m_sessionsPerUser[uid];
            m_service.removeSession(id);
        });
}

}  // namespace Accessory
}  // namespace Kv
