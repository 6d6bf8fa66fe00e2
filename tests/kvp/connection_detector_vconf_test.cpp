// The connection detector on the platform's real vconf: the link key written
// through vconf, by this process or by another process of the same device,
// reaches the receivers on the main loop. The program runs in a device folder
// of its own (KV_DEVICE), so no other device's store is touched.
#include <KvConnectionDetector.h>
#include <MainLoopRunner.h>
#include <dpl/main_loop.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "fake_vconf.h"

using namespace DeviceAPI::KVP;
using namespace std::chrono_literals;

namespace {

const char* const kKey = "memory/private/kvp/conn_status";

struct CountingReceiver : KvConnectionReceiver {
    void onConnected() override { ++connected; }
    void onDisconnected() override { ++disconnected; }
    int connected = 0;
    int disconnected = 0;
};

class ConnectionDetectorVconfTest : public testing::Test {
protected:
    void SetUp() override {
        FakeVconf::reset();
        FakeVconf::useRealLibrary(true);
        // vconf delivers its notifications on the main loop, which this
        // thread runs.
        DPL::MainLoop::Instance();
    }

    void TearDown() override { FakeVconf::reset(); }

    KvConnectionDetector detector;
    CountingReceiver receiver;
};

// Writes the key from a child process, as the accessory service does.
void setKeyFromAnotherProcess(int value) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(vconf_set_int(kKey, value) == VCONF_OK ? 0 : 1);
    }
    ASSERT_GT(child, 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace

TEST_F(ConnectionDetectorVconfTest, LinkUpAndDownReachTheReceiver) {
    detector.registerReceiver(&receiver);

    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    EXPECT_TRUE(KvTest::runMainLoopUntil([this] { return receiver.connected == 1; }));
    ASSERT_EQ(vconf_set_int(kKey, 0), VCONF_OK);
    EXPECT_TRUE(KvTest::runMainLoopUntil([this] { return receiver.disconnected == 1; }));

    detector.unregisterReceiver(&receiver);
    EXPECT_EQ(receiver.connected, 1);
}

TEST_F(ConnectionDetectorVconfTest, OtherValuesReachNobody) {
    detector.registerReceiver(&receiver);
    ASSERT_EQ(vconf_set_int(kKey, 2), VCONF_OK);
    KvTest::runMainLoopFor(200ms);
    EXPECT_EQ(receiver.connected, 0);
    EXPECT_EQ(receiver.disconnected, 0);
    detector.unregisterReceiver(&receiver);
}

TEST_F(ConnectionDetectorVconfTest, KeyWrittenByAnotherProcessOfTheDeviceReachesTheReceiver) {
    detector.registerReceiver(&receiver);
    setKeyFromAnotherProcess(1);
    EXPECT_TRUE(KvTest::runMainLoopUntil([this] { return receiver.connected == 1; }));
    setKeyFromAnotherProcess(0);
    EXPECT_TRUE(KvTest::runMainLoopUntil([this] { return receiver.disconnected == 1; }));
    detector.unregisterReceiver(&receiver);
}

TEST_F(ConnectionDetectorVconfTest, NothingArrivesAfterTheLastReceiverLeft) {
    detector.registerReceiver(&receiver);
    detector.unregisterReceiver(&receiver);
    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    KvTest::runMainLoopFor(200ms);
    EXPECT_EQ(receiver.connected, 0);
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // A device folder of this run's own, removed at the end.
    std::string folder = testing::TempDir() + "kv-detector-device-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        perror("mkdtemp");
        return 1;
    }
    setenv("KV_DEVICE", folder.c_str(), 1);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
