#include "PeerLink.h"

#include <Logger.h>

#include <stdexcept>

#include "Limits.h"

namespace Kv {
namespace Accessory {

namespace {

constexpr std::chrono::milliseconds kFirstBackoff(100);
constexpr std::chrono::milliseconds kLongestBackoff(2000);
constexpr std::size_t kLinkQueueBound = std::size_t{64} * 1024 * 1024;
constexpr int kLinkSendBuffer = 4 * 1024 * 1024;
// How long a new connection has for its TLS handshake and its hello.
constexpr std::chrono::seconds kHandshakeDeadline(3);
// How many new connections may be on their way at once; more are closed.
constexpr std::size_t kMaxCandidates = 16;

using TcpChannel = FramedChannel<asio::ip::tcp::socket>;
using TlsChannel = FramedChannel<TlsStream>;

}  // namespace

PeerLink::PeerLink(asio::io_context& io, Mode mode, asio::ip::tcp::endpoint endpoint,
                   std::string localName, std::shared_ptr<LinkTls> tls, const LinkProfile& profile,
                   Handlers handlers)
    : m_io(io),
      m_mode(mode),
      m_endpoint(std::move(endpoint)),
      m_localName(std::move(localName)),
      m_tls(std::move(tls)),
      m_profile(profile),
      m_handlers(std::move(handlers)),
      m_acceptor(io),
      m_retryTimer(io),
      m_backoff(kFirstBackoff),
      m_stallTimer(io),
      m_heartbeatTimer(io) {}

PeerLink::~PeerLink() = default;

void PeerLink::start() {
    LoggerI("link: profile " << m_profile.name);
    scheduleHeartbeat();
    if (!m_tls) {
        LoggerW(
            "link: insecure: plain TCP, the other end is not authenticated and anyone "
            "on this machine can pose as the paired device");
    }
    if (m_mode == Mode::Connect) {
        connect();
        return;
    }
    asio::error_code error;
    m_acceptor.open(m_endpoint.protocol(), error);
    if (!error) {
        m_acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true), error);
    }
    if (!error) {
        m_acceptor.bind(m_endpoint, error);
    }
    if (!error) {
        m_acceptor.listen(asio::socket_base::max_listen_connections, error);
    }
    if (error) {
        // The address asked for: an acceptor that failed has no port of its own.
        throw std::runtime_error("cannot listen for the other device on " +
                                 m_endpoint.address().to_string() + ":" +
                                 std::to_string(m_endpoint.port()) + ": " + error.message());
    }
    LoggerI("link: listening on " << describe());
    accept();
}

void PeerLink::stop() {
    m_stopped = true;
    asio::error_code ignored;
    m_acceptor.close(ignored);
    m_retryTimer.cancel();
    m_stallTimer.cancel();
    m_silentUntilStallEnds.reset();
    m_heartbeatTimer.cancel();
    if (m_connecting) {
        m_connecting->close(ignored);
    }
    while (!m_candidates.empty()) {
        dropCandidate(m_candidates.begin()->first, "the service stops");
    }
    if (auto session = m_session) {
        session->close("the service stops");
    }
}

void PeerLink::setEnabled(bool enabled) {
    if (enabled == m_enabled) {
        return;
    }
    m_enabled = enabled;
    LoggerI("link: " << (enabled ? "enabled" : "disabled"));
    if (!enabled) {
        while (!m_candidates.empty()) {
            dropCandidate(m_candidates.begin()->first, "the link was disabled");
        }
        if (auto session = m_session) {
            session->close("the link was disabled");
        }
        return;
    }
    m_backoff = kFirstBackoff;
    if (m_mode == Mode::Connect && !m_session && !m_connecting && m_candidates.empty()) {
        connect();
    }
}

void PeerLink::drop(const std::string& reason) {
    if (auto session = m_session) {
        LoggerI("link: dropped: " << reason);
        session->close(reason);
    }
}

void PeerLink::stall(std::chrono::milliseconds duration) {
    LoggerI("link: stalled for " << duration.count() << " ms");
    m_stallTimer.expires_after(duration);
    if (m_session) {
        m_session->stall(true);
    }
    m_stallTimer.async_wait([this](const asio::error_code& error) {
        if (!error) {
            endStall();
        }
    });
}

void PeerLink::endStall() {
    LoggerI("link: the stall is over");
    m_silentUntilStallEnds.reset();
    m_lastHeard = std::chrono::steady_clock::now();
    if (m_session) {
        m_session->stall(false);
    }
    scheduleReconnect();
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

void PeerLink::pauseReading() {
    m_readingPaused = true;
    if (m_session) {
        m_session->pauseReading();
    }
}

void PeerLink::resumeReading() {
    m_readingPaused = false;
    m_lastHeard = std::chrono::steady_clock::now();
    if (m_session) {
        m_session->resumeReading();
    }
}

void PeerLink::whenDrained(std::size_t bytes, std::function<void()> handler) {
    if (!m_session) {
        handler();
        return;
    }
    m_session->whenDrained(bytes, std::move(handler));
}

bool PeerLink::send(const wire::LinkMessage& message, int priority) {
    return sendTagged(message, priority, 0);
}

bool PeerLink::sendTagged(const wire::LinkMessage& message, int priority, std::uint64_t tag) {
    return m_up && m_session && m_session->sendMessage(message, priority, tag);
}

void PeerLink::accept() {
    m_acceptor.async_accept([this](const asio::error_code& error, asio::ip::tcp::socket socket) {
        if (m_stopped || error == asio::error::operation_aborted) {
            return;
        }
        if (!error) {
            admit(std::move(socket));
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
        admit(std::move(*socket));
    });
}

void PeerLink::scheduleReconnect() {
    if (m_stopped || !m_enabled || m_mode != Mode::Connect || m_session || m_connecting ||
        !m_candidates.empty() || stalled()) {
        return;
    }
    m_retryTimer.expires_after(m_backoff);
    m_backoff = std::min(m_backoff * 2, kLongestBackoff);
    m_retryTimer.async_wait([this](const asio::error_code& error) {
        if (!error && !m_session && !m_connecting && m_candidates.empty()) {
            connect();
        }
    });
}

// A new connection becomes a candidate, with a deadline for its handshake.
void PeerLink::admit(asio::ip::tcp::socket socket) {
    if (!m_enabled || stalled() || m_candidates.size() >= kMaxCandidates) {
        LoggerI("link: refused a connection: " << (!m_enabled  ? "the link is disabled"
                                                   : stalled() ? "the link is stalled"
                                                               : "too many handshakes under way"));
        scheduleReconnect();
        return;
    }
    asio::error_code ignored;
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    // Room for a few of the largest frames, so that a frame rarely goes out
    // in parts, each waiting for the last (the system caps it at its
    // net.core.wmem_max).
    socket.set_option(asio::socket_base::send_buffer_size(kLinkSendBuffer), ignored);
    const std::uint64_t id = m_nextCandidate++;
    Candidate& candidate = m_candidates[id];
    candidate.deadline = std::make_shared<asio::steady_timer>(m_io, kHandshakeDeadline);
    candidate.deadline->async_wait([this, id](const asio::error_code& error) {
        if (!error) {
            dropCandidate(id, "no handshake within the deadline");
        }
    });
    if (!m_tls) {
        startSession(id, std::make_shared<TcpChannel>(std::move(socket), "link", kLinkQueueBound),
                     "");
        return;
    }
    startHandshake(id, std::move(socket));
}

void PeerLink::startHandshake(std::uint64_t id, asio::ip::tcp::socket socket) {
    auto presented = std::make_shared<std::string>();
    std::shared_ptr<TlsStream> stream = m_tls->wrap(std::move(socket), presented);
    std::weak_ptr<TlsStream> watched = stream;
    // Until the handshake is over, closing the socket is how a candidate is
    // dropped; the handshake's completion then sees the candidate gone.
    auto abort = [watched] {
        if (auto open = watched.lock()) {
            asio::error_code ignored;
            open->close(ignored);
        }
    };
    m_candidates[id].abortHandshake = abort;
    stream->async_handshake(m_mode == Mode::Listen,
                            [this, id, stream, presented](const asio::error_code& error) {
                                onHandshake(id, error, *stream, *presented);
                            });
}

void PeerLink::onHandshake(std::uint64_t id, const asio::error_code& error, TlsStream& stream,
                           const std::string& presented) {
    if (m_candidates.count(id) == 0) {
        return;  // dropped meanwhile
    }
    if (error) {
        LoggerW("link: refused a device at the handshake ("
                << error.message() << "); it presented "
                << (presented.empty() ? std::string("no certificate")
                                      : "the certificate " + presented));
        dropCandidate(id, "handshake failed");
        return;
    }
    m_candidates[id].abortHandshake = nullptr;
    startSession(id, std::make_shared<TlsChannel>(std::move(stream), "link", kLinkQueueBound),
                 presented);
}

// The candidate's session says hello and waits for the other end's.
void PeerLink::startSession(std::uint64_t id, const std::shared_ptr<FrameSession>& session,
                            std::string fingerprint) {
    Candidate& candidate = m_candidates[id];
    candidate.session = session;
    candidate.fingerprint = std::move(fingerprint);
    session->start(
        [this, id](std::string_view payload) {
            if (id == m_linkId) {
                onLinkPayload(payload);
            } else if (m_candidates.count(id) != 0) {
                onCandidatePayload(id, payload);
            }
        },
        [this, id](const std::string& reason) {
            if (id == m_linkId) {
                onLinkClosed();
            } else {
                dropCandidate(id, reason);
            }
        });
    wire::LinkMessage hello;
    hello.mutable_hello()->set_version(kProtocolVersion);
    hello.mutable_hello()->set_device_name(m_localName);
    hello.mutable_hello()->set_link_profile(m_profile.name);
    session->sendMessage(hello, kPriorityControl);
}

void PeerLink::onCandidatePayload(std::uint64_t id, std::string_view payload) {
    const wire::LinkMessage message = decodeLinkMessage(payload);
    if (!message.has_hello()) {
        throw ProtocolError("the first link message is not a hello");
    }
    if (message.hello().version() != kProtocolVersion) {
        throw ProtocolError("the other daemon speaks version " +
                            std::to_string(message.hello().version()));
    }
    promote(id, message.hello());
}

// The first candidate through its handshake becomes the link.
void PeerLink::promote(std::uint64_t id, const wire::LinkHello& hello) {
    if (m_session || !m_enabled) {
        LoggerI("link: refused a second link from " << hello.device_name());
        dropCandidate(id, "a link is up already");
        return;
    }
    Candidate candidate = std::move(m_candidates[id]);
    m_candidates.erase(id);
    candidate.deadline->cancel();
    m_linkId = id;
    m_session = candidate.session;
    if (m_readingPaused) {
        m_session->pauseReading();
    }
    m_session->shape(m_profile);
    m_session->onWritten([this](std::uint64_t tag) { m_handlers.written(tag); });
    m_lastHeard = std::chrono::steady_clock::now();
    if (hello.link_profile() != m_profile.name) {
        LoggerW("link: " << hello.device_name() << " shapes its side as " << hello.link_profile()
                         << ", this side as " << m_profile.name);
    }
    m_peerFingerprint = candidate.fingerprint;
    m_peerName = hello.device_name();
    m_up = true;
    m_backoff = kFirstBackoff;
    if (m_tls) {
        LoggerI("link: up with " << m_peerName << " over TLS 1.3, certificate "
                                 << m_peerFingerprint);
    } else {
        LoggerW("link: up with " << m_peerName << " over plain TCP (insecure)");
    }
    m_handlers.up(m_peerName);
}

void PeerLink::dropCandidate(std::uint64_t id, const std::string& reason) {
    auto found = m_candidates.find(id);
    if (found == m_candidates.end()) {
        return;
    }
    Candidate candidate = std::move(found->second);
    m_candidates.erase(found);
    candidate.deadline->cancel();
    if (candidate.abortHandshake) {
        LoggerI("link: a connection left: " << reason);
        candidate.abortHandshake();
    }
    if (candidate.session) {
        candidate.session->close(reason);
    }
    scheduleReconnect();
}

void PeerLink::onLinkPayload(std::string_view payload) {
    m_lastHeard = std::chrono::steady_clock::now();
    wire::LinkMessage message = decodeLinkMessage(payload);
    if (message.has_hello()) {
        throw ProtocolError("a second hello on the link");
    }
    if (!message.has_ping()) {
        m_handlers.message(message);
    }
}

void PeerLink::onLinkClosed() {
    // The session stays alive until its pending handlers have run; only this
    // link's reference goes.
    m_up = false;
    m_linkId = 0;
    if (stalled()) {
        m_silentUntilStallEnds = m_session;  // its socket closes when the stall ends
    }
    m_session.reset();
    m_peerFingerprint.clear();
    LoggerI("link: down");
    m_handlers.down();
    scheduleReconnect();
}

void PeerLink::scheduleHeartbeat() {
    m_heartbeatTimer.expires_after(kLinkPingInterval);
    m_heartbeatTimer.async_wait([this](const asio::error_code& error) {
        if (!error && !m_stopped) {
            heartbeat();
            scheduleHeartbeat();
        }
    });
}

// Pings the other end, and gives the link up when the other end has not
// been heard for too long. While this end does not read (its apps are behind
// with their events) silence means nothing.
void PeerLink::heartbeat() {
    if (!m_session) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (!m_readingPaused && now - m_lastHeard > kLinkSilenceLimit) {
        LoggerW("link: nothing heard from "
                << m_peerName << " for "
                << std::chrono::duration_cast<std::chrono::milliseconds>(now - m_lastHeard).count()
                << " ms: the link is given up");
        m_handlers.silent();
        drop("the other device went silent");
        return;
    }
    wire::LinkMessage ping;
    ping.mutable_ping();
    m_session->sendMessage(ping, kPriorityControl);
}

}  // namespace Accessory
}  // namespace Kv
