// Chaos trials: the chaos apps (tests/e2e/apps/*-chaos) hold a conversation
// of numbered messages on a plain and a secure channel, with a file beside
// it in half the trials, while one fault drawn from the trial's seed hits
// the link at a random moment, after a number of messages or within the
// file. Each trial is judged from what both apps wrote down and what the
// devices hold afterwards (ChaosTrial.h). The daemons live through a block
// of trials on one link profile, so that what a trial leaves behind in them
// (sessions, connections, transfers, descriptors, heap) shows.
//
// The tests run a few trials; `./kv soak` runs a thousand with both cores
// busy. KV_CHAOS_TRIALS sets the number, KV_CHAOS_SEED the first seed (else
// drawn and printed), KV_CHAOS_PROFILES the link profiles (comma-separated;
// the trials are split among them in blocks).
#include <gtest/gtest.h>
#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/LinkProfiles.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "ChaosTrial.h"
#include "E2eSupport.h"
#include "TestEnvironment.h"
#include "ThreadCacheOff.h"

using namespace KvE2e;

namespace {

namespace wire = kv::accessory::wire;
using Clock = std::chrono::steady_clock;

constexpr long long kLinkBoundMs = 10000;
constexpr int kChaosPhoneTimeoutSeconds = 60;
// What a block's daemons may gain in heap over its trials, after the first
// few (allocator caches and the profile cache fill then); a leak of a
// kilobyte a trial passes it within a few hundred trials.
constexpr std::uint64_t kHeapGrowthBound = std::uint64_t{64} * 1024;
constexpr int kWarmUpTrials = 3;
// The session of the status query itself.
constexpr std::uint32_t kStatusSessions = 1;

long long epochMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    }
    return parts;
}

// An app's lines that start with "<label>: ", without it.
std::vector<std::string> appLines(const std::string& path, const std::string& label) {
    std::vector<std::string> lines;
    const std::string prefix = label + ": ";
    for (const std::string& line : split(readText(path), '\n')) {
        if (line.rfind(prefix, 0) == 0) {
            lines.push_back(line.substr(prefix.size()));
        }
    }
    return lines;
}

// A daemon log's time of day ("HH:MM:SS.mmm", local) as ms since the
// epoch, on the day of `near`.
long long logTimeMs(const std::string& time, long long near) {
    if (time.size() < 12 || time[2] != ':' || time[5] != ':' || time[8] != '.') {
        return 0;
    }
    const int hours = std::stoi(time.substr(0, 2));
    const int minutes = std::stoi(time.substr(3, 2));
    const int seconds = std::stoi(time.substr(6, 2));
    const int millis = std::stoi(time.substr(9, 3));
    const std::time_t nearSeconds = static_cast<std::time_t>(near / 1000);
    std::tm day{};
    localtime_r(&nearSeconds, &day);
    day.tm_hour = hours;
    day.tm_min = minutes;
    day.tm_sec = seconds;
    long long at = static_cast<long long>(std::mktime(&day)) * 1000 + millis;
    // A trial that ran over midnight.
    if (at > near + 12LL * 3600 * 1000LL) {
        at -= 24LL * 3600 * 1000LL;
    }
    return at;
}

// The lines a log gained since `offset` (bytes).
std::vector<std::string> linesSince(const std::string& path, std::size_t offset) {
    const std::string text = readText(path);
    return offset < text.size() ? split(text.substr(offset), '\n') : std::vector<std::string>{};
}

std::size_t logSize(const std::string& device) {
    return readText(device + "/accessoryd.log").size();
}

wire::StatusReport status(const std::string& device) {
    wire::Request request;
    request.mutable_status();
    return Kv::Accessory::control(device, request).status_report();
}

std::size_t openDescriptors(const std::string& device) {
    const std::string pid = readText(device + "/accessoryd.pid");
    std::size_t count = 0;
    std::error_code error;
    for (auto it =
             std::filesystem::directory_iterator("/proc/" + split(pid, '\n').at(0) + "/fd", error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        ++count;
    }
    return count;
}

// The fault of a trial, on a thread of its own: made at its moment, or
// armed before the apps start and watched for in the daemon's log; then
// followed to its end and until both services have the link again.
class FaultRun {
public:
    FaultRun(const DevicePair& devices, const ChaosFault& fault)
        : m_devices(devices),
          m_fault(fault),
          m_device(fault.side == "watch" ? devices.watch() : devices.phone()),
          m_before(countFired()) {
        if (fault.trigger != "moment") {
            m_devices.tool(command(
                fault.trigger == "messages"
                    ? std::vector<std::string>{"--after-messages", std::to_string(fault.value),
                                               "--channel", std::to_string(fault.channel)}
                    : std::vector<std::string>{"--after-file-bytes", std::to_string(fault.value)}));
        }
    }

    // Runs the fault until the phone app has ended (then a fault that has not
    // fired never will: it is disarmed).
    void start(const std::atomic<bool>& phoneEnded) {
        m_thread = std::thread([this, &phoneEnded] { follow(phoneEnded); });
    }

    void join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
        if (!m_fired) {
            m_devices.tool({"disarm", m_device});
        }
    }

    bool fired() const { return m_fired; }
    std::optional<long long> linkedAgainMs() const { return m_linkedAgain; }

private:
    std::vector<std::string> command(const std::vector<std::string>& when) const {
        std::vector<std::string> words{m_fault.kind == "long-stall" ? "stall" : m_fault.kind,
                                       m_device};
        if (m_fault.kind == "stall" || m_fault.kind == "long-stall") {
            words.insert(words.end(), {"--seconds", std::to_string(m_fault.durationMs() / 1000)});
        }
        words.insert(words.end(), when.begin(), when.end());
        return words;
    }

    // How many faults of this kind the device's daemon has made.
    int countFired() const {
        const std::string text = readText(m_device + "/accessoryd.log");
        const std::string line =
            "fault: " + std::string(m_fault.kind == "long-stall" ? "stall" : m_fault.kind) + " now";
        int count = 0;
        for (std::size_t at = text.find(line); at != std::string::npos;
             at = text.find(line, at + 1)) {
            ++count;
        }
        return count;
    }

    void follow(const std::atomic<bool>& phoneEnded) {
        if (m_fault.trigger == "moment") {
            const auto due = Clock::now() + std::chrono::milliseconds(m_fault.value);
            while (Clock::now() < due && !phoneEnded) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            if (phoneEnded) {
                return;
            }
            m_devices.tool(command({}));
        }
        // A trigger fires in the daemon; the phone's end is the last moment
        // it can (a grace for one posted just before).
        std::optional<Clock::time_point> graceEnd;
        while (countFired() <= m_before) {
            if (phoneEnded && !graceEnd) {
                graceEnd = Clock::now() + std::chrono::milliseconds(300);
            }
            if (graceEnd && Clock::now() > *graceEnd) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        m_fired = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(m_fault.durationMs()));
        if (m_fault.kind == "detach") {
            m_devices.setLink(m_device, true);
        }
        const auto over = Clock::now();
        if (m_devices.waitLinked(std::chrono::milliseconds(kLinkBoundMs))) {
            m_linkedAgain =
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - over).count();
        }
    }

    const DevicePair& m_devices;
    ChaosFault m_fault;
    std::string m_device;
    int m_before = 0;
    std::thread m_thread;
    bool m_fired = false;
    std::optional<long long> m_linkedAgain;
};

// A block of trials on one link profile and one pair of daemons.
class ChaosBlock {
public:
    ChaosBlock(const std::string& work, const std::string& profile)
        : m_profile(*Kv::Accessory::findLinkProfile(profile)),
          m_threadCacheOff(),
          m_devices(work, false, profile),
          m_watchApp(m_devices.install(m_devices.watch(), testApp("watch-chaos"))),
          m_phoneApp(m_devices.install(m_devices.phone(), testApp("phone-chaos"))) {}

    // Runs one trial and returns its account.
    ChaosAccount trial(int index, unsigned seed) {
        ChaosAccount account;
        account.plan = drawChaosPlan(seed, m_profile.bandwidth);
        prepareFiles(account, seed);
        const std::string label = "-" + std::to_string(index);
        const std::size_t watchLog = logSize(m_devices.watch());
        const std::size_t phoneLog = logSize(m_devices.phone());
        const long long started = epochMs();

        AppRun watch(m_devices.watch(), m_watchApp, "watch" + label, m_devices.work(), {},
                     seconds(kChaosPhoneTimeoutSeconds + 40));
        if (!watch.waitForOutput("watch: ready\n")) {
            account.watchExit = watch.finish(seconds(1));
            return account;
        }
        FaultRun fault(m_devices, account.plan.fault);
        std::atomic<bool> phoneEnded{false};
        std::vector<std::string> arguments{std::to_string(account.plan.messages)};
        if (account.plan.fileBytes > 0) {
            arguments.push_back("file");
        }
        AppRun phone(m_devices.phone(), m_phoneApp, "phone" + label, m_devices.work(), arguments,
                     seconds(kChaosPhoneTimeoutSeconds));
        fault.start(phoneEnded);
        account.phoneExit = phone.finish(seconds(kChaosPhoneTimeoutSeconds + 5));
        phoneEnded = true;
        fault.join();
        account.fired = fault.fired();
        account.linkedAgainMs = fault.linkedAgainMs();

        waitForTheWatch(watch, m_devices.work() + "/phone" + label + ".out");
        watch.kill(SIGTERM);
        account.watchExit = watch.finish(seconds(10));

        account.phone = appLines(m_devices.work() + "/phone" + label + ".out", "phone");
        account.watch = appLines(m_devices.work() + "/watch" + label + ".out", "watch");
        account.phoneLinkDowns = linkDowns(m_devices.phone(), phoneLog, started);
        account.phoneSessionAt =
            sessionOpened(m_devices.work() + "/phone" + label + ".log", started);
        account.watchLinkDowns = linkDowns(m_devices.watch(), watchLog, started);
        collectFiles(account);
        return account;
    }

    // What the daemons hold between trials: nothing of the trial, and the
    // same descriptors as before.
    std::vector<std::string> leftovers() {
        std::vector<std::string> problems;
        for (const std::string& device : {m_devices.watch(), m_devices.phone()}) {
            const std::string name = std::filesystem::path(device).filename().string();
            const wire::StatusReport report = settledStatus(device);
            if (report.sessions() > kStatusSessions || report.agents_size() != 0 ||
                report.connections_size() != 0 || report.transfers_size() != 0) {
                problems.push_back("the " + name + "'s service still holds " +
                                   std::to_string(report.sessions() - kStatusSessions) +
                                   " sessions, " + std::to_string(report.agents_size()) +
                                   " agents, " + std::to_string(report.connections_size()) +
                                   " connections and " + std::to_string(report.transfers_size()) +
                                   " transfers");
            }
            const std::size_t descriptors = settledDescriptors(device);
            auto [first, added] = m_descriptors.emplace(device, descriptors);
            if (!added && descriptors > first->second) {
                problems.push_back("the " + name + "'s service has " + std::to_string(descriptors) +
                                   " descriptors open, " + std::to_string(first->second) +
                                   " after the first trial");
            }
            m_heap[device].push_back(report.heap_in_use());
        }
        return problems;
    }

    // Whether the heap stayed flat over the block: the least of the last
    // few trials' figures (a trial may leave buffers that the next one
    // reuses) within a bound of the least of the first few after the
    // warm-up. Blocks too short to tell pass.
    std::vector<std::string> heapGrowth() const {
        std::vector<std::string> problems;
        for (const auto& [device, figures] : m_heap) {
            if (figures.size() < std::size_t{3} * kWarmUpTrials) {
                continue;
            }
            const std::uint64_t first =
                *std::min_element(figures.begin() + kWarmUpTrials,
                                  figures.begin() + std::ptrdiff_t{2} * kWarmUpTrials);
            const std::uint64_t last =
                *std::min_element(figures.end() - kWarmUpTrials, figures.end());
            if (last > first + kHeapGrowthBound) {
                problems.push_back("the " + std::filesystem::path(device).filename().string() +
                                   "'s service's heap grew from " + std::to_string(first) + " to " +
                                   std::to_string(last) + " bytes over " +
                                   std::to_string(figures.size()) + " trials");
            }
        }
        return problems;
    }

    // The status once the service has seen the apps' sessions end (it
    // learns of that a moment after their processes are gone).
    static wire::StatusReport settledStatus(const std::string& device) {
        const auto deadline = Clock::now() + std::chrono::seconds(3);
        wire::StatusReport report = status(device);
        while (Clock::now() < deadline &&
               (report.sessions() > kStatusSessions || report.agents_size() != 0 ||
                report.connections_size() != 0 || report.transfers_size() != 0)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            report = status(device);
        }
        return report;
    }

    // The descriptors the service has open once it has closed those of the
    // sessions that just ended (a status query's among them), within 1 s.
    std::size_t settledDescriptors(const std::string& device) const {
        const auto deadline = Clock::now() + std::chrono::seconds(1);
        std::size_t count = openDescriptors(device);
        auto first = m_descriptors.find(device);
        while (first != m_descriptors.end() && count > first->second && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            count = openDescriptors(device);
        }
        return count;
    }

    std::string latestHeap() const {
        std::string text;
        for (const auto& [device, figures] : m_heap) {
            text += " " + std::filesystem::path(device).filename().string() + " " +
                    std::to_string(figures.back());
        }
        return text;
    }

    std::string heapReport() const {
        std::string text;
        for (const auto& [device, figures] : m_heap) {
            text += " " + std::filesystem::path(device).filename().string() + " " +
                    std::to_string(figures.front()) + " -> " + std::to_string(figures.back()) +
                    " bytes";
        }
        return text;
    }

private:
    std::string phoneFile() const {
        return m_devices.phone() + "/fs/opt/usr/media/Documents/chaos.bin";
    }
    std::string watchDownloads() const { return m_devices.watch() + "/fs/opt/usr/media/Downloads"; }

    void prepareFiles(ChaosAccount& account, unsigned seed) {
        std::filesystem::remove_all(watchDownloads());
        std::filesystem::create_directories(watchDownloads());
        std::mt19937 random(seed);
        account.source.resize(account.plan.fileBytes);
        for (char& byte : account.source) {
            byte = static_cast<char>(random());
        }
        std::ofstream(phoneFile(), std::ios::binary) << account.source;
    }

    void collectFiles(ChaosAccount& account) const {
        const std::string kept = watchDownloads() + "/chaos.bin";
        if (std::filesystem::exists(kept)) {
            account.received = readText(kept);
        }
        for (const std::string& device : {m_devices.watch(), m_devices.phone()}) {
            for (const auto& entry :
                 std::filesystem::recursive_directory_iterator(device + "/fs")) {
                const std::string name = entry.path().filename().string();
                if (name.find(".part-") != std::string::npos) {
                    account.partialFiles.push_back(entry.path().string());
                }
            }
            std::error_code error;
            for (const auto& entry :
                 std::filesystem::directory_iterator(device + "/partial", error)) {
                account.partialFiles.push_back(entry.path().string());
            }
        }
    }

    // The phone closed its last connection: the watch hears of it shortly.
    static void waitForTheWatch(AppRun& watch, const std::string& phoneOut) {
        const std::vector<std::string> lines = appLines(phoneOut, "phone");
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            if (line->rfind("end ", 0) == 0 && line->find(" closed") != std::string::npos) {
                watch.waitForOutput("watch: " + line->substr(0, line->find(" closed")) + " lost",
                                    seconds(3));
                return;
            }
        }
    }

    // When the app's client library opened its session (its platform log).
    static std::optional<long long> sessionOpened(const std::string& log, long long near) {
        for (const std::string& line : split(readText(log), '\n')) {
            if (line.find("> session with the accessory service opened") != std::string::npos) {
                return logTimeMs(line.substr(0, line.find(' ')), near);
            }
        }
        return std::nullopt;
    }

    static std::vector<long long> linkDowns(const std::string& device, std::size_t offset,
                                            long long near) {
        std::vector<long long> times;
        for (const std::string& line : linesSince(device + "/accessoryd.log", offset)) {
            if (line.find("> link: down") != std::string::npos) {
                times.push_back(logTimeMs(line.substr(0, line.find(' ')), near));
            }
        }
        return times;
    }

    const Kv::Accessory::LinkProfile& m_profile;
    KvTest::ThreadCacheOff m_threadCacheOff;  // for the daemons that m_devices starts
    DevicePair m_devices;
    std::string m_watchApp;
    std::string m_phoneApp;
    std::map<std::string, std::size_t> m_descriptors;
    std::map<std::string, std::vector<std::uint64_t>> m_heap;
};

std::string joined(const std::vector<std::string>& lines, const std::string& indent) {
    std::string text;
    for (const std::string& line : lines) {
        text += indent + line + "\n";
    }
    return text;
}

// Trials of random faults on every profile asked for; each broken promise
// fails the test, with the trial's plan and accounts.
TEST(Chaos, EveryTrialKeepsEveryPromise) {
    const int trials = KvTest::environmentNumber("KV_CHAOS_TRIALS", 6);
    const std::vector<std::string> profiles =
        split(KvTest::environment("KV_CHAOS_PROFILES", "unlimited,ble"), ',');
    const unsigned firstSeed = static_cast<unsigned>(std::stoul(
        KvTest::environment("KV_CHAOS_SEED", std::to_string(std::random_device()() % 1000000))));
    std::printf("chaos: %d trials from seed %u on %zu profiles\n", trials, firstSeed,
                profiles.size());
    int failed = 0;
    for (std::size_t block = 0; block < profiles.size(); ++block) {
        const int first = static_cast<int>(block * trials / profiles.size());
        const int last = static_cast<int>((block + 1) * trials / profiles.size());
        WorkFolder work;
        ChaosBlock pair(work, profiles[block]);
        for (int index = first; index < last; ++index) {
            const unsigned seed = firstSeed + static_cast<unsigned>(index);
            const ChaosAccount account = pair.trial(index - first + 1, seed);
            std::vector<std::string> problems = judgeChaosTrial(account, kLinkBoundMs);
            for (const std::string& leftover : pair.leftovers()) {
                problems.push_back(leftover);
            }
            std::printf("trial %d/%d  %-9s  %s%s: %s (heap in use%s)\n", index + 1, trials,
                        profiles[block].c_str(), account.plan.describe().c_str(),
                        account.fired ? "" : " (not fired)", problems.empty() ? "ok" : "FAILED",
                        pair.latestHeap().c_str());
            std::fflush(stdout);
            if (!problems.empty()) {
                ++failed;
                ADD_FAILURE() << "trial " << index + 1 << " (" << profiles[block] << ", "
                              << account.plan.describe() << ")\n"
                              << joined(problems, "  ") << "phone:\n"
                              << joined(account.phone, "  | ") << "watch:\n"
                              << joined(account.watch, "  | ")
                              << "repeat: KV_CHAOS_TRIALS=1 KV_CHAOS_PROFILES=" << profiles[block]
                              << " KV_CHAOS_SEED=" << seed;
            }
        }
        std::printf("block %s: heap in use%s\n", profiles[block].c_str(),
                    pair.heapReport().c_str());
        for (const std::string& growth : pair.heapGrowth()) {
            ADD_FAILURE() << profiles[block] << ": " << growth;
        }
    }
    std::printf("chaos: %d of %d trials failed\n", failed, trials);
}

// The judge itself, on accounts written by hand: a whole conversation
// passes, and each broken promise is named.
class ChaosJudgeTest : public testing::Test {
protected:
    ChaosJudgeTest() {
        account.plan.fault = ChaosFault{"drop", "phone", "moment", 500, 0};
        account.plan.messages = 2;
        account.phoneExit = 0;
        account.watchExit = 143;
        account.phone = {"ask find",
                         "answer find found",
                         "ask connect",
                         "answer connect ok",
                         "hello 1",
                         "conversation on 1",
                         "ask authenticate",
                         "sent 120 0",
                         "sent 121 0",
                         "sent 120 1",
                         "sent 121 1",
                         "answer authenticate ok",
                         "got 120 0",
                         "got 121 0",
                         "got 120 1",
                         "got 121 1",
                         "conversation whole",
                         "end 1 closed",
                         "done 1000"};
        account.watch = {"ready",
                         "hello 1",
                         "got 1 120 0",
                         "got 1 121 0",
                         "got 1 120 1",
                         "got 1 121 1",
                         "end 1 lost PEER_DISCONNECTED"};
    }

    std::string verdict() const { return joined(judgeChaosTrial(account, kLinkBoundMs), ""); }

    ChaosAccount account;
};

TEST_F(ChaosJudgeTest, AWholeConversationWithoutAFaultPasses) { EXPECT_EQ(verdict(), ""); }

TEST_F(ChaosJudgeTest, MessagesOutOfOrderOrMissingAreNamed) {
    account.watch[2] = "got 1 120 1";
    account.watch[4] = "got 1 120 0";
    account.watch[5] = "got 1 121 0";
    EXPECT_NE(verdict().find("channel 120: the watch got [1,0]"), std::string::npos) << verdict();
    EXPECT_NE(verdict().find("channel 121: the watch got [0,0]"), std::string::npos) << verdict();
}

TEST_F(ChaosJudgeTest, MessagesLostWithoutALossToldAreNamed) {
    account.watch.erase(account.watch.begin() + 5);   // "got 1 121 1"
    account.phone.erase(account.phone.begin() + 15);  // "got 121 1"
    EXPECT_NE(verdict().find("channel 121: messages went missing without a loss told"),
              std::string::npos)
        << verdict();
}

TEST_F(ChaosJudgeTest, AnUnansweredRequestIsNamed) {
    account.phone.insert(account.phone.begin() + 6, "ask file");
    account.plan.fileBytes = 100;
    EXPECT_NE(verdict().find("the phone asked file 1 times and got 0 answers"), std::string::npos)
        << verdict();
}

TEST_F(ChaosJudgeTest, EndsThatDisagreeAreNamed) {
    account.watch.back() = "end 1 lost DEVICE_DETACHED";
    EXPECT_NE(verdict().find("connection 1 ended differently"), std::string::npos) << verdict();
}

TEST_F(ChaosJudgeTest, AFileToldDifferentlyOnTheTwoSidesIsNamed) {
    account.plan.fileBytes = 3;
    account.source = "abc";
    account.phone.insert(account.phone.begin() + 6, "ask file");
    account.phone.insert(account.phone.begin() + 7, "answer file error PEER_CONN_LOST");
    account.watch.insert(account.watch.begin() + 2, "file offered chaos.bin");
    account.watch.insert(account.watch.begin() + 3, "file received file:///x/chaos.bin");
    account.received = "abc";
    EXPECT_NE(verdict().find("the two sides were told different outcomes of the file"),
              std::string::npos)
        << verdict();
}

TEST_F(ChaosJudgeTest, ALossNotToldToARunningAppIsNamed) {
    account.fired = true;
    account.linkedAgainMs = 300;
    account.phoneLinkDowns = {900};
    account.watchLinkDowns = {900};
    account.phoneSessionAt = 100;
    EXPECT_NE(verdict().find("the phone's service took the link down while the app had a session"),
              std::string::npos)
        << verdict();
    EXPECT_NE(verdict().find("the watch's service took the link down, and the app was not told"),
              std::string::npos)
        << verdict();
}

TEST_F(ChaosJudgeTest, ALossAfterThePhoneEndedNeedsNoWordFromIt) {
    account.fired = true;
    account.linkedAgainMs = 300;
    account.phoneLinkDowns = {1001};
    account.watchLinkDowns = {1001};
    account.watch.push_back("loss device DETACHED");
    EXPECT_EQ(verdict(), "");
}

TEST_F(ChaosJudgeTest, AShortStallThatLosesSomethingIsNamed) {
    account.plan.fault.kind = "stall";
    account.phoneLinkDowns = {900};
    EXPECT_NE(verdict().find("a short stall took the link down"), std::string::npos) << verdict();
}

TEST_F(ChaosJudgeTest, ALinkThatDoesNotComeBackIsNamed) {
    account.fired = true;
    EXPECT_NE(verdict().find("the link was not up again"), std::string::npos) << verdict();
    account.linkedAgainMs = kLinkBoundMs + 1;
    EXPECT_NE(verdict().find("the link took"), std::string::npos) << verdict();
}

}  // namespace
