// A daemon's trace as text and JSON lines, read back, and the timeline of
// two devices' traces: its tracks, spans, messages and flows, read back as
// a viewer reads the trace-event format.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <kv-accessory/TraceText.h>
#include <kv-accessory/TraceTimeline.h>

#include <map>
#include <set>
#include <sstream>

namespace KvTest {
namespace {

namespace wire = kv::accessory::wire;
using Trace = wire::TraceEvent;
using google::protobuf::Struct;
using google::protobuf::Value;
using Kv::Accessory::traceWhat;

constexpr std::uint64_t kStart = 1'800'000'000'000'000;

Trace event(const std::string& device, Trace::Kind kind, std::uint64_t ms) {
    Trace made;
    made.set_device(device);
    made.set_kind(kind);
    made.set_time_us(kStart + ms * 1000);
    made.set_app(device == "phone" ? "phone.App" : "watch.App");
    return made;
}

Trace data(const std::string& device, Trace::Kind kind, std::uint64_t ms, std::uint32_t connection,
           std::uint64_t message) {
    Trace made = event(device, kind, ms);
    made.set_connection_id(connection);
    made.set_channel_id(104);
    made.set_size(20);
    made.set_message_id(message);
    if (kind == Trace::DATA_DELIVERED) {
        made.set_peer_device(device == "phone" ? "watch" : "phone");
        made.set_sent_at_us(kStart + (ms - 2) * 1000);
    }
    return made;
}

Trace connection(const std::string& device, Trace::Kind kind, std::uint64_t ms, std::uint32_t id) {
    Trace made = event(device, kind, ms);
    made.set_connection_id(id);
    made.set_text(device == "phone" ? "Watch app" : "Phone app");
    return made;
}

Trace file(const std::string& device, Trace::Kind kind, std::uint64_t ms, int id) {
    Trace made = event(device, kind, ms);
    made.set_transaction_id(id);
    made.set_text("report.txt");
    made.set_sending(device == "phone");
    return made;
}

// A conversation: a connection, two messages each way, a file, the end.
std::vector<Trace> conversation() {
    return {
        connection("phone", Trace::CONNECTION_MADE, 10, 7),
        connection("watch", Trace::CONNECTION_ACCEPTED, 9, 3),
        data("phone", Trace::DATA_SENT, 11, 7, 1),
        data("watch", Trace::DATA_DELIVERED, 13, 3, 1),
        data("phone", Trace::DATA_SENT, 12, 7, 2),
        data("watch", Trace::DATA_DELIVERED, 14, 3, 2),
        data("watch", Trace::DATA_SENT, 15, 3, 1),
        data("phone", Trace::DATA_DELIVERED, 17, 7, 1),
        file("phone", Trace::FILE_OFFERED, 20, 40),
        file("watch", Trace::FILE_OFFERED, 21, 90),
        file("watch", Trace::FILE_ENDED, 30, 90),
        file("phone", Trace::FILE_ENDED, 31, 40),
        connection("phone", Trace::CONNECTION_ENDED, 40, 7),
        connection("watch", Trace::CONNECTION_ENDED, 41, 3),
    };
}

Struct parse(const std::string& json) {
    Struct parsed;
    EXPECT_TRUE(google::protobuf::util::JsonStringToMessage(json, &parsed).ok()) << json;
    return parsed;
}

std::vector<Struct> traceEvents(const Struct& document) {
    std::vector<Struct> events;
    for (const Value& value : document.fields().at("traceEvents").list_value().values()) {
        events.push_back(value.struct_value());
    }
    return events;
}

std::string text(const Struct& object, const std::string& field) {
    auto found = object.fields().find(field);
    return found == object.fields().end() ? "" : found->second.string_value();
}

double number(const Struct& object, const std::string& field) {
    auto found = object.fields().find(field);
    return found == object.fields().end() ? -1 : found->second.number_value();
}

TEST(TraceText, EachKindReadsAsASentence) {
    Trace made = data("watch", Trace::DATA_DELIVERED, 13, 3, 1);
    EXPECT_EQ(traceWhat(made),
              "connection 3, channel 104: delivered 20 bytes, plain, message 1 of phone, 2.000 ms "
              "after its send");
    EXPECT_NE(Kv::Accessory::traceText(made).find("  watch  watch.App  connection 3"),
              std::string::npos);
    made = data("phone", Trace::DATA_SENT, 11, 7, 5);
    made.set_secure(true);
    EXPECT_EQ(traceWhat(made), "connection 7, channel 104: sent 20 bytes, secure, message 5");
    made.set_status(wire::RESULT_GENERAL);
    EXPECT_EQ(traceWhat(made),
              "connection 7, channel 104: a send of 20 bytes refused (RESULT_GENERAL)");
    made = file("watch", Trace::FILE_ENDED, 30, 90);
    made.set_status(wire::FILE_CANCELLED);
    EXPECT_EQ(traceWhat(made), "file 90 ended: FILE_CANCELLED, report.txt");
    made = connection("phone", Trace::CONNECTION_ENDED, 40, 7);
    made.set_status(wire::TERMINATION_DEVICE_DETACHED);
    EXPECT_EQ(traceWhat(made), "connection 7 ended: TERMINATION_DEVICE_DETACHED");
    made = event("phone", Trace::LINK_FAULT, 1);
    made.set_text("stall");
    made.set_size(1000);
    EXPECT_EQ(traceWhat(made), "fault: stall for 1000 ms");
}

TEST(TraceText, JsonLinesReadBackToTheSameEvents) {
    std::string lines;
    for (const Trace& made : conversation()) {
        lines += Kv::Accessory::traceJson(made) + "\n\n";
    }
    std::istringstream in(lines);
    const std::vector<Trace> read = Kv::Accessory::readTraceJson(in, "trace");
    ASSERT_EQ(read.size(), conversation().size());
    for (std::size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(read[i].SerializeAsString(), conversation()[i].SerializeAsString()) << i;
    }
    EXPECT_NE(Kv::Accessory::traceJson(read[2]).find("\"kind\":\"DATA_SENT\""), std::string::npos);
}

TEST(TraceText, ALineThatIsNoEventIsNamed) {
    std::istringstream in(Kv::Accessory::traceJson(conversation()[0]) + "\nnot json\n");
    try {
        Kv::Accessory::readTraceJson(in, "watch.jsonl");
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "watch.jsonl:2: not a trace event of kv-accessory trace --json");
    }
}

TEST(TraceTimeline, HasATrackPerDeviceAppConnectionAndFile) {
    Kv::Accessory::TimelineSummary summary;
    const Struct document = parse(Kv::Accessory::timelineJson(conversation(), &summary));
    EXPECT_EQ(summary.devices, 2u);
    EXPECT_EQ(summary.connections, 2u);
    EXPECT_EQ(summary.transfers, 2u);
    EXPECT_EQ(summary.messages, 3u);
    EXPECT_EQ(summary.unpaired, 0u);
    std::map<double, std::string> processes;
    std::set<std::string> tracks;
    for (const Struct& made : traceEvents(document)) {
        if (text(made, "ph") == "M" && text(made, "name") == "process_name") {
            processes[number(made, "pid")] = text(made.fields().at("args").struct_value(), "name");
        }
        if (text(made, "ph") == "M" && text(made, "name") == "thread_name") {
            tracks.insert(text(made.fields().at("args").struct_value(), "name"));
        }
    }
    EXPECT_EQ(processes.size(), 2u);
    EXPECT_EQ(tracks, (std::set<std::string>{"app phone.App", "app watch.App",
                                             "connection 7 (phone.App)", "connection 3 (watch.App)",
                                             "file 40 (phone.App)", "file 90 (watch.App)"}));
}

TEST(TraceTimeline, SpansRunFromTheMakingToTheEnd) {
    const Struct document = parse(Kv::Accessory::timelineJson(conversation()));
    int spans = 0;
    for (const Struct& made : traceEvents(document)) {
        if (text(made, "ph") != "X" || text(made, "cat") == "message") {
            continue;
        }
        ++spans;
        if (text(made, "name") == "connection 7 with Watch app") {
            EXPECT_EQ(number(made, "ts"), 1000);  // from the first event, in microseconds
            EXPECT_EQ(number(made, "dur"), 30000);
            EXPECT_EQ(text(made.fields().at("args").struct_value(), "end"),
                      "connection 7 ended: TERMINATION_CLOSED");
        }
        if (text(made, "name") == "file 90: report.txt") {
            EXPECT_EQ(number(made, "dur"), 9000);
        }
    }
    EXPECT_EQ(spans, 4);
}

// Every flow that starts at a send ends at its delivery, on the other
// device, and inside a message's slice on a connection's track.
TEST(TraceTimeline, EveryFlowGoesFromASendToItsDelivery) {
    const Struct document = parse(Kv::Accessory::timelineJson(conversation()));
    std::map<double, Struct> starts;
    std::map<double, Struct> ends;
    std::set<std::tuple<double, double, double>> messageSlices;  // pid, tid, ts
    for (const Struct& made : traceEvents(document)) {
        if (text(made, "ph") == "s") {
            EXPECT_TRUE(starts.emplace(number(made, "id"), made).second);
        } else if (text(made, "ph") == "f") {
            EXPECT_EQ(text(made, "bp"), "e");
            EXPECT_TRUE(ends.emplace(number(made, "id"), made).second);
        } else if (text(made, "ph") == "X" && text(made, "cat") == "message") {
            messageSlices.emplace(number(made, "pid"), number(made, "tid"), number(made, "ts"));
        }
    }
    ASSERT_EQ(starts.size(), 3u);
    for (const auto& [id, start] : starts) {
        ASSERT_EQ(ends.count(id), 1u) << id;
        const Struct& end = ends.at(id);
        EXPECT_NE(number(start, "pid"), number(end, "pid"));
        EXPECT_LE(number(start, "ts"), number(end, "ts"));
        EXPECT_EQ(
            messageSlices.count({number(start, "pid"), number(start, "tid"), number(start, "ts")}),
            1u);
        EXPECT_EQ(messageSlices.count({number(end, "pid"), number(end, "tid"), number(end, "ts")}),
                  1u);
    }
}

TEST(TraceTimeline, ASendWithoutItsDeliveryHasNoFlow) {
    std::vector<Trace> events = conversation();
    events.push_back(data("phone", Trace::DATA_SENT, 35, 7, 3));
    Kv::Accessory::TimelineSummary summary;
    const Struct document = parse(Kv::Accessory::timelineJson(events, &summary));
    EXPECT_EQ(summary.messages, 3u);
    EXPECT_EQ(summary.unpaired, 1u);
    int flows = 0;
    for (const Struct& made : traceEvents(document)) {
        flows += text(made, "ph") == "s" ? 1 : 0;
    }
    EXPECT_EQ(flows, 3);
}

}  // namespace
}  // namespace KvTest
