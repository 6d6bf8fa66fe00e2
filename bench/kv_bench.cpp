// kv-bench: the whole accessory path measured end to end (JavaScript in one
// app to JavaScript in the other, on two emulated devices), each figure next
// to a baseline measured in the same run on the same machine: the raw relay
// (the same process topology with nothing but framing, plain and over TLS
// 1.3), a private D-Bus bus, and cp.
//
//   kv-bench [--quick] [--runs N] [--output FILE] [--only LIST] [--scratch DIR]
//
// Every scenario runs several times (once with --quick, which is a smoke run
// with small sizes that judges nothing); the table shows the median, the
// minimum and the maximum, the baseline's median, the ratio and its target.
// The same goes to FILE as JSON.
#include "BenchRun.h"

#include <kv-cli/CommandLine.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

using namespace KvBench;
using Kv::Cli::Option;

const char* const kUsage =
    "usage: kv-bench [--quick] [--runs N] [--output FILE] [--only LIST] [--scratch DIR]\n"
    "Measures the accessory path end to end, from a script in one app to a script\n"
    "in the other on two emulated devices, beside baselines run on this machine\n"
    "in the same run, and prints each figure's median with its ratio and target.\n"
    "  --quick        one run at small sizes, a smoke test that judges nothing\n"
    "  --runs N       runs of every scenario (5)\n"
    "  --output FILE  the figures as JSON (bench/results/latest.json)\n"
    "  --only LIST    only these scenarios, separated by commas: baselines\n"
    "                 throughput roundtrip rate file connections cycles startup\n"
    "                 links pages pairs discovery\n"
    "  --scratch DIR  where the devices' folders and files go (/dev/shm when it is\n"
    "                 memory with room for the file three times over, else the\n"
    "                 temporary folder)\n";

const Kv::Cli::CommandLine& benchCommandLine() {
    static const Kv::Cli::CommandLine commandLine("kv-bench", kUsage,
                                                  {{"quick", Option::Flag},
                                                   {"runs", Option::WithValue},
                                                   {"output", Option::WithValue},
                                                   {"only", Option::WithValue},
                                                   {"scratch", Option::WithValue}});
    return commandLine;
}

Settings quickSettings() {
    Settings settings;
    settings.quick = true;
    settings.runs = 1;
    settings.messages = 8;
    settings.pings = 200;
    settings.rateSeconds = 0.5;
    settings.fileSize = 16u << 20;
    settings.agents = 50;
    settings.cycles = 50;
    settings.pairs = 2;
    settings.idleSeconds = 1;
    return settings;
}

Settings readSettings(const Kv::Cli::Arguments& arguments) {
    arguments.allowOperands(0);
    Settings settings = arguments.has("quick") ? quickSettings() : Settings{};
    if (const auto runs = arguments.value("runs")) {
        if (runs->empty() || runs->find_first_not_of("0123456789") != std::string::npos ||
            runs->size() > 3 || std::stoi(*runs) == 0) {
            throw Kv::Cli::UsageError("--runs needs a whole number from 1 to 999");
        }
        settings.runs = std::stoi(*runs);
    }
    settings.output = arguments.value("output").value_or(settings.output);
    settings.only = arguments.value("only").value_or("");
    settings.scratch = arguments.value("scratch").value_or("");
    return settings;
}

// Where TLS runs: the services encrypt in user space; the kernel's TLS would
// need this kernel's "tls" upper layer, which is named here when present.
void printTlsNote() {
    std::ifstream available("/proc/sys/net/ipv4/tcp_available_ulp");
    std::string layers;
    std::getline(available, layers);
    const bool kernelTls = (" " + layers + " ").find(" tls ") != std::string::npos;
    const std::string kernel =
        kernelTls ? std::string("is offered by this kernel but not used")
                  : "is not offered by this kernel (tcp_available_ulp: " + layers + ")";
    std::printf("\nlink TLS: in user space (OpenSSL); kernel TLS %s\n", kernel.c_str());
}

// Where the devices' folders were: the file and cp figures follow it.
void printScratchNote() { std::printf("devices' folders and files: %s\n", scratchRoot().c_str()); }

int runBench(const Kv::Cli::Arguments& arguments) {
    const Settings settings = readSettings(arguments);
    chooseScratchRoot(settings.scratch, settings.fileSize);
    Figures figures;
    for (int run = 1; run <= settings.runs; ++run) {
        std::fprintf(stderr, "kv-bench: run %d of %d\n", run, settings.runs);
        if (settings.wants("baselines")) {
            measureBaselines(settings, figures);
        }
        measureScenarios(settings, figures);
    }
    printTable(figures);
    printTlsNote();
    printScratchNote();
    writeJson(figures, settings);
    std::printf("\nresults: %s\n", settings.output.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    ::setenv("KV_LOG_LEVEL", "WARN", 0);
    ::setenv("ECORE_NO_SYSTEM_MODULES", "1", 1);
    return benchCommandLine().run(argc, argv, runBench);
}
