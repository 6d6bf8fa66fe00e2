// The status request of the tools: what the service holds, as a report and
// as the report's text.
#include <kv-accessory/StatusText.h>
#include <malloc.h>

#include "Service.h"

namespace Kv {
namespace Accessory {

namespace {

std::uint64_t heapInUse() {
    const struct mallinfo2 memory = mallinfo2();
    return memory.uordblks + memory.hblkhd;
}

}  // namespace

int Service::percentDone(const Transfer& transfer) {
    return transfer.size == 0 ? 100 : static_cast<int>(transfer.done * 100 / transfer.size);
}

wire::Reply Service::status() const {
    wire::Reply reply = resultReply(wire::RESULT_SUCCESS);
    reply.set_attached(linked());
    reply.set_secure(secureLink());
    *reply.mutable_status_report() = statusReport();
    reply.set_status_text(statusText(reply.status_report()));
    return reply;
}

wire::StatusReport Service::statusReport() const {
    wire::StatusReport report;
    report.set_device_name(m_deviceName);
    reportLink(*report.mutable_link());
    report.set_sessions(static_cast<std::uint32_t>(m_sessions.size()));
    for (const auto& [agentId, agent] : m_agents) {
        reportAgent(agent, *report.add_agents());
    }
    for (const auto& [connectionId, connection] : m_connections) {
        reportConnection(connection, *report.add_connections());
    }
    for (const auto& [transactionId, transfer] : m_transfers) {
        reportTransfer(transfer, *report.add_transfers());
    }
    report.set_heap_in_use(heapInUse());
    std::uint64_t forApps = 0;
    for (const auto& [id, session] : m_sessions) {
        forApps += session.channel->queuedBytes();
    }
    report.set_queued_for_apps(forApps);
    report.set_queued_for_link(m_link != nullptr ? m_link->queuedBytes() : 0);
    return report;
}

void Service::reportLink(wire::LinkReport& report) const {
    report.set_up(linked());
    if (m_link == nullptr) {
        return;
    }
    report.set_configured(true);
    report.set_enabled(m_link->enabled());
    report.set_address(m_link->describe());
    report.set_tls(m_link->usesTls());
    report.set_secure(secureLink());
    report.set_keylog(m_link->keyLogPath());
    if (linked()) {
        report.set_peer_name(m_link->peerName());
    }
    if (secureLink()) {
        report.set_peer_fingerprint(m_link->peerFingerprint());
    }
}

void Service::reportAgent(const Agent& agent, wire::AgentReport& report) const {
    report.set_agent_id(agent.id);
    const auto session = m_sessions.find(agent.session);
    report.set_app_id(session != m_sessions.end() ? session->second.appId : agent.appName);
    report.set_profile_id(agent.profile.id);
    report.set_consumer(agent.profile.consumer);
}

void Service::reportConnection(const Connection& connection, wire::ConnectionReport& report) {
    report.set_connection_id(connection.id);
    report.set_agent_id(connection.agentId);
    *report.mutable_peer() = connection.peer;
    switch (connection.state) {
        case ConnectionState::Asking:
            report.set_stage(wire::STAGE_ASKING);
            break;
        case ConnectionState::Indicated:
            report.set_stage(wire::STAGE_INDICATED);
            break;
        case ConnectionState::Open:
            report.set_stage(wire::STAGE_OPEN);
            break;
    }
}

void Service::reportTransfer(const Transfer& transfer, wire::TransferReport& report) {
    report.set_transaction_id(transfer.id);
    report.set_agent_id(transfer.agentId);
    report.set_sending(transfer.sending);
    report.set_flowing(transfer.flowing);
    report.set_path(transfer.path);
    report.set_size(transfer.size);
    report.set_done(transfer.done);
    report.set_progress(percentDone(transfer));
}

}  // namespace Accessory
}  // namespace Kv
