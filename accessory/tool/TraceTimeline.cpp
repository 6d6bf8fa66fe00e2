#include <kv-accessory/TraceText.h>
#include <kv-accessory/TraceTimeline.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "JsonWriter.h"

namespace Kv {
namespace Accessory {

namespace {

using Trace = wire::TraceEvent;

// How long a message's slice lasts at most, in microseconds.
constexpr std::uint64_t kMessageSlice = 200;

// A span of a connection or a file transfer on one device.
struct Span {
    int pid = 0;
    int tid = 0;
    std::string name;
    std::uint64_t start = 0;
    std::optional<std::uint64_t> end;
    std::string outcome;
};

bool isFile(Trace::Kind kind) {
    return kind == Trace::FILE_OFFERED || kind == Trace::FILE_ACCEPTED ||
           kind == Trace::FILE_PROGRESS || kind == Trace::FILE_ENDED;
}

class Timeline {
public:
    explicit Timeline(std::vector<Trace> events) : m_events(std::move(events)) {
        std::stable_sort(m_events.begin(), m_events.end(),
                         [](const Trace& a, const Trace& b) { return a.time_us() < b.time_us(); });
        m_origin = m_events.empty() ? 0 : m_events.front().time_us();
        m_last = m_events.empty() ? 0 : m_events.back().time_us();
    }

    std::string json(TimelineSummary* summary) {
        m_json.beginObject().member("displayTimeUnit", "ms").key("traceEvents").beginArray();
        for (const Trace& event : m_events) {
            place(event);
        }
        writeSpans(m_connections, "connection");
        writeSpans(m_transfers, "file");
        writeMessages();
        writeTrackNames();
        m_json.endArray().endObject();
        if (summary != nullptr) {
            summary->devices = m_processes.size();
            summary->connections = m_connections.size();
            summary->transfers = m_transfers.size();
            summary->messages = m_paired;
            summary->unpaired = m_unpaired;
        }
        return m_json.text();
    }

private:
    using TrackKey = std::tuple<int, std::string>;
    using SpanKey = std::tuple<int, std::int64_t>;  // process, connection or transfer id

    std::uint64_t ts(std::uint64_t time) const { return time - m_origin; }

    int process(const std::string& device) {
        auto [at, added] = m_processes.emplace(device, static_cast<int>(m_processes.size()) + 1);
        return at->second;
    }

    int track(int pid, const std::string& key, const std::string& name) {
        auto [at, added] = m_tracks.emplace(TrackKey{pid, key}, 0);
        if (added) {
            at->second = ++m_tracksIn[pid];
            m_trackNames[{pid, at->second}] = name;
        }
        return at->second;
    }

    int appTrack(int pid, const Trace& event) {
        if (event.app().empty()) {
            return track(pid, "link", "link");
        }
        return track(pid, "app " + event.app(), "app " + event.app());
    }

    void place(const Trace& event) {
        const int pid = process(event.device());
        switch (event.kind()) {
            case Trace::TRACE_STARTED:
                return;
            case Trace::DATA_SENT:
            case Trace::DATA_DELIVERED:
                return noteMessage(pid, event);
            case Trace::CONNECTION_MADE:
            case Trace::CONNECTION_ACCEPTED:
            case Trace::CONNECTION_ENDED:
                if (noteConnection(pid, event)) {
                    return;
                }
                break;
            default:
                if (isFile(event.kind())) {
                    noteTransfer(pid, event);
                }
                break;
        }
        instant(pid, appTrack(pid, event), event);
    }

    // A connection's span runs from its making to its end; an end without a
    // making (the link went before) is an instant.
    bool noteConnection(int pid, const Trace& event) {
        const SpanKey key{pid, event.connection_id()};
        if (event.kind() != Trace::CONNECTION_ENDED) {
            Span& span = m_connections[key];
            span.pid = pid;
            span.tid = track(
                pid, "connection " + std::to_string(event.connection_id()),
                "connection " + std::to_string(event.connection_id()) + " (" + event.app() + ")");
            span.name =
                "connection " + std::to_string(event.connection_id()) + " with " + event.text();
            span.start = event.time_us();
            return true;
        }
        auto found = m_connections.find(key);
        if (found == m_connections.end()) {
            return false;
        }
        found->second.end = event.time_us();
        found->second.outcome = traceWhat(event);
        return true;
    }

    void noteTransfer(int pid, const Trace& event) {
        const SpanKey key{pid, event.transaction_id()};
        auto found = m_transfers.find(key);
        if (found == m_transfers.end()) {
            Span span;
            span.pid = pid;
            span.tid =
                track(pid, "file " + std::to_string(event.transaction_id()),
                      "file " + std::to_string(event.transaction_id()) + " (" + event.app() + ")");
            span.name = "file " + std::to_string(event.transaction_id()) + ": " + event.text();
            span.start = event.time_us();
            found = m_transfers.emplace(key, span).first;
        }
        if (event.kind() == Trace::FILE_ENDED) {
            found->second.end = event.time_us();
            found->second.outcome = traceWhat(event);
        }
    }

    // Sends and deliveries pair up by the sending device and its number of
    // the message.
    void noteMessage(int pid, const Trace& event) {
        if (event.kind() == Trace::DATA_SENT && event.status() != wire::RESULT_SUCCESS) {
            instant(pid, appTrack(pid, event), event);
            return;
        }
        const bool sent = event.kind() == Trace::DATA_SENT;
        const std::string sender = sent ? event.device() : event.peer_device();
        Message& message = m_messages[{sender, event.message_id()}];
        (sent ? message.send : message.delivery) = std::make_pair(pid, event);
    }

    struct Message {
        std::optional<std::pair<int, Trace>> send;
        std::optional<std::pair<int, Trace>> delivery;
    };

    void instant(int pid, int tid, const Trace& event) {
        m_json.beginObject().member("ph", "i").member("s", "t").member("name", traceWhat(event));
        m_json.member("cat", Trace::Kind_Name(event.kind())).member("pid", pid).member("tid", tid);
        m_json.member("ts", ts(event.time_us())).endObject();
    }

    void writeSpans(const std::map<SpanKey, Span>& spans, const char* category) {
        for (const auto& [key, span] : spans) {
            const std::uint64_t end = span.end.value_or(m_last);
            m_json.beginObject().member("ph", "X").member("name", span.name);
            m_json.member("cat", category).member("pid", span.pid).member("tid", span.tid);
            m_json.member("ts", ts(span.start))
                .member("dur", std::max<std::uint64_t>(end - span.start, 1));
            m_json.key("args").beginObject();
            m_json.member("end", span.end ? span.outcome : "still open when the trace ended");
            m_json.endObject().endObject();
        }
    }

    // A message is a short slice on its connection's track at each end,
    // and a flow arrow from the send to the delivery.
    void writeMessages() {
        for (const auto& [key, message] : m_messages) {
            if (message.send && message.delivery) {
                for (const auto* end : {&*message.send, &*message.delivery}) {
                    m_messageStarts[{end->first, connectionTrack(*end)}].insert(
                        ts(end->second.time_us()));
                }
            }
        }
        std::uint64_t flow = 0;
        for (const auto& [key, message] : m_messages) {
            if (!message.send || !message.delivery) {
                ++m_unpaired;
                continue;
            }
            ++m_paired;
            ++flow;
            writeMessageEnd(*message.send, flow, "s");
            writeMessageEnd(*message.delivery, flow, "f");
        }
    }

    int connectionTrack(const std::pair<int, Trace>& end) {
        const auto& [pid, event] = end;
        return track(
            pid, "connection " + std::to_string(event.connection_id()),
            "connection " + std::to_string(event.connection_id()) + " (" + event.app() + ")");
    }

    // A message's slice lasts a little, so that a viewer shows it, but ends
    // before the next one on its track begins: slices of one track nest or
    // follow each other, never overlap.
    std::uint64_t messageSliceLength(int pid, int tid, std::uint64_t start) const {
        const std::set<std::uint64_t>& starts = m_messageStarts.at({pid, tid});
        auto next = starts.upper_bound(start);
        const std::uint64_t room = next == starts.end() ? kMessageSlice : *next - start;
        return std::clamp<std::uint64_t>(room, 1, kMessageSlice);
    }

    void writeMessageEnd(const std::pair<int, Trace>& end, std::uint64_t flow, const char* phase) {
        const auto& [pid, event] = end;
        const int tid = connectionTrack(end);
        const std::string name =
            std::string(event.kind() == Trace::DATA_SENT ? "send" : "delivery") + " " +
            std::to_string(event.size()) + " B on channel " + std::to_string(event.channel_id());
        m_json.beginObject().member("ph", "X").member("name", name).member("cat", "message");
        m_json.member("pid", pid).member("tid", tid).member("ts", ts(event.time_us()));
        m_json.member("dur", messageSliceLength(pid, tid, ts(event.time_us())));
        m_json.key("args").beginObject().member("what", traceWhat(event));
        m_json.endObject().endObject();
        m_json.beginObject().member("ph", phase).member("name", "message").member("cat", "message");
        m_json.member("id", flow).member("pid", pid).member("tid", tid);
        m_json.member("ts", ts(event.time_us()));
        if (phase[0] == 'f') {
            m_json.member("bp", "e");
        }
        m_json.endObject();
    }

    void writeTrackNames() {
        for (const auto& [device, pid] : m_processes) {
            m_json.beginObject()
                .member("ph", "M")
                .member("name", "process_name")
                .member("pid", pid);
            m_json.key("args").beginObject().member("name", device).endObject().endObject();
        }
        for (const auto& [track, name] : m_trackNames) {
            m_json.beginObject().member("ph", "M").member("name", "thread_name");
            m_json.member("pid", track.first).member("tid", track.second);
            m_json.key("args").beginObject().member("name", name).endObject().endObject();
        }
    }

    std::vector<Trace> m_events;
    std::uint64_t m_origin = 0;
    std::uint64_t m_last = 0;
    JsonWriter m_json;
    std::map<std::string, int> m_processes;
    std::map<TrackKey, int> m_tracks;
    std::map<int, int> m_tracksIn;
    std::map<std::pair<int, int>, std::string> m_trackNames;
    std::map<SpanKey, Span> m_connections;
    std::map<SpanKey, Span> m_transfers;
    std::map<std::pair<std::string, std::uint64_t>, Message> m_messages;
    std::map<std::pair<int, int>, std::set<std::uint64_t>> m_messageStarts;
    std::size_t m_paired = 0;
    std::size_t m_unpaired = 0;
};

}  // namespace

std::string timelineJson(std::vector<wire::TraceEvent> events, TimelineSummary* summary) {
    return Timeline(std::move(events)).json(summary);
}

}  // namespace Accessory
}  // namespace Kv
