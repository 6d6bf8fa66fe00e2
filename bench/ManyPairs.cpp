// Many pairs of devices on one machine at once: the throughput and the round
// trip of every pair together beside as many relays at once, and what the
// pairs cost when they are idle.
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchRun.h"

namespace KvBench {

namespace {

// Runs `arguments` on the phone of every pair at once; each pair's figures.
std::vector<Figures> runTogether(const std::vector<std::unique_ptr<BenchPair>>& pairs,
                                 const std::vector<std::string>& arguments) {
    for (const auto& pair : pairs) {
        pair->launch(arguments);
    }
    std::vector<Figures> each(pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        collect(pairs[i]->finish(), "", each[i]);
    }
    return each;
}

// Runs `role` on `count` fresh TLS relay paths at once (a path serves one
// app); each path's figures.
std::vector<Figures> relaysTogether(int count, const std::vector<std::string>& role) {
    std::vector<std::unique_ptr<RelayPath>> paths;
    paths.reserve(count);
    for (int i = 0; i < count; ++i) {
        paths.push_back(std::make_unique<RelayPath>(true, i));
    }
    std::vector<std::unique_ptr<KvTest::ChildProcess>> running;
    running.reserve(paths.size());
    for (const auto& path : paths) {
        running.push_back(path->start(role));
    }
    std::vector<Figures> each(paths.size());
    for (std::size_t i = 0; i < running.size(); ++i) {
        collect(running[i]->finish(std::chrono::seconds(300)).out, "", each[i]);
    }
    return each;
}

// The sum of a figure over the pairs (throughput: all of them at once).
double total(const std::vector<Figures>& each, const std::string& name) {
    double sum = 0;
    for (const Figures& figures : each) {
        const auto figure = figures.find(name);
        sum += figure == figures.end() ? 0.0 : figure->second.median();
    }
    return sum;
}

// The median of a figure over the pairs (a round trip's median or p99).
double middle(const std::vector<Figures>& each, const std::string& name) {
    Figure over;
    for (const Figures& figures : each) {
        const auto figure = figures.find(name);
        if (figure != figures.end()) {
            over.values.push_back(figure->second.median());
        }
    }
    return over.median();
}

void recordTogether(Figures& figures, const std::string& prefix,
                    const std::vector<Figures>& throughput, const std::vector<Figures>& roundtrip) {
    record(figures, prefix + "throughput-total", "MB/s", total(throughput, "throughput"));
    record(figures, prefix + "roundtrip-median", "us", middle(roundtrip, "roundtrip-median"));
    record(figures, prefix + "roundtrip-p99", "us", middle(roundtrip, "roundtrip-p99"));
}

void measureRelays(const Settings& settings, Figures& figures) {
    const std::vector<Figures> throughput = relaysTogether(
        settings.pairs, {"throughput", "--size", std::to_string(settings.messageSize), "--count",
                         std::to_string(settings.messages)});
    const std::vector<Figures> roundtrip = relaysTogether(
        settings.pairs, {"roundtrip", "--size", "64", "--count", std::to_string(settings.pings)});
    recordTogether(figures, "relays-together-", throughput, roundtrip);
}

// What the pairs' services and watch apps use in `settings.idleSeconds`
// with nothing to do, per pair; busy polling would show here.
void measureIdle(const Settings& settings, const std::vector<std::unique_ptr<BenchPair>>& pairs,
                 Figures& figures) {
    auto used = [&pairs] {
        double sum = 0;
        for (const auto& pair : pairs) {
            sum += pair->processorMilliseconds();
        }
        return sum;
    };
    const double before = used();
    std::this_thread::sleep_for(std::chrono::duration<double>(settings.idleSeconds));
    record(figures, "idle-pair-processor", "ms", (used() - before) / settings.pairs);
}

}  // namespace

void measureManyPairs(const Settings& settings, Figures& figures) {
    measureRelays(settings, figures);
    std::vector<std::unique_ptr<BenchPair>> pairs;
    pairs.reserve(settings.pairs);
    for (int i = 0; i < settings.pairs; ++i) {
        pairs.push_back(std::make_unique<BenchPair>(settings, 1));
    }
    const std::vector<Figures> throughput =
        runTogether(pairs, {"throughput", std::to_string(settings.messageSize),
                            std::to_string(settings.messages), "ascii", "plain"});
    const std::vector<Figures> roundtrip =
        runTogether(pairs, {"roundtrip", std::to_string(settings.pings)});
    recordTogether(figures, "pairs-together-", throughput, roundtrip);
    measureIdle(settings, pairs, figures);
}

}  // namespace KvBench
