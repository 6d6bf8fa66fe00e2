// The scenarios of the whole path: JavaScript in one app to JavaScript in
// the other on two emulated devices.
#include "BenchRun.h"

#include <kv-accessory/LinkProfiles.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace KvBench {

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
    const auto bandwidth = static_cast<double>(link.bandwidth);
    const double wireSeconds = static_cast<double>(kPingOnTheWire) / bandwidth;
    record(figures, prefix + "configured-roundtrip", "us",
           2 * (duration<double, std::micro>(link.latency).count() + wireSeconds * 1e6));
    record(figures, prefix + "configured-throughput", "MB/s", bandwidth / 1e6);

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

void measureScenarios(const Settings& settings, Figures& figures) {
    const std::string size = std::to_string(settings.messageSize);
    const std::string count = std::to_string(settings.messages);
    Hooks traced;
    traced.traced = true;
    if (settings.wants("throughput")) {
        for (const char* kind : {"ascii", "utf8"}) {
            for (const char* mode : {"plain", "secure"}) {
                collect(scenarioRun(settings, 1, {"throughput", size, count, kind, mode}),
                        std::string("sendData-") + kind + "-" + mode + "-", figures);
            }
        }
        collect(scenarioRun(settings, 1, {"throughput", size, count, "ascii", "plain"}, traced),
                "traced-sendData-ascii-plain-", figures);
    }
    if (settings.wants("roundtrip")) {
        const std::string pings = std::to_string(settings.pings);
        collect(scenarioRun(settings, 1, {"roundtrip", pings}), "", figures);
        collect(scenarioRun(settings, 1, {"roundtrip", pings}, traced), "traced-", figures);
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
    if (settings.wants("pairs")) {
        measureManyPairs(settings, figures);
    }
    if (settings.wants("discovery")) {
        collect(
            scenarioRun(settings, settings.agents, {"discovery", std::to_string(settings.agents)}),
            "", figures);
    }
}

}  // namespace KvBench
