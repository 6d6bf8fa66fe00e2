// A daemon's trace events as people and programs read them: one line each,
// as text ("14:02:03.123  watch  wsensor.App  connection 9 made ...") or as
// a JSON object with the fields of the wire's TraceEvent; and back from
// those JSON lines.
#ifndef KV_ACCESSORY_TRACE_TEXT_H
#define KV_ACCESSORY_TRACE_TEXT_H

#include <kv-accessory/Codec.h>

#include <istream>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

// The event's time (local, to the millisecond), its device and app, and
// what happened; no line end.
std::string traceText(const wire::TraceEvent& event);

// What happened, without the time, device and app.
std::string traceWhat(const wire::TraceEvent& event);

// One JSON object on one line, no line end.
std::string traceJson(const wire::TraceEvent& event);

// The events of JSON lines that traceJson wrote (blank lines skipped).
// Throws std::runtime_error naming the line that is not one.
std::vector<wire::TraceEvent> readTraceJson(std::istream& in, const std::string& name);

}  // namespace Accessory
}  // namespace Kv

#endif
