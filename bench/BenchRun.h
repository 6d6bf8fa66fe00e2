// What every part of kv-bench shares: the settings of a run, the figures
// it collects, a scratch folder, and one scenario run on a fresh pair of
// devices (the bench apps of apps/, the phone running the scenario its
// arguments name and printing "result NAME VALUE UNIT" lines).
#ifndef KV_BENCH_BENCH_RUN_H
#define KV_BENCH_BENCH_RUN_H

#include <TwoDevices.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace KvBench {

using KvE2e::AppRun;
using KvE2e::DevicePair;
using KvE2e::milliseconds;
using KvE2e::seconds;

struct Settings {
    bool quick = false;
    int runs = 5;
    std::string output = std::string(KV_BENCH_RESULTS) + "/latest.json";
    std::size_t messageSize = 1u << 20;
    std::size_t messages = 64;
    std::size_t pings = 2000;
    double rateSeconds = 2.0;
    std::uintmax_t fileSize = 1ull << 30;
    int agents = 1000;
    int cycles = 500;
    std::string only;  // one scenario alone, without the baselines (for profiling)

    bool wants(const std::string& scenario) const { return only.empty() || only == scenario; }
};

// The values one figure took over the runs.
struct Figure {
    std::string unit;
    std::vector<double> values;

    double median() const {
        std::vector<double> sorted = values;
        std::sort(sorted.begin(), sorted.end());
        return sorted.empty() ? 0.0 : sorted[sorted.size() / 2];
    }
    double minimum() const { return *std::min_element(values.begin(), values.end()); }
    double maximum() const { return *std::max_element(values.begin(), values.end()); }
};

using Figures = std::map<std::string, Figure>;

// A folder for one run, removed with the object; kept when a failure
// unwinds through it, for its devices' logs.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    int m_unwinding;
};

// Every "result NAME VALUE UNIT" line of `output`, into `figures`.
void collect(const std::string& output, const std::string& prefix, Figures& figures);
void record(Figures& figures, const std::string& name, const std::string& unit, double value);

// Makes the script app in `folder` a page that loads its script.
void makePage(const std::string& folder);
// The bench app `name` with a profile of `agents` agents, ready to install;
// a page that loads its script when `page`.
std::string benchApp(const std::string& work, const std::string& name, const std::string& role,
                     int agents, bool page = false);

// A figure of the daemon's status ("heap in use", "agents"), 0 when missing.
std::size_t daemonStatus(const std::string& device, const std::string& figure);
std::size_t daemonHeap(const std::string& device);
// A field of the daemon's /proc status, in kB ("VmHWM", "VmRSS").
std::size_t daemonMemory(const std::string& device, const std::string& field);
double epochMilliseconds();
void writeFile(const std::string& path, std::uintmax_t size);

// What a scenario may do besides running the phone app.
struct Hooks {
    std::string linkProfile;                                 // the pair's link; unshaped if empty
    bool pages = false;                                      // both apps as pages
    bool traced = false;                                     // a tracer follows each service
    double* launchedAt = nullptr;                            // when the phone app was started
    std::function<void(const DevicePair&)> prepare;          // before the apps start
    std::function<void(const DevicePair&, AppRun&)> during;  // while the phone runs
    std::function<void(const DevicePair&)> after;            // once the phone is done
};

// One scenario on a fresh pair: the watch serves `servedAgents` agents, the
// phone runs `arguments`. Returns what the phone printed.
std::string scenarioRun(const Settings& settings, int servedAgents,
                        const std::vector<std::string>& arguments, const Hooks& hooks = {});

// The parts of a run.
void measureBaselines(const Settings& settings, Figures& figures);
void measureScenarios(const Settings& settings, Figures& figures);
void measurePages(const Settings& settings, Figures& figures);
void printTable(const Figures& figures);
void writeJson(const Figures& figures, const Settings& settings);

}  // namespace KvBench

#endif
