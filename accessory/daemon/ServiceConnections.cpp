// Service connections: asking the linked device for one, the indication to
// the asked app, its answer, the time-out, data in order per channel, and
// the end of a connection on both devices.
#include <Logger.h>

#include "Service.h"

namespace Kv {
namespace Accessory {

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

wire::ConnectionStatus Service::limitStatus(const Agent& agent, std::uint32_t peerAgentId) const {
    bool any = false;
    for (const auto& [id, connection] : m_connections) {
        if (connection.agentId != agent.id) {
            continue;
        }
        if (connection.peer.peer_agent_id() == peerAgentId) {
            return wire::CONNECTION_ALREADY_EXISTS;
        }
        any = true;
    }
    return any && agent.profile.limit == ServiceLimit::OneAccessory
               ? wire::CONNECTION_ALREADY_EXISTS
               : wire::CONNECTION_MADE;
}

wire::Reply Service::createConnection(SessionId id, const wire::CreateConnection& request) {
    Agent* agent = ownAgent(id, request.agent_id());
    if (agent == nullptr || !request.has_peer()) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (!linked()) {
        return resultReply(wire::RESULT_GENERAL);
    }
    const std::uint32_t connectionId = m_nextConnection++;
    Connection connection{connectionId, agent->id, 0, request.peer(), ConnectionState::Asking, {}};
    wire::ConnectionStatus status = wire::CONNECTION_MADE;
    if (request.peer().accessory_id() != m_linkSession) {
        status = wire::CONNECTION_INVALID_PEER_AGENT;  // a peer of an earlier link
    } else {
        status = limitStatus(*agent, request.peer().peer_agent_id());
    }
    if (status != wire::CONNECTION_MADE) {
        m_connections[connectionId] = connection;
        failAsking(m_connections[connectionId], status);
        return resultReply(wire::RESULT_SUCCESS);
    }
    connection.timer = std::make_shared<asio::steady_timer>(
        m_io, std::chrono::seconds(agent->profile.timeoutSeconds));
    connection.timer->async_wait([this, connectionId](const asio::error_code& error) {
        if (!error) {
            giveUpAsking(connectionId);
        }
    });
    m_connections[connectionId] = connection;
    wire::LinkMessage query;
    auto* ask = query.mutable_connect_query();
    ask->set_connection_id(connectionId);
    *ask->mutable_from() = describe(*agent);
    ask->set_to_agent_id(request.peer().peer_agent_id());
    ask->set_timeout_seconds(agent->profile.timeoutSeconds);
    sendLink(query);
    return resultReply(wire::RESULT_SUCCESS);
}

// The peer did not answer a connection request in time: the request is
// withdrawn on the link and fails for the app.
void Service::giveUpAsking(std::uint32_t connectionId) {
    auto found = m_connections.find(connectionId);
    if (found == m_connections.end() || found->second.state != ConnectionState::Asking) {
        return;
    }
    LoggerI("connection " << connectionId << ": no answer in time");
    wire::LinkMessage withdraw;
    withdraw.mutable_close()->set_connection_id(connectionId);
    withdraw.mutable_close()->set_asker_id(true);
    sendLink(withdraw, kPriorityControl);
    failAsking(found->second, wire::CONNECTION_NO_RESPONSE);
}

void Service::failAsking(Connection& connection, wire::ConnectionStatus status) {
    wire::Event event;
    auto* confirm = event.mutable_create_confirm();
    confirm->set_agent_id(connection.agentId);
    confirm->set_connection_id(connection.id);
    *confirm->mutable_peer() = connection.peer;
    confirm->set_status(status);
    notifyAgent(connection.agentId, event);
    dropConnection(connection.id);
}

void Service::onConnectQuery(const wire::ConnectQuery& query) {
    wire::LinkMessage answer;
    auto* reply = answer.mutable_connect_reply();
    reply->set_connection_id(query.connection_id());
    auto agent = m_agents.find(query.to_agent_id());
    if (agent == m_agents.end() || agent->second.profile.id != query.from().profile_id() ||
        agent->second.profile.consumer == query.from().consumer()) {
        reply->set_status(wire::CONNECTION_INVALID_PEER_AGENT);
        sendLink(answer);
        return;
    }
    if (const wire::ConnectionStatus status = limitStatus(agent->second, query.from().agent_id());
        status != wire::CONNECTION_MADE) {
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
            endConnection(connectionId, wire::TERMINATION_CLOSED, false);
        }
    });
    m_connections[connectionId] = connection;
    wire::Event event;
    auto* indication = event.mutable_connection_requested();
    indication->set_agent_id(agent->first);
    indication->set_connection_id(connectionId);
    *indication->mutable_peer() = connection.peer;
    channelsOf(agent->first, indication->mutable_channel_ids());
    notify(agent->second.session, event);
}

wire::Reply Service::answerConnection(SessionId id, const wire::ConnectionAnswer& answer,
                                      bool accept) {
    Connection* connection = ownConnection(id, answer.connection_id());
    if (connection == nullptr || connection->agentId != answer.agent_id() ||
        connection->state != ConnectionState::Indicated) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (!linked()) {
        return resultReply(wire::RESULT_NO_DEVICE);
    }
    wire::LinkMessage message;
    auto* reply = message.mutable_connect_reply();
    reply->set_connection_id(connection->peerConnectionId);
    reply->set_peer_connection_id(connection->id);
    reply->set_status(accept ? wire::CONNECTION_MADE : wire::CONNECTION_REJECTED);
    sendLink(message);
    if (accept) {
        connection->timer->cancel();
        connection->state = ConnectionState::Open;
        LoggerI("connection " << connection->id << ": accepted");
    } else {
        dropConnection(connection->id);
    }
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::onConnectReply(const wire::ConnectReply& reply) {
    auto found = m_connections.find(reply.connection_id());
    if (found == m_connections.end() || found->second.state != ConnectionState::Asking) {
        if (reply.status() == wire::CONNECTION_MADE) {
            // Accepted after this side gave up: the other end must close it.
            wire::LinkMessage close;
            close.mutable_close()->set_connection_id(reply.peer_connection_id());
            close.mutable_close()->set_reason(wire::TERMINATION_CLOSED);
            sendLink(close, kPriorityLow);
        }
        return;
    }
    Connection& connection = found->second;
    if (reply.status() != wire::CONNECTION_MADE) {
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
    confirm->set_status(wire::CONNECTION_MADE);
    channelsOf(connection.agentId, confirm->mutable_channel_ids());
    notifyAgent(connection.agentId, event);
}

wire::Reply Service::terminateConnection(SessionId id, std::uint32_t connectionId) {
    auto found = m_connections.find(connectionId);
    if (found == m_connections.end()) {
        // Ended already (or never made): it is ended, as asked.
        return resultReply(wire::RESULT_SUCCESS);
    }
    if (ownAgent(id, found->second.agentId) == nullptr) {
        return resultReply(wire::RESULT_INVALID);
    }
    endConnection(connectionId, wire::TERMINATION_CLOSED, true);
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::endConnection(std::uint32_t connectionId, wire::TerminationReason reason,
                            bool tellPeer) {
    auto found = m_connections.find(connectionId);
    if (found == m_connections.end()) {
        return;
    }
    Connection& connection = found->second;
    if (tellPeer) {
        wire::LinkMessage message;
        if (connection.state == ConnectionState::Indicated) {
            message.mutable_connect_reply()->set_connection_id(connection.peerConnectionId);
            message.mutable_connect_reply()->set_status(wire::CONNECTION_NO_RESPONSE);
        } else {
            // A close travels behind the data already queued for the connection.
            message.mutable_close()->set_connection_id(connection.state == ConnectionState::Asking
                                                           ? connection.id
                                                           : connection.peerConnectionId);
            message.mutable_close()->set_asker_id(connection.state == ConnectionState::Asking);
            message.mutable_close()->set_reason(wire::TERMINATION_CLOSED);
        }
        sendLink(message, kPriorityLow);
    }
    wire::Event event;
    event.mutable_terminated()->set_connection_id(connectionId);
    event.mutable_terminated()->set_reason(reason);
    notifyAgent(connection.agentId, event);
    LoggerI("connection " << connectionId << ": ended, reason " << reason);
    dropConnection(connectionId);
}

void Service::dropConnection(std::uint32_t connectionId) {
    auto found = m_connections.find(connectionId);
    if (found == m_connections.end()) {
        return;
    }
    if (found->second.timer) {
        found->second.timer->cancel();
    }
    forgetChannelQueues(connectionId);
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
    endConnection(connection->id, close.reason(), false);
}

wire::Reply Service::sendData(SessionId id, wire::SendData& request) {
    Connection* connection = ownConnection(id, request.connection_id());
    if (connection == nullptr || connection->state != ConnectionState::Open) {
        return resultReply(wire::RESULT_INVALID);
    }
    const ProfileChannel* channel =
        m_agents.at(connection->agentId).profile.channel(request.channel_id());
    if (channel == nullptr) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (request.data().size() > m_profile.maxDataSize) {
        return resultReply(wire::RESULT_GENERAL);
    }
    if (!linked()) {
        return resultReply(wire::RESULT_NO_DEVICE);
    }
    if (request.secure() && !secureLink()) {
        LoggerW("secure data refused: the link is not encrypted and authenticated");
        return resultReply(wire::RESULT_GENERAL);
    }
    // A send whose app waits for the answer is refused while its channel is
    // full; one that went without waiting was sent before its app could
    // know, and is taken.
    if (!request.no_reply() && channelFull(connection->id, request.channel_id())) {
        return resultReply(wire::RESULT_GENERAL);
    }
    const std::size_t bytes = request.data().size();
    const std::uint64_t tag = channelTag(connection->id, request.channel_id());
    wire::LinkMessage message;
    auto* data = message.mutable_data();
    data->set_connection_id(connection->peerConnectionId);
    data->set_channel_id(request.channel_id());
    data->set_data(std::move(*request.mutable_data()));
    data->set_secure(request.secure());
    data->set_message_id(m_nextMessage++);
    data->set_sent_at_us(request.sent_at_us());
    if (!m_link->sendTagged(message, channel->priority, tag)) {
        return resultReply(wire::RESULT_GENERAL);
    }
    queuedOnChannel(id, tag, bytes);
    countMessage(request.channel_id());
    if (m_link->queuedBytes() > kPauseSendersAbove) {
        pauseSender(id);
    }
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::onLinkData(wire::LinkData& data) {
    auto found = m_connections.find(data.connection_id());
    if (found == m_connections.end() || found->second.state != ConnectionState::Open) {
        LoggerW("link: data for connection " << data.connection_id() << ", which is not open");
        return;
    }
    if (m_trace.active()) {
        traceDelivery(found->second, data);
    }
    wire::Event event;
    auto* arrived = event.mutable_data();
    arrived->set_connection_id(found->first);
    arrived->set_channel_id(data.channel_id());
    arrived->set_data(std::move(*data.mutable_data()));
    notifyAgent(found->second.agentId, event);
    countMessage(data.channel_id());
}

}  // namespace Accessory
}  // namespace Kv
