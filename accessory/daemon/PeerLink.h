// The link with the daemon of the paired device, over TCP. One side listens,
// the other connects and, whenever the link is lost or can't be made, tries
// again with a growing pause. Both ends open with a LinkHello; the link is up
// from the moment the other end's hello has been accepted.
#ifndef KV_ACCESSORYD_PEER_LINK_H
#define KV_ACCESSORYD_PEER_LINK_H

#include <asio.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "FramedChannel.h"

namespace Kv {
namespace Accessory {

class PeerLink {
public:
    enum class Mode { Listen, Connect };

    struct Handlers {
        std::function<void(const std::string& peerDeviceName)> up;
        std::function<void()> down;
        std::function<void(const wire::LinkMessage&)> message;
    };

    PeerLink(asio::io_context& io, Mode mode, asio::ip::tcp::endpoint endpoint,
             std::string localName, Handlers handlers);

    // Listens (throws std::system_error when the address can't be bound) or
    // starts connecting.
    void start();
    // Closes the link and stops listening or connecting.
    void stop();
    // Drops the link and refuses it (false), or allows it again (true).
    void setEnabled(bool enabled);

    bool isUp() const { return m_up; }
    // Bytes queued for the other daemon and not yet written.
    std::size_t queuedBytes() const { return m_channel ? m_channel->queuedBytes() : 0; }
    bool enabled() const { return m_enabled; }
    // The listening port (the one chosen by the system when 0 was asked).
    unsigned short localPort() const;
    const std::string& peerName() const { return m_peerName; }
    std::string describe() const;

    // Queues a message for the other daemon; false when the link is down or
    // its queue is full.
    bool send(const wire::LinkMessage& message, int priority = kPriorityControl);

private:
    using Channel = FramedChannel<asio::ip::tcp::socket>;

    void accept();
    void connect();
    void scheduleReconnect();
    void open(asio::ip::tcp::socket socket);
    void onPayload(const std::string& payload);
    void onHello(const wire::LinkHello& hello);
    void onClosed();

    asio::io_context& m_io;
    Mode m_mode;
    asio::ip::tcp::endpoint m_endpoint;
    std::string m_localName;
    Handlers m_handlers;
    asio::ip::tcp::acceptor m_acceptor;
    asio::steady_timer m_retryTimer;
    std::chrono::milliseconds m_backoff;
    std::shared_ptr<Channel> m_channel;
    std::shared_ptr<asio::ip::tcp::socket> m_connecting;
    std::string m_peerName;
    bool m_up = false;
    bool m_enabled = true;
    bool m_stopped = false;
};

}  // namespace Accessory
}  // namespace Kv

#endif
