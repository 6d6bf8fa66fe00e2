// What the system tells of another process.
#ifndef KV_PLATFORM_DEVICE_PROCESS_H
#define KV_PLATFORM_DEVICE_PROCESS_H

#include <sys/types.h>

#include <optional>
#include <string>

namespace Kv {
namespace Device {

// Field `number` of /proc/<pid>/stat (3 is the state, 22 the start time),
// counted as proc(5) counts them; nothing when there is no such process.
std::optional<std::string> processStatField(pid_t pid, int number);

// Whether process `pid` runs: it exists and has not ended. A process that
// has ended but whose parent has not collected it yet (a zombie) has ended.
bool processRunning(pid_t pid);

}  // namespace Device
}  // namespace Kv

#endif
