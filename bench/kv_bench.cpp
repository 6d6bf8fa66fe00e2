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
#include "BenchRun.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace {

using namespace KvBench;

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
