// The baselines of kv-bench, measured in the same run on the same machine:
// the raw relay (baselines/relay.cpp: the accessory path's process topology
// with nothing but framing, plain and over TLS 1.3), a private D-Bus bus,
// and cp.
#include "BenchRun.h"

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace KvBench {

RelayPath::RelayPath(bool tls, int index) {
    const std::string relay = KV_BENCH_RELAY;
    // A port of this run's own: several kv-bench runs and paths at once.
    const std::string port = std::to_string(20000 + (::getpid() % 2000) * 16 + index);
    const std::string& work = m_scratch.path();
    std::vector<std::string> listen{relay, "relay", "--unix", work + "/far.sock", "--listen", port};
    std::vector<std::string> connect{relay,       "relay", "--unix", work + "/near.sock",
                                     "--connect", port};
    if (tls) {
        for (const std::string& device : {work + "/far-device", work + "/near-device"}) {
            KvTest::runProcess({KV_ACCESSORY_TOOL_PATH, "create", device, device + "-unused"});
        }
        listen.insert(listen.end(), {"--tls", work + "/far-device/identity/cert.pem",
                                     work + "/far-device/identity/key.pem"});
        connect.insert(connect.end(), {"--tls", work + "/near-device/identity/cert.pem",
                                       work + "/near-device/identity/key.pem"});
    }
    m_far = std::make_unique<KvTest::ChildProcess>(listen);
    m_near = std::make_unique<KvTest::ChildProcess>(connect);
    m_echo = std::make_unique<KvTest::ChildProcess>(
        std::vector<std::string>{relay, "echo", "--unix", work + "/far.sock"});
}

std::unique_ptr<KvTest::ChildProcess> RelayPath::start(const std::vector<std::string>& role) const {
    std::vector<std::string> command{KV_BENCH_RELAY};
    command.insert(command.end(), role.begin(), role.end());
    command.insert(command.end(), {"--unix", m_scratch.path() + "/near.sock"});
    return std::make_unique<KvTest::ChildProcess>(command);
}

std::string RelayPath::run(const std::vector<std::string>& role) const {
    return start(role)->finish(std::chrono::seconds(300)).out;
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
    const std::vector<std::string> throughput{"throughput", "--size",
                                              std::to_string(settings.messageSize), "--count",
                                              std::to_string(settings.messages)};
    const std::vector<std::string> roundtrip{"roundtrip", "--size", "64", "--count",
                                             std::to_string(settings.pings)};
    const std::vector<std::string> rate{"rate", "--size", "64", "--seconds",
                                        std::to_string(settings.rateSeconds)};
    for (const bool tls : {false, true}) {
        const std::string prefix = tls ? "tls-relay-" : "relay-";
        for (const auto* role : {&throughput, &roundtrip, &rate}) {
            collect(RelayPath(tls).run(*role), prefix, figures);
        }
    }
    collect(dbusRun(throughput), "dbus-", figures);
    collect(dbusRun({"roundtrip", "--size", "64", "--count", std::to_string(settings.pings)}),
            "dbus-", figures);
    record(figures, "cp-throughput", "MB/s", copyThroughput(settings.fileSize));
}

}  // namespace KvBench
