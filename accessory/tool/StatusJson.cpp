#include "StatusJson.h"

#include <kv-accessory/StatusText.h>

#include "JsonWriter.h"

namespace Kv {
namespace Accessory {

namespace {

void writeLink(JsonWriter& json, const wire::LinkReport& link) {
    json.key("link").beginObject();
    json.member("configured", link.configured()).member("state", link.up() ? "up" : "down");
    if (link.configured()) {
        json.member("enabled", link.enabled()).member("address", link.address());
        json.member("security", link.tls() ? "tls" : "none").member("secure", link.secure());
    }
    if (!link.keylog().empty()) {
        json.member("keylog", link.keylog());
    }
    if (link.up()) {
        json.member("peer", link.peer_name());
    }
    if (link.secure()) {
        json.member("peer_certificate", link.peer_fingerprint());
    }
    json.endObject();
}

void writeAgent(JsonWriter& json, const wire::AgentReport& agent) {
    json.beginObject().member("id", agent.agent_id()).member("app", agent.app_id());
    json.member("profile", agent.profile_id());
    json.member("role", agent.consumer() ? "consumer" : "provider").endObject();
}

void writeConnection(JsonWriter& json, const wire::ConnectionReport& connection) {
    json.beginObject().member("id", connection.connection_id());
    json.member("agent", connection.agent_id()).member("state", stageName(connection.stage()));
    const wire::PeerAgent& peer = connection.peer();
    json.key("peer").beginObject().member("device", peer.device_name());
    json.member("app", peer.app_name()).member("agent", peer.peer_agent_id());
    json.member("profile", peer.profile_id()).endObject();
    json.endObject();
}

void writeTransfer(JsonWriter& json, const wire::TransferReport& transfer) {
    json.beginObject().member("id", transfer.transaction_id()).member("agent", transfer.agent_id());
    json.member("direction", transfer.sending() ? "sending" : "receiving");
    json.member("state", transfer.flowing() ? "flowing" : "offered");
    json.member("path", transfer.path()).member("size", transfer.size());
    json.member("done", transfer.done()).member("progress", transfer.progress());
    json.endObject();
}

template <typename Entry>
void writeList(JsonWriter& json, const char* name,
               const google::protobuf::RepeatedPtrField<Entry>& entries,
               void (*write)(JsonWriter&, const Entry&)) {
    json.key(name).beginArray();
    for (const Entry& entry : entries) {
        write(json, entry);
    }
    json.endArray();
}

}  // namespace

std::string statusJson(const wire::StatusReport& report) {
    JsonWriter json;
    json.beginObject().member("device", report.device_name());
    writeLink(json, report.link());
    json.member("sessions", report.sessions());
    writeList(json, "agents", report.agents(), writeAgent);
    writeList(json, "connections", report.connections(), writeConnection);
    writeList(json, "transfers", report.transfers(), writeTransfer);
    json.member("queued_for_apps", report.queued_for_apps());
    json.member("queued_for_link", report.queued_for_link());
    json.member("heap_in_use", report.heap_in_use()).endObject();
    return json.text();
}

}  // namespace Accessory
}  // namespace Kv
