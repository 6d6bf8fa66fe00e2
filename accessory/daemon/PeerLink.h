// The link with the daemon of the paired device, over TCP. One side listens,
// the other connects and, whenever the link is lost or can't be made, tries
// again with a growing pause.
//
// A new connection is a candidate until it has passed its handshake: TLS 1.3
// with the pinned certificates (LinkTls), then a LinkHello from the other
// end. Every step has to be done within a short deadline, and several
// candidates may be on their way at once, so a silent or slow connection
// holds nothing up; the first candidate that passes becomes the link, and
// later ones are turned away while it is up. A daemon started insecure
// skips TLS (plain TCP, nobody authenticated) and says so.
//
// The link is shaped by the pair's link profile (LinkShaper). Both ends send
// a ping whenever a second has passed, so a link on which nothing has been
// heard for kLinkSilenceLimit is given up as a real link would be. Faults can
// be made on demand: a drop (the link goes down and is made again), a stall
// (nothing goes either way for a while) and a detach (setEnabled).
#ifndef KV_ACCESSORYD_PEER_LINK_H
#define KV_ACCESSORYD_PEER_LINK_H

#include <asio.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <kv-accessory/LinkProfiles.h>

#include "FramedChannel.h"
#include "LinkTls.h"

namespace Kv {
namespace Accessory {

class PeerLink {
public:
    enum class Mode { Listen, Connect };

    struct Handlers {
        std::function<void(const std::string& peerDeviceName)> up;
        std::function<void()> down;
        std::function<void(wire::LinkMessage&)> message;
        // A tagged message (send) was written to the link.
        std::function<void(std::uint64_t tag)> written;
        // Nothing was heard for too long: the link is about to go down.
        std::function<void()> silent;
    };

    // `tls` is null for an insecure link.
    PeerLink(asio::io_context& io, Mode mode, asio::ip::tcp::endpoint endpoint,
             std::string localName, std::shared_ptr<LinkTls> tls, const LinkProfile& profile,
             Handlers handlers);
    ~PeerLink();

    // Listens (throws std::system_error when the address can't be bound) or
    // starts connecting.
    void start();
    // Closes the link and every candidate, and stops listening or connecting.
    void stop();
    // Drops the link and refuses it (false), or allows it again (true).
    void setEnabled(bool enabled);
    // Drops the link; it is made again as after any loss.
    void drop(const std::string& reason);
    // Nothing goes either way, and no new link is made, for `duration`.
    void stall(std::chrono::milliseconds duration);
    bool stalled() const { return m_stallTimer.expiry() > std::chrono::steady_clock::now(); }

    const LinkProfile& profile() const { return m_profile; }
    bool isUp() const { return m_up; }
    // Whether the link is encrypted and the other end proved it holds the
    // pinned certificate (always false for an insecure link).
    bool secure() const { return m_up && m_tls != nullptr; }
    // Whether links are made over TLS (false when started insecure).
    bool usesTls() const { return m_tls != nullptr; }
    // The file the link's TLS secrets are written to (--keylog); empty when
    // they are not.
    std::string keyLogPath() const { return m_tls ? m_tls->keyLogPath() : std::string(); }
    // The fingerprint of the certificate the other end presented on this
    // link; empty for an insecure link.
    const std::string& peerFingerprint() const { return m_peerFingerprint; }
    // Bytes queued for the other daemon and not yet written.
    std::size_t queuedBytes() const { return m_session ? m_session->queuedBytes() : 0; }
    bool enabled() const { return m_enabled; }
    // The listening port (the one chosen by the system when 0 was asked).
    unsigned short localPort() const;
    const std::string& peerName() const { return m_peerName; }
    std::string describe() const;

    // Stops reading what the other daemon sends (it then waits), or reads it
    // again.
    void pauseReading();
    void resumeReading();

    // Calls `handler` once, when at most `bytes` are queued for the other
    // daemon (at once when the link is down or that is so already).
    void whenDrained(std::size_t bytes, std::function<void()> handler);

    // Queues a message for the other daemon; false when the link is down or
    // its queue is full.
    bool send(const wire::LinkMessage& message, int priority = kPriorityControl);
    // The same, and the written handler hears `tag` once it is written.
    bool sendTagged(const wire::LinkMessage& message, int priority, std::uint64_t tag);

private:
    // A connection on its way to becoming the link.
    struct Candidate {
        std::shared_ptr<FrameSession> session;         // once its handshake is over
        std::function<void()> abortHandshake;          // while its TLS handshake runs
        std::shared_ptr<asio::steady_timer> deadline;  // for the handshake and the hello
        std::string fingerprint;                       // of the certificate it presented
    };

    void accept();
    void connect();
    void scheduleReconnect();
    void admit(asio::ip::tcp::socket socket);
    void startHandshake(std::uint64_t id, asio::ip::tcp::socket socket);
    void onHandshake(std::uint64_t id, const asio::error_code& error, TlsStream& stream,
                     const std::string& presented);
    void startSession(std::uint64_t id, const std::shared_ptr<FrameSession>& session,
                      std::string fingerprint);
    void onCandidatePayload(std::uint64_t id, std::string_view payload);
    void promote(std::uint64_t id, const wire::LinkHello& hello);
    void dropCandidate(std::uint64_t id, const std::string& reason);
    void onLinkPayload(std::string_view payload);
    void onLinkClosed();
    void scheduleHeartbeat();
    void heartbeat();
    void endStall();

    asio::io_context& m_io;
    Mode m_mode;
    asio::ip::tcp::endpoint m_endpoint;
    std::string m_localName;
    std::shared_ptr<LinkTls> m_tls;
    const LinkProfile& m_profile;
    Handlers m_handlers;
    asio::ip::tcp::acceptor m_acceptor;
    asio::steady_timer m_retryTimer;
    std::chrono::milliseconds m_backoff;
    std::map<std::uint64_t, Candidate> m_candidates;
    std::uint64_t m_nextCandidate = 1;
    std::shared_ptr<FrameSession> m_session;  // the link, once a candidate passed
    // A link that ended during a stall: kept, with its socket open and
    // silent, until the stall ends.
    std::shared_ptr<FrameSession> m_silentUntilStallEnds;
    std::uint64_t m_linkId = 0;  // the candidate that became the link
    std::shared_ptr<asio::ip::tcp::socket> m_connecting;
    std::string m_peerName;
    std::string m_peerFingerprint;
    bool m_up = false;
    bool m_enabled = true;
    bool m_stopped = false;
    bool m_readingPaused = false;
    asio::steady_timer m_stallTimer;
    asio::steady_timer m_heartbeatTimer;
    std::chrono::steady_clock::time_point m_lastHeard;
};

}  // namespace Accessory
}  // namespace Kv

#endif
