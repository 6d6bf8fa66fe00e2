// Service connections: asking the linked device for one, the indication to
// the asked app, its answer, the time-out, data in order per channel, and
// the end of a connection on both devices.
#include <Logger.h>
#include <kvp-client-stub-api.h>

#include "Service.h"

namespace Kv {
namespace Accessory {

namespace {

// Connection statuses of the client library.
constexpr int kMade = 0;
constexpr int kAlreadyExists = 1;
constexpr int kDeviceUnreachable = 3;
constexpr int kInvalidPeer = 4;
constexpr int kNoResponse = 5;
constexpr int kRejected = 6;
// Termination reasons.
constexpr int kPeerDisconnected = 0;

wire::Reply result(int code) {
    wire::Reply reply;
    reply.set_result(code);
    return reply;
}

}  // namespace

Service::Connection* Service::ownConnection(SessionId id, std::uint32_t connectionId) {
    auto found = m_connections.find(connectionId);
    if (found == m_connections.end() || ownAgent(id, found->second.agentId) == nullptr) {
        return nullptr;
    }
    return &found->second;
}

Service::Connection* Service::connectionByPeerId(std::uint32_t peerConnectionId) {
    for (auto& [id, connection] : m_connections) {
        if (connection.peerConnectionId == peerConnectionId) {
            return &connection;
        }
    }
    return nullptr;
}

int Service::limitStatus(const Agent& agent, std::uint32_t peerAgentId) const {
    bool any = false;
    for (const auto& [id, connection] : m_connections) {
        if (connection.agentId != agent.id) {
            continue;
        }
        if (connection.peer.peer_agent_id() == peerAgentId) {
            return kAlreadyExists;
        }
        any = true;
    }
    return any && agent.profile.limit == ServiceLimit::OneAccessory ? kAlreadyExists : kMade;
}

wire::Reply Service::createConnection(SessionId id, const wire::CreateConnection& request) {
    Agent* agent = ownAgent(id, request.agent_id());
    if (agent == nullptr || !request.has_peer()) {
        return result(KVP_ERROR_INVALID);
    }
    const std::uint32_t connectionId = m_nextConnection++;
    Connection connection{connectionId, agent->id, 0, request.peer(), ConnectionState::Asking, {}};
    int status = kMade;
    if (!linked()) {
        status = kDeviceUnreachable;
    } else if (request.peer().accessory_id() != m_linkSession) {
        status = kInvalidPeer;
    } else {
        status = limitStatus(*agent, request.peer().peer_agent_id());
    }
    if (status != kMade) {
        m_connections[connectionId] = connection;
        failAsking(m_connections[connectionId], status);
        return result(KVP_SUCCESS);
    }
    connection.timer = std::make_shared<asio::steady_timer>(
        m_io, std::chrono::seconds(agent->profile.timeoutSeconds));
    connection.timer->async_wait([this, connectionId](const asio::error_code& error) {
        auto found = m_connections.find(connectionId);
        if (error || found == m_connections.end() ||
            found->second.state != ConnectionState::Asking) {
            return;
        }
        LoggerI("connection " << connectionId << ": no answer in time");
        wire::LinkMessage withdraw;
        withdraw.mutable_close()->set_connection_id(connectionId);
        withdraw.mutable_close()->set_asker_id(true);
        sendLink(withdraw, kPriorityControl);
        failAsking(found->second, kNoResponse);
    });
    m_connections[connectionId] = connection;
    wire::LinkMessage query;
    auto* ask = query.mutable_connect_query();
    ask->set_connection_id(connectionId);
    *ask->mutable_from() = describe(*agent);
    ask->set_to_agent_id(request.peer().peer_agent_id());
    ask->set_timeout_seconds(agent->profile.timeoutSeconds);
    sendLink(query);
    return result(KVP_SUCCESS);
}

void Service::failAsking(Connection& connection, int status) {
    wire::Event event;
    auto* confirm = event.mutable_create_confirm();
    confirm->set_agent_id(connection.agentId);
    confirm->set_connection_id(connection.id);
    *confirm->mutable_peer() = connection.peer;
    confirm->set_status(status);
    notifyAgent(connection.agentId, event);
    if (connection.timer) {
        connection.timer->cancel();
    }
    m_connections.erase(connection.id);
}

void Service::onConnectQuery(const wire::ConnectQuery& query) {
    wire::LinkMessage answer;
    auto* reply = answer.mutable_connect_reply();
    reply->set_connection_id(query.connection_id());
    auto agent = m_agents.find(query.to_agent_id());
    if (agent == m_agents.end() || agent->second.profile.id != query.from().profile_id() ||
        agent->second.profile.consumer == query.from().consumer()) {
        reply->set_status(kInvalidPeer);
        sendLink(answer);
        return;
    }
    if (const int status = limitStatus(agent->second, query.from().agent_id()); status != kMade) {
        reply->set_status(status);
        sendLink(answer);
        return;
    }
    const std::uint32_t connectionId = m_nextConnection++;
    Connection connection{connectionId,
                          agent->first,
                          query.connection_id(),
                          peerRecord(query.from()),
                          ConnectionState::Indicated,
                          {}};
    // The asking side gives up after its time-out; the indication is dropped
    // a little later, in case its withdrawal was lost with the link.
    connection.timer = std::make_shared<asio::steady_timer>(
        m_io, std::chrono::seconds(query.timeout_seconds() + 1));
    connection.timer->async_wait([this, connectionId](const asio::error_code& error) {
        auto found = m_connections.find(connectionId);
        if (!error && found != m_connections.end() &&
            found->second.state == ConnectionState::Indicated) {
            endConnection(connectionId, kPeerDisconnected, false);
        }
    });
    m_connections[connectionId] = connection;
    wire::Event event;
    auto* indication = event.mutable_connection_requested();
    indication->set_agent_id(agent->first);
    indication->set_connection_id(connectionId);
    *indication->mutable_peer() = connection.peer;
    notify(agent->second.session, event);
}

wire::Reply Service::answerConnection(SessionId id, const wire::ConnectionAnswer& answer,
                                      bool accept) {
    Connection* connection = ownConnection(id, answer.connection_id());
    if (connection == nullptr || connection->agentId != answer.agent_id() ||
        connection->state != ConnectionState::Indicated) {
        return result(KVP_ERROR_INVALID);
    }
    if (!linked()) {
        return result(KVP_ERROR_NO_DEVICE);
    }
    wire::LinkMessage message;
    auto* reply = message.mutable_connect_reply();
    reply->set_connection_id(connection->peerConnectionId);
    reply->set_peer_connection_id(connection->id);
    reply->set_status(accept ? kMade : kRejected);
    sendLink(message);
    connection->timer->cancel();
    if (accept) {
        connection->state = ConnectionState::Open;
        LoggerI("connection " << connection->id << ": accepted");
    } else {
        m_connections.erase(connection->id);
    }
    return result(KVP_SUCCESS);
}

void Service::onConnectReply(const wire::ConnectReply& reply) {
    auto found = m_connections.find(reply.connection_id());
    if (found == m_connections.end() || found->second.state != ConnectionState::Asking) {
        if (reply.status() == kMade) {
            // Accepted after this side gave up: the other end must close it.
            wire::LinkMessage close;
            close.mutable_close()->set_connection_id(reply.peer_connection_id());
            close.mutable_close()->set_reason(kPeerDisconnected);
            sendLink(close, kPriorityLow);
        }
        return;
    }
    Connection& connection = found->second;
    if (reply.status() != kMade) {
        failAsking(connection, reply.status());
        return;
    }
    connection.timer->cancel();
    connection.state = ConnectionState::Open;
    connection.peerConnectionId = reply.peer_connection_id();
    LoggerI("connection " << connection.id << ": made");
    wire::Event event;
    auto* confirm = event.mutable_create_confirm();
    confirm->set_agent_id(connection.agentId);
    confirm->set_connection_id(connection.id);
    *confirm->mutable_peer() = connection.peer;
    confirm->set_status(kMade);
    notifyAgent(connection.agentId, event);
}

wire::Reply Service::terminateConnection(SessionId id, std::uint32_t connectionId) {
    if (ownConnection(id, connectionId) == nullptr) {
        return result(KVP_ERROR_INVALID);
    }
    endConnection(connectionId, kPeerDisconnected, true);
    return result(KVP_SUCCESS);
}

void Service::endConnection(std::uint32_t connectionId, int reason, bool tellPeer) {
    auto found = m_connections.find(connectionId);
    if (found == m_connections.end()) {
        return;
    }
    Connection& connection = found->second;
    if (tellPeer) {
        wire::LinkMessage message;
        if (connection.state == ConnectionState::Indicated) {
            message.mutable_connect_reply()->set_connection_id(connection.peerConnectionId);
            message.mutable_connect_reply()->set_status(kNoResponse);
        } else {
            // A close travels behind the data already queued for the connection.
            message.mutable_close()->set_connection_id(connection.state == ConnectionState::Asking
                                                           ? connection.id
                                                           : connection.peerConnectionId);
            message.mutable_close()->set_asker_id(connection.state == ConnectionState::Asking);
            message.mutable_close()->set_reason(kPeerDisconnected);
        }
        sendLink(message, kPriorityLow);
    }
    if (connection.timer) {
        connection.timer->cancel();
    }
    wire::Event event;
    event.mutable_terminated()->set_connection_id(connectionId);
    event.mutable_terminated()->set_reason(reason);
    notifyAgent(connection.agentId, event);
    LoggerI("connection " << connectionId << ": ended, reason " << reason);
    m_connections.erase(found);
}

void Service::onLinkClose(const wire::LinkClose& close) {
    Connection* connection = close.asker_id() ? connectionByPeerId(close.connection_id()) : nullptr;
    if (!close.asker_id()) {
        auto found = m_connections.find(close.connection_id());
        connection = found != m_connections.end() ? &found->second : nullptr;
    }
    if (connection == nullptr) {
        return;
    }
    const int reason = close.reason() >= 0 && close.reason() <= 2 ? close.reason() : 2;
    endConnection(connection->id, reason, false);
}

wire::Reply Service::sendData(SessionId id, const wire::SendData& request) {
    Connection* connection = ownConnection(id, request.connection_id());
    if (connection == nullptr || connection->state != ConnectionState::Open) {
        return result(KVP_ERROR_INVALID);
    }
    const ProfileChannel* channel =
        m_agents.at(connection->agentId).profile.channel(request.channel_id());
    if (channel == nullptr) {
        return result(KVP_ERROR_INVALID);
    }
    if (request.data().size() > kMaxDataSize) {
        return result(KVP_ERROR_GENERAL);
    }
    if (!linked()) {
        return result(KVP_ERROR_NO_DEVICE);
    }
    wire::LinkMessage message;
    auto* data = message.mutable_data();
    data->set_connection_id(connection->peerConnectionId);
    data->set_channel_id(request.channel_id());
    data->set_data(request.data());
    return result(m_link->send(message, channel->priority) ? KVP_SUCCESS : KVP_ERROR_GENERAL);
}

void Service::onLinkData(const wire::LinkData& data) {
    auto found = m_connections.find(data.connection_id());
    if (found == m_connections.end() || found->second.state != ConnectionState::Open) {
        LoggerW("link: data for connection " << data.connection_id() << ", which is not open");
        return;
    }
    wire::Event event;
    auto* arrived = event.mutable_data();
    arrived->set_connection_id(found->first);
    arrived->set_channel_id(data.channel_id());
    arrived->set_data(data.data());
    notifyAgent(found->second.agentId, event);
}

}  // namespace Accessory
}  // namespace Kv
