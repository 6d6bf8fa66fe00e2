// The scenarios of apps that are pages: the same messages and round trips
// as the script apps', the start, a page's memory and its idle wake-ups.
#include "BenchRun.h"
#include "ProcessFootprint.h"

#include <sys/types.h>

#include <chrono>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace KvBench {

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

}  // namespace KvBench
