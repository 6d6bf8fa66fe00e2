// Files under faults: whoever is killed at whatever point of a transfer (the
// sending or the receiving app, the sending or the receiving daemon), the
// receiving device never holds a partial file under the file's name, and what
// an interrupted transfer wrote is gone once the daemons run again.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "E2eSupport.h"
#include "TestEnvironment.h"

using namespace KvE2e;

namespace {

enum class Victim { PhoneApp, WatchApp, PhoneDaemon, WatchDaemon };

std::string nameOf(Victim victim) {
    switch (victim) {
        case Victim::PhoneApp:
            return "TheSendingApp";
        case Victim::WatchApp:
            return "TheReceivingApp";
        case Victim::PhoneDaemon:
            return "TheSendingDaemon";
        case Victim::WatchDaemon:
            return "TheReceivingDaemon";
    }
    return "";
}

// The size of the file: KV_E2E_FILE_MIB mebibytes, 64 by default.
std::uintmax_t fileSize() {
    return static_cast<std::uintmax_t>(KvTest::environmentNumber("KV_E2E_FILE_MIB", 64)) << 20;
}

// The bytes written so far under a hidden (temporary) name in `folder`.
std::uintmax_t partialBytes(const std::string& folder) {
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().filename().string()[0] == '.') {
            bytes += entry.file_size();
        }
    }
    return bytes;
}

bool hasHiddenFiles(const std::string& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().filename().string()[0] == '.') {
            return true;
        }
    }
    return false;
}

class FilesTest : public testing::TestWithParam<Victim> {};

TEST_P(FilesTest, KillingItMidTransferLeavesNoPartialFile) {
    const WorkFolder work;
    DevicePair devices(work);
    const std::string watchApp = devices.install(devices.watch(), testApp("watch-situations"));
    const std::string phoneApp = devices.install(devices.phone(), testApp("phone-situations"));
    const std::uintmax_t size = fileSize();
    {
        std::ofstream file(devices.phone() + "/fs/opt/usr/media/Documents/big.bin",
                           std::ios::binary);
        const std::string block(1 << 20, 'f');
        for (std::uintmax_t written = 0; written < size; written += block.size()) {
            file.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
    }
    const std::string downloads = devices.watch() + "/fs/opt/usr/media/Downloads";
    AppRun watch(devices.watch(), watchApp, "watch", work, {"accept"});
    ASSERT_TRUE(watch.waitForOutput("watch: ready")) << watch.output();
    AppRun phone(devices.phone(), phoneApp, "phone", work, {"big-file"});

    // Somewhere between the first byte and the last, early enough that the
    // rest can't all be on its way already (the queues of both daemons and
    // the sockets between them hold several MiB).
    std::mt19937 random(std::random_device{}());
    const std::uintmax_t killAt = size / 100 * std::uniform_int_distribution<int>(1, 80)(random);
    const auto deadline = std::chrono::steady_clock::now() + seconds(120);
    while (partialBytes(downloads) < killAt && std::chrono::steady_clock::now() < deadline) {
        ASSERT_FALSE(std::filesystem::exists(downloads + "/big.bin")) << "the file came whole";
        std::this_thread::sleep_for(milliseconds(1));
    }
    switch (GetParam()) {
        case Victim::PhoneApp:
            phone.kill(SIGKILL);
            break;
        case Victim::WatchApp:
            watch.kill(SIGKILL);
            break;
        case Victim::PhoneDaemon:
            devices.killDaemon(devices.phone());
            break;
        case Victim::WatchDaemon:
            devices.killDaemon(devices.watch());
            break;
    }
    EXPECT_FALSE(std::filesystem::exists(downloads + "/big.bin"));
    if (GetParam() == Victim::WatchDaemon || GetParam() == Victim::PhoneDaemon) {
        devices.startDaemon(GetParam() == Victim::WatchDaemon ? devices.watch() : devices.phone());
    }
    // The watch's daemon (the one that runs, or the restarted one) clears
    // what the interrupted transfer wrote.
    const auto cleared = std::chrono::steady_clock::now() + seconds(10);
    while (hasHiddenFiles(downloads) && std::chrono::steady_clock::now() < cleared) {
        std::this_thread::sleep_for(milliseconds(20));
    }
    EXPECT_FALSE(hasHiddenFiles(downloads)) << "killed at " << killAt << " of " << size;
    // Nothing partial under the final name: no file, or (when everything was
    // on its way before the kill took effect) the whole file.
    if (std::filesystem::exists(downloads + "/big.bin")) {
        EXPECT_EQ(std::filesystem::file_size(downloads + "/big.bin"), size)
            << "killed at " << killAt;
    }
}

INSTANTIATE_TEST_SUITE_P(AnyParty, FilesTest,
                         testing::Values(Victim::PhoneApp, Victim::WatchApp, Victim::PhoneDaemon,
                                         Victim::WatchDaemon),
                         [](const testing::TestParamInfo<Victim>& info) {
                             return nameOf(info.param);
                         });

}  // namespace
