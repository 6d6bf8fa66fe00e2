// The demo run with --trace: the timeline of both devices holds every
// connection, message and file transfer of the run, each send paired with
// its delivery on the other device, as a trace viewer reads it.
#include <ChildProcess.h>
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <kv-accessory/TraceText.h>

#include <fstream>
#include <map>
#include <set>

#include "E2eSupport.h"

namespace KvE2e {
namespace {

namespace wire = kv::accessory::wire;
using google::protobuf::Struct;
using google::protobuf::Value;
using Trace = wire::TraceEvent;

std::string field(const Struct& object, const std::string& name) {
    auto found = object.fields().find(name);
    return found == object.fields().end() ? "" : found->second.string_value();
}

double number(const Struct& object, const std::string& name) {
    auto found = object.fields().find(name);
    return found == object.fields().end() ? -1 : found->second.number_value();
}

std::vector<Trace> deviceTrace(const std::string& path) {
    std::ifstream in(path);
    return Kv::Accessory::readTraceJson(in, path);
}

int countKind(const std::vector<Trace>& events, Trace::Kind kind) {
    return static_cast<int>(std::count_if(events.begin(), events.end(),
                                          [kind](const Trace& e) { return e.kind() == kind; }));
}

TEST(Timeline, TheDemosTimelineHoldsEveryConnectionMessageAndTransfer) {
    const WorkFolder work;
    const std::string timeline = work.path() + "/timeline.json";
    const KvTest::ProcessResult demo = KvTest::runProcess(
        {std::string(KV_EXAMPLES) + "/two-devices.sh", KV_BUILD_DIR, work.path() + "/demo",
         "--trace", timeline},
        {{"KV_PAGE_DISPLAY", "virtual"}, {"KV_DEMO_TIMEOUT", "60"}}, seconds(120));
    ASSERT_EQ(demo.exitCode, 0) << demo.out << demo.err;
    EXPECT_NE(demo.out.find("  timeline: " + timeline), std::string::npos) << demo.out;

    Struct document;
    ASSERT_TRUE(google::protobuf::util::JsonStringToMessage(readText(timeline), &document).ok());
    std::set<std::string> devices;
    std::map<std::string, std::vector<std::string>> spans;  // category to the ends
    std::map<double, int> flowStarts;
    std::map<double, int> flowEnds;
    for (const Value& value : document.fields().at("traceEvents").list_value().values()) {
        const Struct& event = value.struct_value();
        const std::string phase = field(event, "ph");
        if (phase == "M" && field(event, "name") == "process_name") {
            devices.insert(field(event.fields().at("args").struct_value(), "name"));
        } else if (phase == "X" && field(event, "cat") != "message") {
            spans[field(event, "cat")].push_back(
                field(event.fields().at("args").struct_value(), "end"));
        } else if (phase == "s") {
            ++flowStarts[number(event, "id")];
        } else if (phase == "f") {
            ++flowEnds[number(event, "id")];
        }
    }
    EXPECT_EQ(devices, (std::set<std::string>{"watch", "phone"}));
    // One connection and one file, each seen from both devices, all ended.
    ASSERT_EQ(spans["connection"].size(), 2u);
    for (const std::string& end : spans["connection"]) {
        EXPECT_NE(end.find("ended: TERMINATION_CLOSED"), std::string::npos) << end;
    }
    ASSERT_EQ(spans["file"].size(), 2u);
    for (const std::string& end : spans["file"]) {
        EXPECT_NE(end.find("ended: FILE_DONE"), std::string::npos) << end;
    }
    // Every send of either device is in the timeline with its delivery.
    const std::vector<Trace> watch = deviceTrace(work.path() + "/demo/watch.trace.jsonl");
    const std::vector<Trace> phone = deviceTrace(work.path() + "/demo/phone.trace.jsonl");
    const int sends = countKind(watch, Trace::DATA_SENT) + countKind(phone, Trace::DATA_SENT);
    EXPECT_EQ(countKind(watch, Trace::DATA_DELIVERED) + countKind(phone, Trace::DATA_DELIVERED),
              sends);
    EXPECT_EQ(flowStarts, flowEnds);
    EXPECT_EQ(static_cast<int>(flowStarts.size()), sends);
    for (const auto& [id, count] : flowStarts) {
        EXPECT_EQ(count, 1) << "flow " << id;
    }
    // What the apps say they got is in the trace: the watch's hello on each
    // of its two channels, and at least as many deliveries to the phone.
    const std::string transcript = readText(work.path() + "/demo/transcript.txt");
    EXPECT_EQ(countKind(watch, Trace::DATA_DELIVERED), 2) << transcript;
    for (const std::vector<Trace>* device : {&watch, &phone}) {
        for (const Trace& event : *device) {
            if (event.kind() == Trace::DATA_DELIVERED) {
                EXPECT_GT(event.sent_at_us(), 0u);
                EXPECT_GE(event.time_us(), event.sent_at_us());
            }
        }
    }
}

}  // namespace
}  // namespace KvE2e
