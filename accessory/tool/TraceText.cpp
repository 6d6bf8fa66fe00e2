#include <google/protobuf/util/json_util.h>
#include <kv-accessory/TraceText.h>

#include <cstdio>
#include <ctime>
#include <sstream>
#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

using Trace = wire::TraceEvent;

std::string localTime(std::uint64_t micros) {
    const std::time_t seconds = static_cast<std::time_t>(micros / 1000000);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%03u", local.tm_hour, local.tm_min,
                  local.tm_sec, static_cast<unsigned>(micros / 1000 % 1000));
    return text;
}

std::string number(std::uint64_t value) { return std::to_string(value); }

// "connection 9, channel 120".
std::string where(const Trace& event) {
    return "connection " + number(event.connection_id()) + ", channel " +
           number(event.channel_id());
}

std::string dataSent(const Trace& event) {
    std::string text = where(event) + ": ";
    if (event.status() != wire::RESULT_SUCCESS) {
        return text + "a send of " + number(event.size()) + " bytes refused (" +
               wire::Result_Name(static_cast<wire::Result>(event.status())) + ")";
    }
    return text + "sent " + number(event.size()) + " bytes, " +
           (event.secure() ? "secure" : "plain") + ", message " + number(event.message_id());
}

std::string dataDelivered(const Trace& event) {
    std::string text = where(event) + ": delivered " + number(event.size()) + " bytes, " +
                       (event.secure() ? "secure" : "plain") + ", message " +
                       number(event.message_id()) + " of " + event.peer_device();
    if (event.sent_at_us() != 0 && event.time_us() >= event.sent_at_us()) {
        char latency[48];
        std::snprintf(latency, sizeof(latency), ", %.3f ms after its send",
                      static_cast<double>(event.time_us() - event.sent_at_us()) / 1000.0);
        text += latency;
    }
    return text;
}

std::string fileWhat(const Trace& event) {
    const std::string file = "file " + std::to_string(event.transaction_id());
    switch (event.kind()) {
        case Trace::FILE_OFFERED:
            return event.sending() ? file + " offered to the peer: " + event.text() + " (" +
                                         number(event.size()) + " bytes)"
                                   : file + " offered to this app: " + event.text() + " (" +
                                         number(event.size()) + " bytes)";
        case Trace::FILE_ACCEPTED:
            return file +
                   (event.sending() ? " accepted by the peer" : " accepted into " + event.text());
        case Trace::FILE_PROGRESS:
            return file + (event.sending() ? " sent " : " received ") +
                   std::to_string(event.progress()) + " %";
        default:
            return file + " ended: " +
                   wire::FileStatus_Name(static_cast<wire::FileStatus>(event.status())) +
                   (event.text().empty() ? "" : ", " + event.text());
    }
}

std::string connectionWhat(const Trace& event) {
    const std::string connection = "connection " + number(event.connection_id());
    switch (event.kind()) {
        case Trace::CONNECTION_REQUESTED:
            return "agent " + number(event.agent_id()) + " asks agent " +
                   number(event.peer_agent_id()) + " (" + event.text() + ") for a connection";
        case Trace::CONNECTION_INDICATED:
            return connection + ": agent " + number(event.peer_agent_id()) + " (" + event.text() +
                   ") asks agent " + number(event.agent_id());
        case Trace::CONNECTION_ACCEPTED:
            return connection + " accepted: made with agent " + number(event.peer_agent_id()) +
                   " (" + event.text() + "), its connection " + number(event.peer_connection_id());
        case Trace::CONNECTION_REJECTED:
            return connection + " rejected";
        case Trace::CONNECTION_MADE:
            return connection + " made with agent " + number(event.peer_agent_id()) + " (" +
                   event.text() + "), its connection " + number(event.peer_connection_id());
        case Trace::CONNECTION_FAILED:
            return "a connection asked for by agent " + number(event.agent_id()) + " failed: " +
                   wire::ConnectionStatus_Name(static_cast<wire::ConnectionStatus>(event.status()));
        default:
            return connection + " ended: " +
                   wire::TerminationReason_Name(
                       static_cast<wire::TerminationReason>(event.status()));
    }
}

std::string linkWhat(const Trace& event) {
    switch (event.kind()) {
        case Trace::LINK_UP:
            return "link up with " + event.peer_device() +
                   (event.secure() ? " (authenticated TLS)" : " (not authenticated)");
        case Trace::LINK_DOWN:
            return "link down";
        default:
            return "fault: " + event.text() +
                   (event.size() != 0 ? " for " + number(event.size()) + " ms" : "");
    }
}

std::string started(const Trace& event) {
    return "tracing " + event.device() + ": link profile " + event.profile() + ", link " +
           (event.up() ? "up with " + event.peer_device() : std::string("down"));
}

std::string findWhat(const Trace& event) {
    const std::string agent = "agent " + number(event.agent_id());
    if (event.kind() == Trace::FIND_STARTED) {
        return agent + " searches";
    }
    if (event.status() == wire::SEARCH_FOUND) {
        return agent + " found agent " + number(event.peer_agent_id()) + " (" + event.text() +
               ") on " + event.peer_device();
    }
    return agent + "'s search ended: " +
           wire::SearchStatus_Name(static_cast<wire::SearchStatus>(event.status()));
}

}  // namespace

std::string traceWhat(const wire::TraceEvent& event) {
    switch (event.kind()) {
        case Trace::TRACE_STARTED:
            return started(event);
        case Trace::SESSION_OPENED:
            return "session opened";
        case Trace::SESSION_CLOSED:
            return "session closed";
        case Trace::AGENT_REGISTERED:
            return "agent " + number(event.agent_id()) + " registered: " + event.text();
        case Trace::AGENT_REMOVED:
            return "agent " + number(event.agent_id()) + " removed: " + event.text();
        case Trace::FIND_STARTED:
        case Trace::FIND_ANSWERED:
            return findWhat(event);
        case Trace::DATA_SENT:
            return dataSent(event);
        case Trace::DATA_DELIVERED:
            return dataDelivered(event);
        case Trace::FILE_OFFERED:
        case Trace::FILE_ACCEPTED:
        case Trace::FILE_PROGRESS:
        case Trace::FILE_ENDED:
            return fileWhat(event);
        case Trace::LINK_UP:
        case Trace::LINK_DOWN:
        case Trace::LINK_FAULT:
            return linkWhat(event);
        case Trace::CHANNEL_FULL:
            return where(event) + ": full, sends are refused";
        case Trace::CHANNEL_ROOM:
            return where(event) + ": room again";
        case Trace::SERVICE_ERROR:
            return "service error " +
                   wire::ServiceError_Name(static_cast<wire::ServiceError>(event.status())) + " (" +
                   number(event.size()) + ")";
        default:
            return connectionWhat(event);
    }
}

std::string traceText(const wire::TraceEvent& event) {
    return localTime(event.time_us()) + "  " + event.device() + "  " +
           (event.app().empty() ? "-" : event.app()) + "  " + traceWhat(event);
}

std::string traceJson(const wire::TraceEvent& event) {
    google::protobuf::util::JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    std::string json;
    if (!google::protobuf::util::MessageToJsonString(event, &json, options).ok()) {
        throw std::runtime_error("cannot write a trace event as JSON");
    }
    return json;
}

std::vector<wire::TraceEvent> readTraceJson(std::istream& in, const std::string& name) {
    std::vector<wire::TraceEvent> events;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        wire::TraceEvent event;
        if (!google::protobuf::util::JsonStringToMessage(line, &event).ok()) {
            throw std::runtime_error(name + ":" + std::to_string(number) +
                                     ": not a trace event of kv-accessory trace --json");
        }
        events.push_back(std::move(event));
    }
    return events;
}

}  // namespace Accessory
}  // namespace Kv
