#include "PeerLink.h"

#include <Logger.h>

namespace Kv {
namespace Accessory {

namespace {

constexpr std::chrono::milliseconds kFirstBackoff(100);
constexpr std::chrono::milliseconds kLongestBackoff(2000);
constexpr std::size_t kLinkQueueBound = 64u * 1024u * 1024u;

}  // namespace

PeerLink::PeerLink(asio::io_context& io, Mode mode, asio::ip::tcp::endpoint endpoint,
                   std::string localName, Handlers handlers)
    : m_io(io),
      m_mode(mode),
      m_endpoint(endpoint),
      m_localName(std::move(localName)),
      m_handlers(std::move(handlers)),
      m_acceptor(io),
      m_retryTimer(io),
      m_backoff(kFirstBackoff) {}

void PeerLink::start() {
    if (m_mode == Mode::Connect) {
        connect();
        return;
    }
    m_acceptor.open(m_endpoint.protocol());
    m_acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true));
    m_acceptor.bind(m_endpoint);
    m_acceptor.listen();
    LoggerI("link: listening on " << describe());
    accept();
}

void PeerLink::stop() {
    m_stopped = true;
    asio::error_code ignored;
    m_acceptor.close(ignored);
    m_retryTimer.cancel();
    if (m_connecting) {
        m_connecting->close(ignored);
    }
    if (auto channel = m_channel) {
        channel->close("the service stops");
    }
}

void PeerLink::setEnabled(bool enabled) {
    if (enabled == m_enabled) {
        return;
    }
    m_enabled = enabled;
    LoggerI("link: " << (enabled ? "enabled" : "disabled"));
    if (!enabled) {
        if (auto channel = m_channel) {
            channel->close("the link was disabled");
        }
        return;
    }
    m_backoff = kFirstBackoff;
    if (m_mode == Mode::Connect && !m_channel && !m_connecting) {
        connect();
    }
}

unsigned short PeerLink::localPort() const {
    asio::error_code error;
    const auto endpoint = m_acceptor.local_endpoint(error);
    return error ? m_endpoint.port() : endpoint.port();
}

std::string PeerLink::describe() const {
    return m_endpoint.address().to_string() + ":" +
           std::to_string(m_mode == Mode::Listen ? localPort() : m_endpoint.port());
}

bool PeerLink::send(const wire::LinkMessage& message, int priority) {
    return m_up && m_channel && m_channel->sendMessage(message, priority);
}

void PeerLink::accept() {
    m_acceptor.async_accept([this](const asio::error_code& error, asio::ip::tcp::socket socket) {
        if (m_stopped || error == asio::error::operation_aborted) {
            return;
        }
        if (!error) {
            if (m_channel || !m_enabled) {
                LoggerI("link: refused a link while " << (m_channel ? "linked" : "disabled"));
            } else {
                open(std::move(socket));
            }
        }
        accept();
    });
}

void PeerLink::connect() {
    m_connecting = std::make_shared<asio::ip::tcp::socket>(m_io);
    auto socket = m_connecting;
    socket->async_connect(m_endpoint, [this, socket](const asio::error_code& error) {
        if (m_stopped || socket != m_connecting) {
            return;
        }
        m_connecting.reset();
        if (error || !m_enabled) {
            scheduleReconnect();
            return;
        }
        open(std::move(*socket));
    });
}

void PeerLink::scheduleReconnect() {
    if (m_stopped || !m_enabled || m_mode != Mode::Connect) {
        return;
    }
    m_retryTimer.expires_after(m_backoff);
    m_backoff = std::min(m_backoff * 2, kLongestBackoff);
    m_retryTimer.async_wait([this](const asio::error_code& error) {
        if (!error && !m_channel && !m_connecting) {
            connect();
        }
    });
}

void PeerLink::open(asio::ip::tcp::socket socket) {
    asio::error_code ignored;
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    m_channel = std::make_shared<Channel>(std::move(socket), "link", kLinkQueueBound);
    m_channel->start([this](const std::string& payload) { onPayload(payload); },
                     [this](const std::string&) { onClosed(); });
    wire::LinkMessage hello;
    hello.mutable_hello()->set_version(kProtocolVersion);
    hello.mutable_hello()->set_device_name(m_localName);
    m_channel->sendMessage(hello);
}

void PeerLink::onPayload(const std::string& payload) {
    const wire::LinkMessage message = decodeLinkMessage(payload);
    if (!m_up) {
        if (!message.has_hello()) {
            throw ProtocolError("the first link message is not a hello");
        }
        onHello(message.hello());
        return;
    }
    if (message.has_hello()) {
        throw ProtocolError("a second hello on the link");
    }
    m_handlers.message(message);
}

void PeerLink::onHello(const wire::LinkHello& hello) {
    if (hello.version() != kProtocolVersion) {
        throw ProtocolError("the other daemon speaks version " + std::to_string(hello.version()));
    }
    m_up = true;
    m_backoff = kFirstBackoff;
    m_peerName = hello.device_name();
    LoggerI("link: up with " << m_peerName);
    m_handlers.up(m_peerName);
}

void PeerLink::onClosed() {
    // The channel stays alive until its pending handlers have run; only this
    // link's reference goes.
    const bool wasUp = m_up;
    m_up = false;
    m_channel.reset();
    if (wasUp) {
        LoggerI("link: down");
        m_handlers.down();
    }
    scheduleReconnect();
}

}  // namespace Accessory
}  // namespace Kv
