#include <kv-accessory/StatusText.h>

#include <sstream>

namespace Kv {
namespace Accessory {

namespace {

namespace wire = ::kv::accessory::wire;

void writeLink(std::ostream& text, const wire::LinkReport& link) {
    text << "link: " << (link.up() ? "up" : "down");
    if (!link.configured()) {
        text << "\n";
        return;
    }
    text << (link.enabled() ? "" : " (disabled)") << " " << link.address();
    if (link.up()) {
        text << " with " << link.peer_name();
    }
    text << "\nsecurity: "
         << (link.tls() ? "TLS 1.3 with the paired device's pinned certificate"
                        : "none (insecure: plain TCP, nobody authenticated)")
         << "\n";
    if (!link.keylog().empty()) {
        text << "key log: " << link.keylog()
             << " (the link's TLS secrets: whoever reads it can decrypt the link)\n";
    }
    if (link.secure()) {
        text << "peer certificate: " << link.peer_fingerprint() << "\n";
    }
}

void writeAgent(std::ostream& text, const wire::AgentReport& agent) {
    text << "  agent " << agent.agent_id() << ": " << agent.app_id() << ", " << agent.profile_id()
         << " (" << (agent.consumer() ? "consumer" : "provider") << ")\n";
}

void writeConnection(std::ostream& text, const wire::ConnectionReport& connection) {
    const wire::PeerAgent& peer = connection.peer();
    text << "  connection " << connection.connection_id() << ": agent " << connection.agent_id()
         << " with " << peer.app_name() << " on " << peer.device_name() << " (agent "
         << peer.peer_agent_id() << "), " << stageName(connection.stage()) << "\n";
}

void writeTransfer(std::ostream& text, const wire::TransferReport& transfer) {
    text << "  transfer " << transfer.transaction_id() << ": agent " << transfer.agent_id()
         << (transfer.sending() ? " sending" : " receiving")
         << (transfer.path().empty() ? "" : " " + transfer.path()) << ", " << transfer.done()
         << " of " << transfer.size() << " bytes (" << transfer.progress() << "%), "
         << (transfer.flowing() ? "flowing" : "offered") << "\n";
}

}  // namespace

const char* stageName(wire::ConnectionStage stage) {
    switch (stage) {
        case wire::STAGE_ASKING:
            return "asking";
        case wire::STAGE_INDICATED:
            return "indicated";
        default:
            return "open";
    }
}

std::string statusText(const wire::StatusReport& report) {
    std::ostringstream text;
    text << "device: " << report.device_name() << "\n";
    writeLink(text, report.link());
    text << "sessions: " << report.sessions() << "\nagents: " << report.agents_size() << "\n";
    for (const wire::AgentReport& agent : report.agents()) {
        writeAgent(text, agent);
    }
    text << "connections: " << report.connections_size() << "\n";
    for (const wire::ConnectionReport& connection : report.connections()) {
        writeConnection(text, connection);
    }
    text << "transfers: " << report.transfers_size() << "\n";
    for (const wire::TransferReport& transfer : report.transfers()) {
        writeTransfer(text, transfer);
    }
    text << "queued: " << report.queued_for_apps() << " bytes for apps, "
         << report.queued_for_link() << " bytes for the link\n";
    text << "heap in use: " << report.heap_in_use() << " bytes\n";
    return text.str();
}

}  // namespace Accessory
}  // namespace Kv
