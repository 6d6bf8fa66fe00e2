// kv-bench: the whole accessory path measured end to end (JavaScript in one
// app to JavaScript in the other, on two emulated devices), each figure next
// to a baseline measured in the same run on the same machine: the raw relay
// (the same process topology with nothing but framing, plain and over TLS
// 1.3), a private D-Bus bus, and cp.
//
//   kv-bench [--quick] [--runs N] [--output FILE]
//
// Every scenario runs several times (once with --quick, which is a smoke run
// with small sizes that judges nothing); the table shows the median, the
// minimum and the maximum, the baseline's median and the ratio. The same
// goes to FILE as JSON.
#include "ProcessFootprint.h"

#include <ChildProcess.h>
#include <TwoDevices.h>
#include <kv-accessory/LinkProfiles.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
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

// A folder for one run, removed with the object.
class Scratch {
public:
    Scratch() {
        std::string pattern = (fs::temp_directory_path() / "kv-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        m_path = pattern;
    }
    // Kept when a failure unwinds through it, for its devices' logs.
    ~Scratch() {
        if (std::uncaught_exceptions() > m_unwinding) {
            std::fprintf(stderr, "kv-bench: the failed run's devices are kept in %s\n",
                         m_path.c_str());
            return;
        }
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    int m_unwinding = std::uncaught_exceptions();
};

// Every "result NAME VALUE UNIT" line of `output`, into `figures`.
void collect(const std::string& output, const std::string& prefix, Figures& figures) {
    static const std::regex line(R"(result (\S+) ([0-9.]+) (\S+))");
    for (std::sregex_iterator at(output.begin(), output.end(), line), end; at != end; ++at) {
        Figure& figure = figures[prefix + (*at)[1].str()];
        figure.unit = (*at)[3].str();
        figure.values.push_back(std::stod((*at)[2].str()));
    }
}

void record(Figures& figures, const std::string& name, const std::string& unit, double value) {
    figures[name].unit = unit;
    figures[name].values.push_back(value);
}

// ---- Baselines ---------------------------------------------------------

// Two relays and two endpoints, as app, daemon, daemon, app.
std::string relayRun(const std::vector<std::string>& nearRole, bool tls) {
    Scratch scratch;
    const std::string relay = KV_BENCH_RELAY;
    const std::string port = std::to_string(20000 + (::getpid() % 20000));
    std::vector<std::string> listen{relay,      "relay", "--unix", scratch.path() + "/far.sock",
                                    "--listen", port};
    std::vector<std::string> connect{relay,       "relay", "--unix", scratch.path() + "/near.sock",
                                     "--connect", port};
    if (tls) {
        const std::string far = scratch.path() + "/far-device";
        const std::string near = scratch.path() + "/near-device";
        for (const std::string& device : {far, near}) {
            KvTest::runProcess({KV_ACCESSORY_TOOL_PATH, "create", device, device + "-unused"});
        }
        listen.insert(listen.end(),
                      {"--tls", far + "/identity/cert.pem", far + "/identity/key.pem"});
        connect.insert(connect.end(),
                       {"--tls", near + "/identity/cert.pem", near + "/identity/key.pem"});
    }
    KvTest::ChildProcess farRelay(listen);
    KvTest::ChildProcess nearRelay(connect);
    KvTest::ChildProcess echo({relay, "echo", "--unix", scratch.path() + "/far.sock"});
    std::vector<std::string> command{relay};
    command.insert(command.end(), nearRole.begin(), nearRole.end());
    command.insert(command.end(), {"--unix", scratch.path() + "/near.sock"});
    return KvTest::runProcess(command, {}, std::chrono::seconds(300)).out;
}

std::string dbusRun(const std::vector<std::string>& clientRole) {
    Scratch scratch;
    const std::string address = "unix:path=" + scratch.path() + "/bus";
    KvTest::ChildProcess bus(
        {"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address});
    KvTest::ChildProcess server({KV_BENCH_DBUS, "serve", "--address", address});
    server.waitForOutput("serving", std::chrono::seconds(10));
    std::vector<std::string> command{KV_BENCH_DBUS};
    command.insert(command.end(), clientRole.begin(), clientRole.end());
    command.insert(command.end(), {"--address", address});
    return KvTest::runProcess(command, {}, std::chrono::seconds(300)).out;
}

double copyThroughput(std::uintmax_t size) {
    Scratch scratch;
    const std::string from = scratch.path() + "/from.bin";
    {
        std::ofstream file(from, std::ios::binary);
        const std::string block(1 << 20, 'c');
        for (std::uintmax_t written = 0; written < size; written += block.size()) {
            file.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
    }
    const auto started = std::chrono::steady_clock::now();
    KvTest::runProcess({"/bin/cp", from, scratch.path() + "/to.bin"}, {},
                       std::chrono::seconds(300));
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return static_cast<double>(size) / elapsed / 1e6;
}

void measureBaselines(const Settings& settings, Figures& figures) {
    const std::string size = std::to_string(settings.messageSize);
    const std::string count = std::to_string(settings.messages);
    const std::string pings = std::to_string(settings.pings);
    collect(relayRun({"throughput", "--size", size, "--count", count}, false), "relay-", figures);
    collect(relayRun({"roundtrip", "--size", "64", "--count", pings}, false), "relay-", figures);
    collect(relayRun({"throughput", "--size", size, "--count", count}, true), "tls-relay-",
            figures);
    collect(dbusRun({"throughput", "--size", size, "--count", count}), "dbus-", figures);
    collect(dbusRun({"roundtrip", "--size", "64", "--count", pings}), "dbus-", figures);
    record(figures, "cp-throughput", "MB/s", copyThroughput(settings.fileSize));
}

// ---- Scenarios ---------------------------------------------------------

// Makes the script app in `folder` a page that loads its script.
void makePage(const std::string& folder) {
    std::ifstream in(folder + "/config.xml");
    std::string config((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    config = std::regex_replace(config, std::regex("<content src=\"main\\.js\"/>"),
                                "<content src=\"index.html\"/>");
    std::ofstream(folder + "/config.xml") << config;
    std::ofstream(folder + "/index.html")
        << "<!DOCTYPE html>\n<html><body><script src=\"main.js\"></script></body></html>\n";
}

// The bench app `name` with a profile of `agents` agents, ready to install;
// a page that loads its script when `page`.
std::string benchApp(const std::string& work, const std::string& name, const std::string& role,
                     int agents, bool page = false) {
    const std::string folder = work + "/" + name;
    fs::copy(std::string(KV_BENCH_APPS) + "/" + name, folder, fs::copy_options::recursive);
    if (page) {
        makePage(folder);
    }
    fs::create_directories(folder + "/res/xml");
    std::ofstream profile(folder + "/res/xml/accessoryservices.xml");
    profile << "<?xml version=\"1.0\"?>\n<resources><application name=\"bench\">\n";
    for (int i = 0; i < agents; ++i) {
        profile << "<serviceProfile id=\"/kv/bench/" << i << "\" name=\"Bench" << i << "\" role=\""
                << role << "\" serviceTimeout=\"10\">"
                << "<serviceChannel id=\"104\" priority=\"high\"/></serviceProfile>\n";
    }
    profile << "</application></resources>\n";
    return folder;
}

// The daemon's heap in use, from its status.
// A figure of the daemon's status ("heap in use", "agents"), 0 when missing.
std::size_t daemonStatus(const std::string& device, const std::string& figure) {
    const KvTest::ProcessResult status =
        KvTest::runProcess({KV_ACCESSORY_TOOL_PATH, "status", device});
    std::smatch match;
    return std::regex_search(status.out, match, std::regex(figure + ": ([0-9]+)"))
               ? std::stoull(match[1].str())
               : 0;
}

std::size_t daemonHeap(const std::string& device) { return daemonStatus(device, "heap in use"); }

// Agents register with their daemon after the app has them: waits until
// the device's daemon has `count` of them.
void waitForAgents(const std::string& device, int count) {
    const auto deadline = std::chrono::steady_clock::now() + seconds(120);
    while (daemonStatus(device, "agents") < static_cast<std::size_t>(count)) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("the bench watch's agents did not all register");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

// A field of the daemon's /proc status, in kB ("VmHWM", "VmRSS").
std::size_t daemonMemory(const std::string& device, const std::string& field) {
    const std::string pid = KvE2e::readText(device + "/accessoryd.pid");
    std::ifstream status("/proc/" + pid.substr(0, pid.find('\n')) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return std::stoull(line.substr(field.size() + 1));
        }
    }
    return 0;
}

double epochMilliseconds() {
    using namespace std::chrono;
    return duration<double, std::milli>(system_clock::now().time_since_epoch()).count();
}

// What a scenario may do besides running the phone app.
struct Hooks {
    std::string linkProfile;                                 // the pair's link; unshaped if empty
    bool pages = false;                                      // both apps as pages
    double* launchedAt = nullptr;                            // when the phone app was started
    std::function<void(const DevicePair&)> prepare;          // before the apps start
    std::function<void(const DevicePair&, AppRun&)> during;  // while the phone runs
    std::function<void(const DevicePair&)> after;            // once the phone is done
};

// One scenario on a fresh pair: the watch serves `servedAgents` agents, the
// phone runs `arguments`. Returns what the phone printed.
std::string scenarioRun(const Settings& settings, int servedAgents,
                        const std::vector<std::string>& arguments, const Hooks& hooks = {}) {
    Scratch scratch;
    DevicePair devices(scratch.path(), false, hooks.linkProfile);
    const int profiles = std::max(servedAgents, settings.agents);
    const std::string watchApp =
        devices.install(devices.watch(),
                        benchApp(scratch.path(), "bench-watch", "provider", profiles, hooks.pages));
    const std::string phoneApp =
        devices.install(devices.phone(),
                        benchApp(scratch.path(), "bench-phone", "consumer", profiles, hooks.pages));
    if (hooks.prepare) {
        hooks.prepare(devices);
    }
    AppRun watch(devices.watch(), watchApp, "watch", scratch.path(),
                 {std::to_string(std::max(servedAgents, 1))}, seconds(900));
    if (!watch.waitForOutput("watch: ready", seconds(120))) {
        throw std::runtime_error("the bench watch did not start:\n" + watch.output());
    }
    waitForAgents(devices.watch(), std::max(servedAgents, 1));
    if (hooks.launchedAt) {
        *hooks.launchedAt = epochMilliseconds();
    }
    AppRun phone(devices.phone(), phoneApp, "phone", scratch.path(), arguments, seconds(900));
    if (hooks.during) {
        hooks.during(devices, phone);
    }
    if (phone.finish(seconds(900)) != 0) {
        throw std::runtime_error("the bench phone failed:\n" + phone.output() + watch.output());
    }
    if (hooks.after) {
        hooks.after(devices);
    }
    return KvE2e::readText(scratch.path() + "/phone.out");
}

void writeFile(const std::string& path, std::uintmax_t size) {
    std::ofstream file(path, std::ios::binary);
    const std::string block(1 << 20, 'f');
    for (std::uintmax_t written = 0; written < size; written += block.size()) {
        file.write(block.data(), static_cast<std::streamsize>(
                                     std::min<std::uintmax_t>(block.size(), size - written)));
    }
}

void measureFile(const Settings& settings, Figures& figures) {
    std::size_t rssBefore = 0;
    Hooks hooks;
    hooks.prepare = [&](const DevicePair& devices) {
        writeFile(devices.phone() + "/fs/opt/usr/media/Documents/big.bin", settings.fileSize);
        rssBefore = std::max(daemonMemory(devices.watch(), "VmRSS"),
                             daemonMemory(devices.phone(), "VmRSS"));
    };
    hooks.after = [&](const DevicePair& devices) {
        const std::size_t peak = std::max(daemonMemory(devices.watch(), "VmHWM"),
                                          daemonMemory(devices.phone(), "VmHWM"));
        record(figures, "file-daemon-memory-growth", "MiB",
               static_cast<double>(peak - std::min(peak, rssBefore)) / 1024.0);
    };
    collect(scenarioRun(settings, 1,
                        {"file", "documents/big.bin", std::to_string(settings.fileSize)}, hooks),
            "", figures);
}

void measureConnections(const Settings& settings, Figures& figures) {
    std::size_t watchBefore = 0;
    std::size_t phoneBefore = 0;
    Hooks hooks;
    hooks.during = [&](const DevicePair& devices, AppRun& phone) {
        if (!phone.waitForOutput("phone: found all", seconds(300))) {
            return;
        }
        watchBefore = daemonHeap(devices.watch());
        phoneBefore = daemonHeap(devices.phone());
        if (!phone.waitForOutput("phone: connected all", seconds(300))) {
            return;
        }
        const double watchGrowth =
            static_cast<double>(daemonHeap(devices.watch())) - static_cast<double>(watchBefore);
        const double phoneGrowth =
            static_cast<double>(daemonHeap(devices.phone())) - static_cast<double>(phoneBefore);
        record(figures, "memory-per-connection", "KiB",
               std::max(watchGrowth, phoneGrowth) / settings.agents / 1024.0);
    };
    collect(scenarioRun(settings, settings.agents, {"connections", std::to_string(settings.agents)},
                        hooks),
            "", figures);
}

// Each shaped link profile: the round trip of a small ping and the
// throughput of a file of a few seconds of the link, next to what the
// profile configures (both latencies plus the ping's time on the wire, and
// the bandwidth).
void measureLinkProfile(const Settings& settings, const Kv::Accessory::LinkProfile& link,
                        Figures& figures) {
    using std::chrono::duration;
    const std::string prefix = "link-" + link.name + "-";
    constexpr std::size_t kPingOnTheWire = 128;  // the ping, its frame and the link's record
    const double wireSeconds = static_cast<double>(kPingOnTheWire) / link.bandwidth;
    record(figures, prefix + "configured-roundtrip", "us",
           2 * (duration<double, std::micro>(link.latency).count() + wireSeconds * 1e6));
    record(figures, prefix + "configured-throughput", "MB/s", link.bandwidth / 1e6);

    Hooks hooks;
    hooks.linkProfile = link.name;
    const std::string pings = settings.quick ? "20" : "200";
    collect(scenarioRun(settings, 1, {"roundtrip", pings}, hooks), prefix, figures);

    const std::uintmax_t size = link.bandwidth * (settings.quick ? 1 : 4);
    hooks.prepare = [size](const DevicePair& devices) {
        writeFile(devices.phone() + "/fs/opt/usr/media/Documents/big.bin", size);
    };
    collect(scenarioRun(settings, 1, {"file", "documents/big.bin", std::to_string(size)}, hooks),
            prefix, figures);
}

void measureLinkProfiles(const Settings& settings, Figures& figures) {
    for (const Kv::Accessory::LinkProfile& link : Kv::Accessory::linkProfiles()) {
        if (link.shaped()) {
            measureLinkProfile(settings, link, figures);
        }
    }
}

// ---- Pages -------------------------------------------------------------

// From the app's launch to `webapis.kv` handing it its agents, in
// milliseconds: the phone app says when (the wall clock's Date.now()).
void measureStartToReady(const Settings& settings, Figures& figures, bool pages) {
    double launched = 0;
    Hooks hooks;
    hooks.pages = pages;
    hooks.launchedAt = &launched;
    const std::string output = scenarioRun(settings, 1, {"ready"}, hooks);
    std::smatch match;
    if (std::regex_search(output, match, std::regex(R"(result kv-ready-at ([0-9.]+) ms)"))) {
        record(figures, pages ? "page-start-to-kv-ready" : "start-to-kv-ready", "ms",
               std::stod(match[1].str()) - launched);
    }
}

// The memory of a page app's processes: the host, the engine's web and
// network processes; the virtual display the host started apart.
void recordPageMemory(pid_t host, const std::string& prefix, Figures& figures) {
    double pss = 0;
    double rss = 0;
    for (const pid_t pid : KvBench::processTree(host)) {
        const KvBench::ProcessMemory memory = KvBench::memoryOf(pid);
        if (memory.name == "Xvfb") {
            record(figures, "page-virtual-display-pss", "MiB", memory.pssMiB);
            continue;
        }
        pss += memory.pssMiB;
        rss += memory.rssMiB;
    }
    record(figures, prefix + "-pss", "MiB", pss);
    record(figures, prefix + "-rss", "MiB", rss);
}

// How often an idle page app's processes wake up, per second, all of them
// and the main thread of the web process (where ecore runs in GLib's loop).
void recordIdleWakeUps(pid_t host, double seconds, Figures& figures) {
    std::vector<pid_t> processes;
    pid_t web = 0;
    for (const pid_t pid : KvBench::processTree(host)) {
        const std::string name = KvBench::memoryOf(pid).name;
        if (name != "Xvfb") {
            processes.push_back(pid);
        }
        web = name == "WebKitWebProces" ? pid : web;
    }
    const KvBench::WakeUps allBefore = KvBench::wakeUps(processes);
    const std::uint64_t webBefore = KvBench::mainThreadWakeUps(web);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    record(figures, "page-idle-wakeups", "1/s",
           static_cast<double>(KvBench::wakeUpsBetween(allBefore, KvBench::wakeUps(processes))) /
               seconds);
    record(figures, "page-idle-wakeups-web-main", "1/s",
           static_cast<double>(KvBench::mainThreadWakeUps(web) - webBefore) / seconds);
}

// The demo's watch app as a page, waiting for the phone (its memory), and
// an idle page app (its wake-ups).
void measurePageFootprint(const Settings& settings, Figures& figures) {
    Scratch scratch;
    DevicePair devices(scratch.path());
    devices.setScreen(devices.watch(), "watch");
    const std::string demoWatch =
        devices.install(devices.watch(), std::string(KV_EXAMPLES) + "/watch-sensor");
    const std::string idleWatch = devices.install(
        devices.watch(), benchApp(scratch.path(), "bench-watch", "provider", 1, true));
    const std::chrono::duration<double> settle(settings.quick ? 0.5 : 2.0);
    {
        AppRun watch(devices.watch(), demoWatch, "demo-watch", scratch.path());
        if (!watch.waitForOutput("watch: waiting for the phone", seconds(60))) {
            throw std::runtime_error("the demo's watch did not start:\n" + watch.output());
        }
        std::this_thread::sleep_for(settle);
        recordPageMemory(watch.pid(), "page-demo-watch", figures);
    }
    AppRun idle(devices.watch(), idleWatch, "idle-watch", scratch.path(), {"1"});
    if (!idle.waitForOutput("watch: ready", seconds(60))) {
        throw std::runtime_error("the idle page did not start:\n" + idle.output());
    }
    std::this_thread::sleep_for(settle);
    recordIdleWakeUps(idle.pid(), settings.quick ? 2.0 : 10.0, figures);
}

// Two pages beside two script apps: the throughput of 1 MiB messages, the
// round trip, the start, and a page's memory and wake-ups. Alone (--only
// pages), the script apps' figures are measured here too, for the ratios.
void measurePages(const Settings& settings, Figures& figures) {
    const std::vector<std::string> throughput = {"throughput", std::to_string(settings.messageSize),
                                                 std::to_string(settings.messages), "ascii",
                                                 "plain"};
    const std::vector<std::string> roundtrip = {"roundtrip", std::to_string(settings.pings)};
    if (!settings.only.empty()) {
        collect(scenarioRun(settings, 1, throughput), "sendData-ascii-plain-", figures);
        collect(scenarioRun(settings, 1, roundtrip), "", figures);
    }
    Hooks pages;
    pages.pages = true;
    collect(scenarioRun(settings, 1, throughput, pages), "page-sendData-ascii-plain-", figures);
    collect(scenarioRun(settings, 1, roundtrip, pages), "page-", figures);
    measureStartToReady(settings, figures, false);
    measureStartToReady(settings, figures, true);
    measurePageFootprint(settings, figures);
}

void measureScenarios(const Settings& settings, Figures& figures) {
    const std::string size = std::to_string(settings.messageSize);
    const std::string count = std::to_string(settings.messages);
    if (settings.wants("throughput")) {
        for (const char* kind : {"ascii", "utf8"}) {
            for (const char* mode : {"plain", "secure"}) {
                collect(scenarioRun(settings, 1, {"throughput", size, count, kind, mode}),
                        std::string("sendData-") + kind + "-" + mode + "-", figures);
            }
        }
    }
    if (settings.wants("roundtrip")) {
        collect(scenarioRun(settings, 1, {"roundtrip", std::to_string(settings.pings)}), "",
                figures);
    }
    if (settings.wants("rate")) {
        collect(scenarioRun(settings, 1, {"rate", std::to_string(settings.rateSeconds)}), "",
                figures);
    }
    if (settings.wants("file")) {
        measureFile(settings, figures);
    }
    if (settings.wants("connections")) {
        measureConnections(settings, figures);
    }
    if (settings.wants("cycles")) {
        collect(scenarioRun(settings, 1, {"cycles", std::to_string(settings.cycles)}), "", figures);
    }
    if (settings.wants("startup")) {
        collect(scenarioRun(settings, 1, {"startup"}), "startup-", figures);
    }
    if (settings.wants("links")) {
        measureLinkProfiles(settings, figures);
    }
    if (settings.wants("pages")) {
        measurePages(settings, figures);
    }
    if (settings.wants("discovery")) {
        collect(
            scenarioRun(settings, settings.agents, {"discovery", std::to_string(settings.agents)}),
            "", figures);
    }
}

// ---- Report ------------------------------------------------------------

// A figure of the path, the baseline it is compared with, and whether more
// is better.
struct Comparison {
    std::string figure;
    std::string baseline;
    bool moreIsBetter;
};

// Each shaped link profile against what it configures.
std::vector<Comparison> linkComparisons() {
    std::vector<Comparison> rows;
    for (const Kv::Accessory::LinkProfile& link : Kv::Accessory::linkProfiles()) {
        if (link.shaped()) {
            const std::string prefix = "link-" + link.name + "-";
            rows.push_back({prefix + "roundtrip-median", prefix + "configured-roundtrip", false});
            rows.push_back({prefix + "file", prefix + "configured-throughput", true});
        }
    }
    return rows;
}

const std::vector<Comparison>& comparisons() {
    static const std::vector<Comparison> table = [] {
        std::vector<Comparison> rows = {
            {"sendData-ascii-plain-throughput", "relay-throughput", true},
            {"sendData-ascii-plain-throughput", "dbus-throughput", true},
            {"sendData-utf8-plain-throughput", "relay-throughput", true},
            {"sendData-ascii-secure-throughput", "tls-relay-throughput", true},
            {"sendData-utf8-secure-throughput", "tls-relay-throughput", true},
            {"roundtrip-median", "relay-roundtrip-median", false},
            {"roundtrip-median", "dbus-roundtrip-median", false},
            {"roundtrip-p99", "relay-roundtrip-p99", false},
            {"message-rate", "", true},
            {"file", "relay-throughput", true},
            {"file", "cp-throughput", true},
            {"file-daemon-memory-growth", "", false},
            {"connect-all", "", false},
            {"memory-per-connection", "", false},
            {"cycles", "", true},
            {"startup-agents-ready", "", false},
            {"startup-first-peer", "", false},
            {"discovery", "", false},
            {"page-sendData-ascii-plain-throughput", "sendData-ascii-plain-throughput", true},
            {"page-roundtrip-median", "roundtrip-median", false},
            {"page-roundtrip-p99", "roundtrip-p99", false},
            {"page-start-to-kv-ready", "start-to-kv-ready", false},
            {"page-demo-watch-pss", "", false},
            {"page-demo-watch-rss", "", false},
            {"page-virtual-display-pss", "", false},
            {"page-idle-wakeups", "", false},
            {"page-idle-wakeups-web-main", "", false},
        };
        const std::vector<Comparison> links = linkComparisons();
        rows.insert(rows.end(), links.begin(), links.end());
        return rows;
    }();
    return table;
}

std::string fixed(double value) {
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(value < 10 ? 2 : 1);
    text << value;
    return text.str();
}

void printTable(const Figures& figures) {
    std::printf("| figure | median | min | max | unit | baseline | baseline median | ratio |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    for (const Comparison& row : comparisons()) {
        const auto figure = figures.find(row.figure);
        if (figure == figures.end()) {
            continue;
        }
        const Figure& own = figure->second;
        std::string baseline = "";
        std::string baselineMedian = "";
        std::string ratio = "";
        const auto base = figures.find(row.baseline);
        if (base != figures.end() && base->second.median() > 0) {
            baseline = row.baseline;
            baselineMedian = fixed(base->second.median()) + " " + base->second.unit;
            ratio = fixed(own.median() / base->second.median());
        }
        std::printf("| %s | %s | %s | %s | %s | %s | %s | %s |\n", row.figure.c_str(),
                    fixed(own.median()).c_str(), fixed(own.minimum()).c_str(),
                    fixed(own.maximum()).c_str(), own.unit.c_str(), baseline.c_str(),
                    baselineMedian.c_str(), ratio.c_str());
    }
}

void writeJson(const Figures& figures, const Settings& settings) {
    fs::create_directories(fs::path(settings.output).parent_path());
    std::ofstream json(settings.output);
    json << "{\n  \"quick\": " << (settings.quick ? "true" : "false")
         << ",\n  \"runs\": " << settings.runs << ",\n  \"figures\": {\n";
    bool first = true;
    for (const auto& [name, figure] : figures) {
        json << (first ? "" : ",\n") << "    \"" << name << "\": {\"unit\": \"" << figure.unit
             << "\", \"median\": " << figure.median() << ", \"min\": " << figure.minimum()
             << ", \"max\": " << figure.maximum() << ", \"values\": [";
        for (std::size_t i = 0; i < figure.values.size(); ++i) {
            json << (i > 0 ? ", " : "") << figure.values[i];
        }
        json << "]}";
        first = false;
    }
    json << "\n  }\n}\n";
}

Settings parseSettings(int argc, char** argv) {
    Settings settings;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--quick") {
            settings.quick = true;
            settings.runs = 1;
            settings.messages = 8;
            settings.pings = 200;
            settings.rateSeconds = 0.5;
            settings.fileSize = 16u << 20;
            settings.agents = 50;
            settings.cycles = 50;
        } else if (option == "--runs" && i + 1 < argc) {
            settings.runs = std::max(1, std::atoi(argv[++i]));
        } else if (option == "--only" && i + 1 < argc) {
            settings.only = argv[++i];
        } else if (option == "--output" && i + 1 < argc) {
            settings.output = argv[++i];
        } else {
            std::fprintf(stderr,
                         "usage: kv-bench [--quick] [--runs N] [--output FILE] [--only SCENARIO]\n"
                         "scenarios: throughput roundtrip rate file connections cycles startup "
                         "links pages discovery\n");
            std::exit(2);
        }
    }
    return settings;
}

}  // namespace

int main(int argc, char** argv) {
    ::setenv("KV_LOG_LEVEL", "WARN", 0);
    ::setenv("ECORE_NO_SYSTEM_MODULES", "1", 1);
    const Settings settings = parseSettings(argc, argv);
    Figures figures;
    try {
        for (int run = 1; run <= settings.runs; ++run) {
            std::fprintf(stderr, "kv-bench: run %d of %d\n", run, settings.runs);
            if (settings.only.empty()) {
                measureBaselines(settings, figures);
            }
            measureScenarios(settings, figures);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kv-bench: %s\n", error.what());
        return 1;
    }
    printTable(figures);
    writeJson(figures, settings);
    std::printf("\nresults: %s\n", settings.output.c_str());
    return 0;
}
