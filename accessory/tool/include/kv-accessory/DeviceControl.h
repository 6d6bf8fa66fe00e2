// What the kv-accessory tool does to a device's accessory service: start
// the daemon in the background, ask it for its status, steer its link, stop it.
#ifndef KV_ACCESSORY_TOOL_DEVICE_CONTROL_H
#define KV_ACCESSORY_TOOL_DEVICE_CONTROL_H

#include <kv-accessory/Codec.h>

#include <functional>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

// Starts kv-accessoryd for the device folder `device` with the extra
// arguments, its output going to <device>/accessoryd.log, and waits until it
// serves. Without arguments, the daemon gets those it was last started with
// (a listening port that the system chose stays the same), so that a daemon
// that was stopped or killed comes back linked as before. Throws
// std::runtime_error when it does not start.
void startDaemon(const std::string& device, const std::vector<std::string>& arguments);

// Runs kv-accessoryd for the device folder `device` in this process, with
// the extra arguments, else with those it was last started with; its output
// stays on this process's. What the daemon is started with is not
// remembered. Returns only by throwing std::runtime_error: when the daemon
// runs already or cannot be started.
[[noreturn]] void runDaemonInForeground(const std::string& device,
                                        const std::vector<std::string>& arguments);

// The port the device's daemon listens on for its link.
unsigned short listeningPort(const std::string& device);

// Sends one control request to the device's daemon and returns its reply.
// Throws std::runtime_error when the daemon can't be reached.
wire::Reply control(const std::string& device, wire::Request request);

// Follows the device's daemon live: calls `onEvent` with each thing it does
// (a trace event) until `onEvent` returns false or the daemon ends the
// session (it stops, or found this follower too slow). Throws
// std::runtime_error when the daemon can't be reached.
void followTrace(const std::string& device,
                 const std::function<bool(const wire::TraceEvent&)>& onEvent);

// Stops the device's daemon and waits until it is gone. Returns false when
// none was running.
bool stopDaemon(const std::string& device);

// Waits until the device's link is up; false after the timeout.
bool waitLinked(const std::string& device, int timeoutMilliseconds);

}  // namespace Accessory
}  // namespace Kv

#endif
