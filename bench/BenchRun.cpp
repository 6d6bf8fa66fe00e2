// A run's shared pieces: its scratch folders, its figures, the bench apps,
// the daemons' figures and one pair of devices running a scenario.
#include "BenchRun.h"

#include <linux/magic.h>
#include <stdlib.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace KvBench {

namespace fs = std::filesystem;

namespace {

std::string& chosenScratchRoot() {
    static std::string root;
    return root;
}

bool isMemoryWithRoom(const std::string& folder, std::uintmax_t needed) {
    struct statfs filesystem {};
    if (::statfs(folder.c_str(), &filesystem) != 0 || filesystem.f_type != TMPFS_MAGIC ||
        ::access(folder.c_str(), W_OK) != 0) {
        return false;
    }
    return static_cast<std::uintmax_t>(filesystem.f_bavail) * filesystem.f_bsize >= needed;
}

}  // namespace

void chooseScratchRoot(const std::string& requested, std::uintmax_t fileSize) {
    std::string& root = chosenScratchRoot();
    if (!requested.empty()) {
        root = requested;
    } else if (isMemoryWithRoom("/dev/shm", 3 * fileSize)) {
        root = "/dev/shm";
    } else {
        root = fs::temp_directory_path().string();
    }
}

const std::string& scratchRoot() {
    std::string& root = chosenScratchRoot();
    if (root.empty()) {
        root = fs::temp_directory_path().string();
    }
    return root;
}

Scratch::Scratch() : m_unwinding(std::uncaught_exceptions()) {
    std::string pattern = (fs::path(scratchRoot()) / "kv-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder in " + scratchRoot() + ": " +
                                 std::error_code(errno, std::generic_category()).message());
    }
    m_path = pattern;
}

Scratch::~Scratch() {
    if (std::uncaught_exceptions() > m_unwinding) {
        std::fprintf(stderr, "kv-bench: the failed run's devices are kept in %s\n", m_path.c_str());
        return;
    }
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

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
                     int agents, bool page) {
    std::string folder = work + "/" + name;
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
    std::ifstream status("/proc/" + std::to_string(daemonPid(device)) + "/status");
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

BenchPair::BenchPair(const Settings& settings, int servedAgents, const Hooks& hooks)
    : m_hooks(hooks),
      m_devices(std::make_unique<DevicePair>(m_scratch.path(), false, hooks.linkProfile)) {
    const int profiles = std::max(servedAgents, settings.agents);
    const std::string watchApp = m_devices->install(
        m_devices->watch(),
        benchApp(m_scratch.path(), "bench-watch", "provider", profiles, hooks.pages));
    m_phoneApp = m_devices->install(
        m_devices->phone(),
        benchApp(m_scratch.path(), "bench-phone", "consumer", profiles, hooks.pages));
    if (hooks.traced) {
        startTracers();
    }
    if (hooks.prepare) {
        hooks.prepare(*m_devices);
    }
    m_watch = std::make_unique<AppRun>(
        m_devices->watch(), watchApp, "watch", m_scratch.path(),
        std::vector<std::string>{std::to_string(std::max(servedAgents, 1))}, seconds(900));
    if (!m_watch->waitForOutput("watch: ready", seconds(120))) {
        throw std::runtime_error("the bench watch did not start:\n" + m_watch->output());
    }
    waitForAgents(m_devices->watch(), std::max(servedAgents, 1));
}

BenchPair::~BenchPair() = default;

// A tracer per service, writing to a file so that it always keeps up: the
// cost of tracing is measured, not that of a pipe nobody reads.
void BenchPair::startTracers() {
    for (const std::string& device : {m_devices->watch(), m_devices->phone()}) {
        m_tracers.push_back(std::make_unique<KvTest::ChildProcess>(
            std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" trace \"$1\" > \"$1.trace\"",
                                     KV_ACCESSORY_TOOL_PATH, device}));
    }
}

void BenchPair::launch(const std::vector<std::string>& arguments) {
    if (m_hooks.launchedAt) {
        *m_hooks.launchedAt = epochMilliseconds();
    }
    m_phone = std::make_unique<AppRun>(m_devices->phone(), m_phoneApp, "phone", m_scratch.path(),
                                       arguments, seconds(900));
    if (m_hooks.during) {
        m_hooks.during(*m_devices, *m_phone);
    }
}

std::string BenchPair::finish() {
    if (m_phone->finish(seconds(900)) != 0) {
        throw std::runtime_error("the bench phone failed:\n" + m_phone->output() +
                                 m_watch->output());
    }
    if (m_hooks.after) {
        m_hooks.after(*m_devices);
    }
    return KvE2e::readText(m_scratch.path() + "/phone.out");
}

double BenchPair::processorMilliseconds() const {
    return KvBench::processorMilliseconds(daemonPid(m_devices->watch())) +
           KvBench::processorMilliseconds(daemonPid(m_devices->phone())) +
           KvBench::processorMilliseconds(m_watch->pid());
}

std::string scenarioRun(const Settings& settings, int servedAgents,
                        const std::vector<std::string>& arguments, const Hooks& hooks) {
    BenchPair pair(settings, servedAgents, hooks);
    pair.launch(arguments);
    return pair.finish();
}

pid_t daemonPid(const std::string& device) {
    return static_cast<pid_t>(std::stol(KvE2e::readText(device + "/accessoryd.pid")));
}

// utime and stime of /proc/PID/stat, after the command's closing parenthesis.
double processorMilliseconds(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    unsigned long long ticks = 0;
    for (int index = 3; fields >> field && index <= 15; ++index) {
        if (index >= 14) {
            ticks += std::stoull(field);
        }
    }
    return static_cast<double>(ticks) * 1000.0 / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

void writeFile(const std::string& path, std::uintmax_t size) {
    std::ofstream file(path, std::ios::binary);
    const std::string block(1 << 20, 'f');
    for (std::uintmax_t written = 0; written < size; written += block.size()) {
        file.write(block.data(), static_cast<std::streamsize>(
                                     std::min<std::uintmax_t>(block.size(), size - written)));
    }
}

}  // namespace KvBench
