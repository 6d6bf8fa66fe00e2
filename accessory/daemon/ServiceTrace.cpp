// What the tracers see: each request of an app and each event it gets,
// translated into a trace event that names the app, and what happens on
// the link. Called only while a tracer follows the service, so that none
// of it costs anything otherwise.
#include "Service.h"

namespace Kv {
namespace Accessory {

namespace {

using Trace = wire::TraceEvent;

Trace traceOf(Trace::Kind kind, const std::string& app) {
    Trace event;
    event.set_kind(kind);
    event.set_app(app);
    return event;
}

}  // namespace

std::string Service::appOfSession(SessionId id) const {
    auto found = m_sessions.find(id);
    return found != m_sessions.end() ? found->second.appId : std::string();
}

std::string Service::appOfAgent(std::uint32_t agentId) const {
    auto agent = m_agents.find(agentId);
    return agent != m_agents.end() ? appOfSession(agent->second.session) : std::string();
}

wire::TraceEvent Service::traceStarted() const {
    Trace event;
    event.set_kind(Trace::TRACE_STARTED);
    event.set_profile(m_profile.name);
    event.set_up(linked());
    event.set_secure(secureLink());
    if (linked()) {
        event.set_peer_device(m_link->peerName());
    }
    return event;
}

// The tracer gets the reply first, then the trace, from the next turn on.
wire::Reply Service::startTrace(SessionId id) {
    auto found = m_sessions.find(id);
    std::shared_ptr<ClientChannel> channel = found->second.channel;
    asio::post(m_io, [this, id, channel] {
        if (m_sessions.count(id) != 0) {
            m_trace.add(id, channel, traceStarted());
        }
    });
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::traceRequest(SessionId id, const wire::Request& request, const wire::Reply& reply,
                           std::size_t dataSize) {
    const bool taken = reply.result() == wire::RESULT_SUCCESS;
    Trace event = traceOf(Trace::FIND_STARTED, appOfSession(id));
    if (request.has_find_peers() && taken) {
        event.set_agent_id(request.find_peers().agent_id());
    } else if (request.has_create_connection() && taken) {
        event.set_kind(Trace::CONNECTION_REQUESTED);
        event.set_agent_id(request.create_connection().agent_id());
        event.set_peer_agent_id(request.create_connection().peer().peer_agent_id());
        event.set_text(request.create_connection().peer().app_name());
    } else if ((request.has_accept_connection() || request.has_reject_connection()) && taken) {
        const bool accepted = request.has_accept_connection();
        const wire::ConnectionAnswer& answer =
            accepted ? request.accept_connection() : request.reject_connection();
        event.set_kind(accepted ? Trace::CONNECTION_ACCEPTED : Trace::CONNECTION_REJECTED);
        event.set_agent_id(answer.agent_id());
        event.set_connection_id(answer.connection_id());
        auto connection = m_connections.find(answer.connection_id());
        if (accepted && connection != m_connections.end()) {
            event.set_peer_connection_id(connection->second.peerConnectionId);
            event.set_peer_agent_id(connection->second.peer.peer_agent_id());
            event.set_text(connection->second.peer.app_name());
        }
    } else if (request.has_send_data()) {
        const wire::SendData& send = request.send_data();
        event.set_kind(Trace::DATA_SENT);
        event.set_connection_id(send.connection_id());
        event.set_channel_id(send.channel_id());
        event.set_size(dataSize);
        event.set_secure(send.secure());
        event.set_status(reply.result());
        event.set_message_id(taken ? m_nextMessage - 1 : 0);
    } else if (request.has_push_file() && taken) {
        auto transfer = m_transfers.find(reply.value());
        if (transfer == m_transfers.end()) {
            return;
        }
        return traceTransfer(Trace::FILE_OFFERED, transfer->second);
    } else if (request.has_receive_file() && taken && request.receive_file().accept()) {
        auto transfer = m_transfers.find(request.receive_file().transaction_id());
        if (transfer == m_transfers.end()) {
            return;
        }
        return traceTransfer(Trace::FILE_ACCEPTED, transfer->second);
    } else {
        return;
    }
    m_trace.emit(event);
}

void Service::traceEvent(SessionId id, const wire::Event& event) {
    Trace trace = traceOf(Trace::AGENT_REGISTERED, appOfSession(id));
    if (event.has_register_confirm()) {
        auto agent = m_agents.find(event.register_confirm().agent_id());
        if (event.register_confirm().result() != wire::RESULT_SUCCESS || agent == m_agents.end()) {
            return;
        }
        return traceAgent(Trace::AGENT_REGISTERED, agent->second);
    } else if (event.has_peer_found()) {
        const wire::PeerFound& found = event.peer_found();
        trace.set_kind(Trace::FIND_ANSWERED);
        trace.set_agent_id(found.agent_id());
        trace.set_status(found.status());
        trace.set_peer_agent_id(found.peer().peer_agent_id());
        trace.set_text(found.peer().app_name());
        trace.set_peer_device(found.peer().device_name());
    } else if (event.has_connection_requested()) {
        const wire::ConnectionRequested& asked = event.connection_requested();
        trace.set_kind(Trace::CONNECTION_INDICATED);
        trace.set_agent_id(asked.agent_id());
        trace.set_connection_id(asked.connection_id());
        trace.set_peer_agent_id(asked.peer().peer_agent_id());
        trace.set_text(asked.peer().app_name());
    } else if (event.has_create_confirm()) {
        const wire::CreateConfirm& confirm = event.create_confirm();
        const bool made = confirm.status() == wire::CONNECTION_MADE;
        trace.set_kind(made ? Trace::CONNECTION_MADE : Trace::CONNECTION_FAILED);
        trace.set_agent_id(confirm.agent_id());
        trace.set_connection_id(confirm.connection_id());
        trace.set_peer_agent_id(confirm.peer().peer_agent_id());
        trace.set_status(confirm.status());
        trace.set_text(confirm.peer().app_name());
        auto connection = m_connections.find(confirm.connection_id());
        if (made && connection != m_connections.end()) {
            trace.set_peer_connection_id(connection->second.peerConnectionId);
        }
    } else if (event.has_terminated()) {
        trace.set_kind(Trace::CONNECTION_ENDED);
        trace.set_connection_id(event.terminated().connection_id());
        trace.set_status(event.terminated().reason());
    } else if (event.has_channel_full() || event.has_channel_room()) {
        const bool full = event.has_channel_full();
        trace.set_kind(full ? Trace::CHANNEL_FULL : Trace::CHANNEL_ROOM);
        trace.set_connection_id(full ? event.channel_full().connection_id()
                                     : event.channel_room().connection_id());
        trace.set_channel_id(full ? event.channel_full().channel_id()
                                  : event.channel_room().channel_id());
    } else if (event.has_service_error()) {
        trace.set_kind(Trace::SERVICE_ERROR);
        trace.set_status(event.service_error().code());
        trace.set_size(event.service_error().value());
    } else if (event.has_file_offered() || event.has_file_done() || event.has_file_progress()) {
        traceEventOfFile(trace, event);
    } else {
        return;  // data is traced at its delivery; the link's state once, not per app
    }
    m_trace.emit(trace);
}

void Service::traceEventOfFile(wire::TraceEvent& trace, const wire::Event& event) const {
    int transactionId = 0;
    if (event.has_file_offered()) {
        trace.set_kind(Trace::FILE_OFFERED);
        trace.set_agent_id(event.file_offered().agent_id());
        trace.set_text(event.file_offered().file_name());
        transactionId = event.file_offered().transaction_id();
    } else if (event.has_file_done()) {
        trace.set_kind(Trace::FILE_ENDED);
        trace.set_status(event.file_done().status());
        trace.set_sending(event.file_done().sending());
        trace.set_text(event.file_done().path());
        transactionId = event.file_done().transaction_id();
    } else {
        trace.set_kind(Trace::FILE_PROGRESS);
        trace.set_progress(event.file_progress().progress());
        transactionId = event.file_progress().transaction_id();
    }
    trace.set_transaction_id(transactionId);
    auto transfer = m_transfers.find(transactionId);
    if (transfer != m_transfers.end()) {
        trace.set_agent_id(transfer->second.agentId);
        trace.set_sending(transfer->second.sending);
        trace.set_size(transfer->second.size);
        trace.set_peer_transaction_id(transfer->second.offerId);
    }
}

void Service::traceTransfer(wire::TraceEvent::Kind kind, const Transfer& transfer) {
    Trace event = traceOf(kind, appOfAgent(transfer.agentId));
    event.set_agent_id(transfer.agentId);
    event.set_transaction_id(transfer.id);
    event.set_peer_transaction_id(transfer.offerId);
    event.set_sending(transfer.sending);
    event.set_size(transfer.size);
    event.set_text(transfer.path);
    m_trace.emit(event);
}

void Service::traceDelivery(const Connection& connection, const wire::LinkData& data) {
    Trace event = traceOf(Trace::DATA_DELIVERED, appOfAgent(connection.agentId));
    event.set_agent_id(connection.agentId);
    event.set_connection_id(connection.id);
    event.set_peer_connection_id(connection.peerConnectionId);
    event.set_channel_id(data.channel_id());
    event.set_size(data.data().size());
    event.set_secure(data.secure());
    event.set_message_id(data.message_id());
    event.set_sent_at_us(data.sent_at_us());
    event.set_peer_device(m_link != nullptr ? m_link->peerName() : std::string());
    m_trace.emit(event);
}

void Service::traceLink(wire::TraceEvent::Kind kind, const std::string& text, std::uint64_t size) {
    Trace event = traceOf(kind, {});
    event.set_text(text);
    event.set_size(size);
    event.set_secure(secureLink());
    if (m_link != nullptr && kind != Trace::LINK_FAULT) {
        event.set_peer_device(m_link->peerName());
    }
    m_trace.emit(event);
}

void Service::traceAgent(wire::TraceEvent::Kind kind, const Agent& agent) {
    Trace event = traceOf(kind, appOfSession(agent.session));
    event.set_agent_id(agent.id);
    event.set_text(agent.profile.id + (agent.profile.consumer ? " (consumer)" : " (provider)"));
    m_trace.emit(event);
}

}  // namespace Accessory
}  // namespace Kv
