// The baselines of kv-bench, measured in the same run on the same machine:
// the raw relay (baselines/relay.cpp: the accessory path's process topology
// with nothing but framing, plain and over TLS 1.3), a private D-Bus bus,
// and cp.
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

}  // namespace KvBench
