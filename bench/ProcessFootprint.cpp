#include "ProcessFootprint.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace KvBench {

namespace {

namespace fs = std::filesystem;

std::string firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// The parent of `pid`, from /proc/<pid>/stat (after the command's closing
// parenthesis: the state, then the parent).
pid_t parentOf(pid_t pid) {
    const std::string stat = firstLine("/proc/" + std::to_string(pid) + "/stat");
    const auto close = stat.rfind(')');
    if (close == std::string::npos) {
        return 0;
    }
    std::istringstream fields(stat.substr(close + 2));
    std::string state;
    pid_t parent = 0;
    fields >> state >> parent;
    return parent;
}

// The number after "<field>:" in a /proc status-like file, or 0.
std::uint64_t fieldOf(const std::string& path, const std::string& field) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return std::stoull(line.substr(field.size() + 1));
        }
    }
    return 0;
}

std::uint64_t switchesOf(const std::string& statusPath) {
    return fieldOf(statusPath, "voluntary_ctxt_switches") +
           fieldOf(statusPath, "nonvoluntary_ctxt_switches");
}

}  // namespace

std::vector<pid_t> processTree(pid_t root) {
    std::vector<pid_t> tree = {root};
    std::vector<std::pair<pid_t, pid_t>> parents;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            const pid_t pid = std::stoi(name);
            parents.emplace_back(pid, parentOf(pid));
        }
    }
    for (std::size_t i = 0; i < tree.size(); ++i) {
        for (const auto& [pid, parent] : parents) {
            if (parent == tree[i]) {
                tree.push_back(pid);
            }
        }
    }
    return tree;
}

ProcessMemory memoryOf(pid_t pid) {
    const std::string base = "/proc/" + std::to_string(pid);
    ProcessMemory memory;
    memory.pid = pid;
    memory.name = firstLine(base + "/comm");
    memory.pssMiB = static_cast<double>(fieldOf(base + "/smaps_rollup", "Pss")) / 1024.0;
    memory.rssMiB = static_cast<double>(fieldOf(base + "/smaps_rollup", "Rss")) / 1024.0;
    return memory;
}

WakeUps wakeUps(const std::vector<pid_t>& pids) {
    WakeUps threads;
    for (const pid_t pid : pids) {
        std::error_code error;
        for (const fs::directory_entry& thread :
             fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", error)) {
            threads[std::stoi(thread.path().filename().string())] =
                switchesOf(thread.path().string() + "/status");
        }
    }
    return threads;
}

std::uint64_t wakeUpsBetween(const WakeUps& before, const WakeUps& after) {
    std::uint64_t total = 0;
    for (const auto& [thread, switches] : after) {
        const auto earlier = before.find(thread);
        const std::uint64_t start = earlier == before.end() ? 0 : earlier->second;
        total += switches > start ? switches - start : 0;
    }
    return total;
}

std::uint64_t mainThreadWakeUps(pid_t pid) {
    return switchesOf("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/status");
}

}  // namespace KvBench
