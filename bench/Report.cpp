// The table of a run (each figure beside its baseline, the ratio and the
// target) and its JSON.
#include "BenchRun.h"

#include <kv-accessory/LinkProfiles.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace KvBench {

namespace fs = std::filesystem;

// A figure of the path, the baseline it is compared with, whether more is
// better, and the ratio to the baseline it should reach (none when 0): at
// least that much when more is better, at most otherwise.
struct Comparison {
    std::string figure;
    std::string baseline;
    bool moreIsBetter;
    double target = 0;

    std::string targetText() const {
        if (target == 0) {
            return "";
        }
        std::ostringstream text;
        text << (moreIsBetter ? ">= " : "<= ") << target;
        return text.str();
    }
    bool met(double ratio) const { return moreIsBetter ? ratio >= target : ratio <= target; }
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
            {"sendData-ascii-plain-throughput", "tls-relay-throughput", true, 0.6},
            {"sendData-ascii-secure-throughput", "tls-relay-throughput", true, 0.6},
            {"sendData-utf8-plain-throughput", "tls-relay-throughput", true, 0.6},
            {"sendData-utf8-secure-throughput", "tls-relay-throughput", true, 0.6},
            {"sendData-ascii-plain-throughput", "relay-throughput", true},
            {"sendData-ascii-plain-throughput", "dbus-throughput", true},
            {"file", "tls-relay-throughput", true, 0.8},
            {"file", "cp-throughput", true},
            {"roundtrip-median", "relay-roundtrip-median", false, 2},
            {"roundtrip-p99", "relay-roundtrip-p99", false, 3},
            {"roundtrip-p999", "relay-roundtrip-p999", false},
            {"roundtrip-median", "tls-relay-roundtrip-median", false},
            {"roundtrip-median", "dbus-roundtrip-median", false},
            {"message-rate", "relay-message-rate", true},
            {"message-rate", "tls-relay-message-rate", true},
            {"traced-sendData-ascii-plain-throughput", "sendData-ascii-plain-throughput", true},
            {"traced-roundtrip-median", "roundtrip-median", false},
            {"traced-roundtrip-p99", "roundtrip-p99", false},
            {"pairs-together-throughput-total", "relays-together-throughput-total", true},
            {"pairs-together-roundtrip-median", "relays-together-roundtrip-median", false},
            {"pairs-together-roundtrip-p99", "relays-together-roundtrip-p99", false},
            {"idle-pair-processor", "", false},
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
    std::printf(
        "| figure | median | min | max | unit | baseline | baseline median | ratio | target |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|\n");
    for (const Comparison& row : comparisons()) {
        const auto figure = figures.find(row.figure);
        if (figure == figures.end()) {
            continue;
        }
        const Figure& own = figure->second;
        std::string baseline = "";
        std::string baselineMedian = "";
        std::string ratio = "";
        std::string target = "";
        const auto base = figures.find(row.baseline);
        if (base != figures.end() && base->second.median() > 0) {
            baseline = row.baseline;
            baselineMedian = fixed(base->second.median()) + " " + base->second.unit;
            const double value = own.median() / base->second.median();
            ratio = fixed(value);
            if (row.target != 0) {
                target = row.targetText() + (row.met(value) ? " met" : " missed");
            }
        }
        std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", row.figure.c_str(),
                    fixed(own.median()).c_str(), fixed(own.minimum()).c_str(),
                    fixed(own.maximum()).c_str(), own.unit.c_str(), baseline.c_str(),
                    baselineMedian.c_str(), ratio.c_str(), target.c_str());
    }
}

void writeJson(const Figures& figures, const Settings& settings) {
    fs::create_directories(fs::path(settings.output).parent_path());
    std::ofstream json(settings.output);
    json << "{\n  \"quick\": " << (settings.quick ? "true" : "false")
         << ",\n  \"runs\": " << settings.runs << ",\n  \"scratch\": \"" << scratchRoot()
         << "\",\n  \"figures\": {\n";
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

}  // namespace KvBench
