#include "BenchRun.h"

#include <ChildProcess.h>
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

namespace KvBench {

namespace fs = std::filesystem;

Scratch::Scratch() : m_unwinding(std::uncaught_exceptions()) {
    std::string pattern = (fs::temp_directory_path() / "kv-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
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

// One scenario on a fresh pair: the watch serves `servedAgents` agents, the
// phone runs `arguments`. Returns what the phone printed.
std::string scenarioRun(const Settings& settings, int servedAgents,
                        const std::vector<std::string>& arguments, const Hooks& hooks) {
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

}  // namespace KvBench
