// What every part of kv-bench shares: the settings of a run, the figures
// it collects, a scratch folder, and one scenario run on a fresh pair of
// devices (the bench apps of apps/, the phone running the scenario its
// arguments name and printing "result NAME VALUE UNIT" lines).
#ifndef KV_BENCH_BENCH_RUN_H
#define KV_BENCH_BENCH_RUN_H

#include <ChildProcess.h>
#include <TwoDevices.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
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
    std::size_t messages = 256;
    std::size_t pings = 2000;
    double rateSeconds = 2.0;
    std::uintmax_t fileSize = 1ull << 30;
    std::string scratch;  // where the devices' folders go; chosen when empty
    int agents = 1000;
    int cycles = 500;
    int pairs = 10;           // pairs of devices at once
    double idleSeconds = 10;  // how long idle pairs are watched
    // The scenarios to run, separated by commas ("baselines" among them);
    // every one when empty.
    std::string only;

    bool wants(const std::string& scenario) const {
        return only.empty() || ("," + only + ",").find("," + scenario + ",") != std::string::npos;
    }
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

// Where the runs' folders go: `requested` if not empty, else /dev/shm when
// it is memory with room for `fileSize` three times over (the file, its copy
// and the rest), else the temporary folder. In memory the file and cp
// figures measure the path, not the disk under it. Set once, before the
// first Scratch.
void chooseScratchRoot(const std::string& requested, std::uintmax_t fileSize);
const std::string& scratchRoot();

// A folder for one run under scratchRoot(), removed with the object; kept
// when a failure unwinds through it, for its devices' logs.
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

// The processor time a process has used so far, in milliseconds.
double processorMilliseconds(pid_t pid);
pid_t daemonPid(const std::string& device);

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

// A fresh pair of devices whose watch serves `servedAgents` agents (and,
// when the hooks say so, a tracer follows each service), ready for the phone
// to run a scenario; several may run at once.
class BenchPair {
public:
    BenchPair(const Settings& settings, int servedAgents, const Hooks& hooks = {});
    ~BenchPair();
    BenchPair(const BenchPair&) = delete;
    BenchPair& operator=(const BenchPair&) = delete;

    // Starts the phone on `arguments`.
    void launch(const std::vector<std::string>& arguments);
    // Waits for the phone's end; what it printed. Throws when it failed.
    std::string finish();
    const DevicePair& devices() const { return *m_devices; }
    // The processor time the pair's services and watch app have used.
    double processorMilliseconds() const;

private:
    void startTracers();

    Hooks m_hooks;
    Scratch m_scratch;
    std::unique_ptr<DevicePair> m_devices;
    std::string m_phoneApp;
    std::unique_ptr<AppRun> m_watch;
    std::unique_ptr<AppRun> m_phone;
    std::vector<std::unique_ptr<KvTest::ChildProcess>> m_tracers;
};

// One scenario on a fresh pair: the watch serves `servedAgents` agents, the
// phone runs `arguments`. Returns what the phone printed.
std::string scenarioRun(const Settings& settings, int servedAgents,
                        const std::vector<std::string>& arguments, const Hooks& hooks = {});

// The raw relay of the accessory path's topology (app, daemon, daemon,
// app) with nothing but framing, plain or over TLS 1.3; the `index`th of
// those running at once.
class RelayPath {
public:
    RelayPath(bool tls, int index = 0);
    // Runs the near app's `role` (its arguments) to its end; its output.
    std::string run(const std::vector<std::string>& role) const;
    // Starts the near app's `role`; several paths may run at once.
    std::unique_ptr<KvTest::ChildProcess> start(const std::vector<std::string>& role) const;

private:
    Scratch m_scratch;
    std::unique_ptr<KvTest::ChildProcess> m_far;
    std::unique_ptr<KvTest::ChildProcess> m_near;
    std::unique_ptr<KvTest::ChildProcess> m_echo;
};

// The parts of a run.
void measureBaselines(const Settings& settings, Figures& figures);
void measureScenarios(const Settings& settings, Figures& figures);
void measureManyPairs(const Settings& settings, Figures& figures);
void measurePages(const Settings& settings, Figures& figures);
void printTable(const Figures& figures);
void writeJson(const Figures& figures, const Settings& settings);

}  // namespace KvBench

#endif
