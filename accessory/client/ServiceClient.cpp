#include "ServiceClient.h"

#include <Logger.h>
#include <kv-device/Device.h>

#include <algorithm>

namespace Kv {
namespace Accessory {

namespace {

constexpr std::chrono::seconds kReplyTimeout(5);
// How long a send that needs no answer may wait for the service to take it
// (the service stops reading while the link is full).
constexpr std::chrono::seconds kPostTimeout(120);
constexpr std::size_t kReadPerTurn = std::size_t{4} * 1024 * 1024;
// What a send takes in before it decides whether it must wait for the
// service's verdict (the rest waits for the main loop).
constexpr std::size_t kReadPerSend = std::size_t{64} * 1024;
// What a burst of sends posts between two looks at the service's news. A
// channel that fills up is refused within this much more than its queue
// holds; a burst of small messages pays for a look (a system call even when
// nothing has come) once per this many bytes rather than once a message.
constexpr std::size_t kPostedBetweenLooks = std::size_t{16} * 1024;
constexpr double kFirstBackoff = 0.1;
constexpr double kLongestBackoff = 2.0;

}  // namespace

ServiceClient& ServiceClient::instance() {
    // Never destroyed: ecore may be gone by the time static objects are.
    static ServiceClient* client = new ServiceClient();
    return *client;
}

ServiceClient::ServiceClient() : m_backoff(kFirstBackoff) { ecore_init(); }

bool ServiceClient::attached() {
    ensureConnected();
    return m_connection && m_attached;
}

bool ServiceClient::ensureConnected() {
    if (m_connection) {
        return true;
    }
    try {
        connect(false);
    } catch (const std::exception& error) {
        LoggerW(error.what());
        m_connection.reset();
        scheduleReconnect();
        return false;
    }
    if (m_reconnectTimer != nullptr) {
        ecore_timer_del(m_reconnectTimer);
        m_reconnectTimer = nullptr;
    }
    return true;
}

void ServiceClient::connect(bool announce) {
    m_connection = std::make_unique<DaemonConnection>(Device::accessorySocket());
    m_fdHandler = ecore_main_fd_handler_add(m_connection->fd(), ECORE_FD_READ, onReadable, this,
                                            nullptr, nullptr);
    wire::Request request;
    request.mutable_hello()->set_version(kProtocolVersion);
    request.mutable_hello()->set_acknowledges_detach(true);
    std::optional<wire::Reply> reply = call(request);
    if (!reply || reply->result() != 0) {
        lose("the service refused the hello");
        throw std::runtime_error("no session with the accessory service");
    }
    m_backoff = kFirstBackoff;
    m_deviceType = reply->device_type();
    m_attached = reply->attached();
    m_secure = reply->secure();
    m_maxDataSize = reply->max_data_size() != 0 ? reply->max_data_size() : kMaxDataSize;
    LoggerI("session with the accessory service opened; device "
            << (m_attached ? "attached" : "detached"));
    if (m_attached && !reply->secure()) {
        warnInsecure();
    }
    if (announce && m_attached) {
        wire::Event event;
        event.mutable_device_status()->set_device_type(m_deviceType);
        event.mutable_device_status()->set_status(wire::DEVICE_ATTACHED);
        m_pending.push_back(event);
        scheduleDispatch();
    }
}

std::optional<wire::Reply> ServiceClient::call(wire::Request request) {
    if (!request.has_hello() && !ensureConnected()) {
        return std::nullopt;
    }
    const std::uint32_t serial = m_nextSerial++;
    request.set_serial(serial);
    wire::ClientMessage message;
    *message.mutable_request() = std::move(request);
    const auto deadline = std::chrono::steady_clock::now() + kReplyTimeout;
    std::optional<wire::Reply> reply;
    try {
        m_connection->write(encodeFrame(message), deadline);
        for (;;) {
            while (std::optional<wire::ServiceMessage> received = m_connection->next()) {
                accept(std::move(*received), serial, reply);
            }
            if (reply) {
                break;
            }
            if (!m_connection->waitReadable(deadline)) {
                throw std::runtime_error("the service did not answer in time");
            }
            m_connection->readAvailable();
        }
    } catch (const std::exception& error) {
        lose(error.what());
        return std::nullopt;
    }
    scheduleDispatch();
    return reply;
}

void ServiceClient::accept(wire::ServiceMessage message, std::uint32_t awaited,
                           std::optional<wire::Reply>& reply) {
    if (message.has_event()) {
        queue(std::move(*message.mutable_event()));
    } else if (message.reply().serial() == awaited) {
        reply = std::move(*message.mutable_reply());
    } else {
        LoggerW("dropped a reply to request " << message.reply().serial());
    }
}

void ServiceClient::queue(wire::Event event) {
    observe(event);
    m_pending.push_back(std::move(event));
}

void ServiceClient::observe(const wire::Event& event) {
    if (event.has_device_status()) {
        m_attached = event.device_status().status() == wire::DEVICE_ATTACHED;
        m_secure = m_attached && event.device_status().secure();
        if (m_attached && !m_secure) {
            warnInsecure();
        }
        if (!m_attached) {
            m_openConnections.clear();
            m_indicatedConnections.clear();
            m_fullChannels.clear();
        }
    } else if (event.has_channel_full()) {
        m_fullChannels.insert(
            {event.channel_full().connection_id(), event.channel_full().channel_id()});
    } else if (event.has_channel_room()) {
        m_fullChannels.erase(
            {event.channel_room().connection_id(), event.channel_room().channel_id()});
    } else if (event.has_create_confirm() &&
               event.create_confirm().status() == wire::CONNECTION_MADE) {
        const auto& channels = event.create_confirm().channel_ids();
        m_openConnections[event.create_confirm().connection_id()].assign(channels.begin(),
                                                                         channels.end());
    } else if (event.has_connection_requested()) {
        const auto& channels = event.connection_requested().channel_ids();
        m_indicatedConnections[event.connection_requested().connection_id()].assign(
            channels.begin(), channels.end());
    } else if (event.has_terminated()) {
        connectionEnded(event.terminated().connection_id());
    }
}

void ServiceClient::connectionAccepted(std::uint32_t connectionId) {
    auto indicated = m_indicatedConnections.find(connectionId);
    if (indicated != m_indicatedConnections.end()) {
        m_openConnections[connectionId] = std::move(indicated->second);
        m_indicatedConnections.erase(indicated);
    }
}

void ServiceClient::connectionEnded(std::uint32_t connectionId) {
    m_openConnections.erase(connectionId);
    m_indicatedConnections.erase(connectionId);
    m_fullChannels.erase(m_fullChannels.lower_bound({connectionId, 0}),
                         m_fullChannels.upper_bound({connectionId, UINT32_MAX}));
}

bool ServiceClient::canSendWithoutWaiting(std::uint32_t connectionId, std::uint32_t channelId,
                                          std::size_t length, bool secure) const {
    auto open = m_openConnections.find(connectionId);
    return m_connection && m_attached && (!secure || m_secure) && length <= m_maxDataSize &&
           m_fullChannels.count({connectionId, channelId}) == 0 &&
           open != m_openConnections.end() &&
           std::find(open->second.begin(), open->second.end(), channelId) != open->second.end();
}

bool ServiceClient::post(wire::Request request) { return post(std::move(request), {}); }

bool ServiceClient::post(wire::Request request, std::string_view data) {
    request.set_serial(m_nextSerial++);
    wire::ClientMessage message;
    *message.mutable_request() = std::move(request);
    try {
        const std::string frame = encodeSendDataFrame(message, data);
        m_postedSinceLook += frame.size();
        m_connection->write(frame, std::chrono::steady_clock::now() + kPostTimeout);
        // What arrived while the write waited for room is decoded already:
        // the socket may not wake the loop for it again.
        takeDecoded();
    } catch (const std::exception& error) {
        lose(error.what());
        return false;
    }
    scheduleDispatch();
    return true;
}

void ServiceClient::warnInsecure() {
    LoggerW(
        "the accessory link is not secure (plain TCP, the other device not authenticated): "
        "secure data and authentication will be refused");
}

void ServiceClient::takeArrived() {
    if (m_connection && m_postedSinceLook >= kPostedBetweenLooks) {
        takeMessages(kReadPerSend);
        scheduleDispatch();
    }
}

void ServiceClient::takeMessages(std::size_t enough) {
    m_postedSinceLook = 0;
    try {
        m_connection->readAvailable(enough);
        takeDecoded();
    } catch (const std::exception& error) {
        lose(error.what());
    }
}

void ServiceClient::takeDecoded() {
    std::optional<wire::Reply> stray;
    while (std::optional<wire::ServiceMessage> received = m_connection->next()) {
        accept(std::move(*received), 0, stray);
    }
}

void ServiceClient::lose(const std::string& reason) {
    if (!m_connection) {
        return;
    }
    LoggerW("lost the accessory service: " << reason);
    m_openConnections.clear();
    m_indicatedConnections.clear();
    m_fullChannels.clear();
    if (m_fdHandler != nullptr) {
        ecore_main_fd_handler_del(m_fdHandler);
        m_fdHandler = nullptr;
    }
    m_connection.reset();
    if (m_attached) {
        wire::Event event;
        event.mutable_device_status()->set_device_type(m_deviceType);
        event.mutable_device_status()->set_status(wire::DEVICE_DETACHED);
        m_pending.push_back(event);
    }
    m_attached = false;
    scheduleDispatch();
    scheduleReconnect();
}

void ServiceClient::scheduleReconnect() {
    if (m_reconnectTimer == nullptr) {
        m_reconnectTimer = ecore_timer_add(m_backoff, onReconnect, this);
        m_backoff = std::min(m_backoff * 2, kLongestBackoff);
    }
}

void ServiceClient::scheduleDispatch() {
    if (!m_pending.empty() && !m_dispatching && m_idler == nullptr && m_holdStage == 0) {
        m_idler = ecore_idler_add(onIdle, this);
    }
}

void ServiceClient::dispatchPending() {
    if (m_dispatching) {
        return;
    }
    m_dispatching = true;
    while (!m_pending.empty() && m_holdStage == 0) {
        const wire::Event event = std::move(m_pending.front());
        m_pending.pop_front();
        m_dispatcher.deliver(event);
        if (event.has_register_confirm()) {
            holdUntilIdleWorkRan();
        }
        if (isDetach(event)) {
            confirmDetach();
        }
    }
    m_dispatching = false;
}

bool ServiceClient::isDetach(const wire::Event& event) {
    return event.has_device_status() && event.device_status().status() == wire::DEVICE_DETACHED;
}

// The app has been told of the detach and of everything before it: the
// service may now say so in the link key, which the app watches too.
void ServiceClient::confirmDetach() {
    if (m_connection) {
        wire::Request request;
        request.mutable_detach_seen();
        post(std::move(request));
    }
}

void ServiceClient::holdUntilIdleWorkRan() {
    m_holdStage = 1;
    if (m_holdIdler == nullptr) {
        m_holdIdler = ecore_idler_add(onHoldIdle, this);
    }
}

Eina_Bool ServiceClient::onReadable(void* data, Ecore_Fd_Handler*) {
    auto* client = static_cast<ServiceClient*>(data);
    try {
        // A bounded amount per turn of the main loop, which comes back here
        // for the rest after the app's other work.
        client->takeMessages(kReadPerTurn);
        client->dispatchPending();
    } catch (const std::exception& error) {
        LoggerE("event delivery failed: " << error.what());
    }
    return client->m_fdHandler != nullptr ? ECORE_CALLBACK_RENEW : ECORE_CALLBACK_CANCEL;
}

Eina_Bool ServiceClient::onReconnect(void* data) {
    auto* client = static_cast<ServiceClient*>(data);
    client->m_reconnectTimer = nullptr;
    try {
        client->connect(true);
    } catch (const std::exception& error) {
        LoggerI("accessory service not back yet: " << error.what());
        client->m_connection.reset();
        client->scheduleReconnect();
    }
    return ECORE_CALLBACK_CANCEL;
}

Eina_Bool ServiceClient::onIdle(void* data) {
    auto* client = static_cast<ServiceClient*>(data);
    client->m_idler = nullptr;
    try {
        client->dispatchPending();
    } catch (const std::exception& error) {
        LoggerE("event delivery failed: " << error.what());
    }
    return ECORE_CALLBACK_CANCEL;
}

// Idle work posted before the hold runs in the idle turn in which this idler
// first runs; work that it posts in turn runs in the next idle turn, with
// this idler's second run, which then lets the held events go.
Eina_Bool ServiceClient::onHoldIdle(void* data) {
    auto* client = static_cast<ServiceClient*>(data);
    if (client->m_holdStage == 1) {
        client->m_holdStage = 2;
        return ECORE_CALLBACK_RENEW;
    }
    client->m_holdStage = 0;
    try {
        client->dispatchPending();
    } catch (const std::exception& error) {
        LoggerE("event delivery failed: " << error.what());
    }
    if (client->m_holdStage != 0) {
        return ECORE_CALLBACK_RENEW;  // a delivered event asked for a new hold
    }
    client->m_holdIdler = nullptr;
    return ECORE_CALLBACK_CANCEL;
}

}  // namespace Accessory
}  // namespace Kv
