// What a group of processes costs the machine, read from /proc: their
// memory (proportional and resident set size) and how often their threads
// wake up (context switches). The bench measures page apps with it, whose
// host starts the engine's processes as its children.
#ifndef KV_BENCH_PROCESS_FOOTPRINT_H
#define KV_BENCH_PROCESS_FOOTPRINT_H

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KvBench {

struct ProcessMemory {
    pid_t pid = 0;
    std::string name;   // the process's command name
    double pssMiB = 0;  // its share of the pages it maps
    double rssMiB = 0;  // the pages it has in memory
};

// `root` and every process descended from it.
std::vector<pid_t> processTree(pid_t root);

// The memory of one process (zeros when it is gone).
ProcessMemory memoryOf(pid_t pid);

// Context switches, voluntary and not, of each thread of `pids` so far, by
// thread id.
using WakeUps = std::map<pid_t, std::uint64_t>;
WakeUps wakeUps(const std::vector<pid_t>& pids);

// The context switches between two readings: each thread's growth (a thread
// made meanwhile counts whole, one that ended meanwhile not at all).
std::uint64_t wakeUpsBetween(const WakeUps& before, const WakeUps& after);

// Those of the process's main thread alone.
std::uint64_t mainThreadWakeUps(pid_t pid);

}  // namespace KvBench

#endif
