#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr uid_t kUnprivilegedId = 65534;

// Runs `body` in a forked child (which has one thread) and returns its exit
// code; the child's mount namespace dies with it.
int inChild(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        int code = 1;
        try {
            code = body();
        } catch (const std::exception& error) {
            fprintf(stderr, "child: %s\n", error.what());
            code = 2;
        }
        _exit(code);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Enters the device and checks that its files are at their device paths.
int enterAndCheck() {
    Kv::Device::enter();
    if (!Kv::Device::entered()) {
        return 3;
    }
    if (Kv::Device::readFile("/opt/usr/media/Downloads/hello.txt") != "hello") {
        return 4;
    }
    return Kv::Device::readFile("/opt/.kv-device") == Kv::Device::root() ? 0 : 5;
}

}  // namespace

TEST(DeviceEnterTest, NotEnteredBeforeEnter) {
    KvTest::TempDevice device;
    EXPECT_FALSE(Kv::Device::entered());
}

TEST(DeviceEnterTest, EnterMapsTheDeviceOptOverOpt) {
    KvTest::TempDevice device;
    KvTest::writeTextFile(Kv::Device::hostPath("/opt/usr/media/Downloads/hello.txt"), "hello");
    EXPECT_EQ(inChild(enterAndCheck), 0);
    // The parent's /opt is untouched.
    EXPECT_FALSE(fs::exists("/opt/.kv-device"));
}

TEST(DeviceEnterTest, EnterIsANoOpInsideTheDeviceEvenWithThreads) {
    KvTest::TempDevice device;
    EXPECT_EQ(inChild([] {
                  Kv::Device::enter();
                  std::thread worker([] { Kv::Device::enter(); });
                  worker.join();
                  return Kv::Device::entered() ? 0 : 3;
              }),
              0);
}

TEST(DeviceEnterTest, EnteringAnotherDeviceFromInsideOneMapsTheOther) {
    KvTest::TempDevice first;
    Kv::Device::root();
    KvTest::TempDevice second;
    KvTest::writeTextFile(Kv::Device::hostPath("/opt/usr/media/Downloads/hello.txt"), "hello");
    const std::string& firstPath = first.path();
    EXPECT_EQ(inChild([&] {
                  const std::string secondPath = Kv::Device::root();
                  setenv("KV_DEVICE", firstPath.c_str(), 1);
                  Kv::Device::enter();
                  setenv("KV_DEVICE", secondPath.c_str(), 1);
                  return enterAndCheck();
              }),
              0);
}

TEST(DeviceEnterTest, EnterWorksForAnOrdinaryUser) {
    if (geteuid() != 0) {
        // The whole suite already runs as an ordinary user; the test above
        // covers this case.
        GTEST_SKIP() << "not root: cannot switch to another user";
    }
    KvTest::TempDevice device;
    KvTest::writeTextFile(Kv::Device::hostPath("/opt/usr/media/Downloads/hello.txt"), "hello");
    KvTest::openToEveryone(device.path());
    EXPECT_EQ(inChild([] {
                  if (setgroups(0, nullptr) != 0 || setgid(kUnprivilegedId) != 0 ||
                      setuid(kUnprivilegedId) != 0) {
                      return 10;
                  }
                  // A process started by the user is dumpable; one that
                  // dropped root is not until it does this, and could not
                  // write its own /proc/self files.
                  prctl(PR_SET_DUMPABLE, 1);
                  return enterAndCheck();
              }),
              0);
}

TEST(DeviceEnterTest, EnterWithSeveralThreadsFailsClearly) {
    KvTest::TempDevice device;
    std::mutex mutex;
    std::condition_variable released;
    bool done = false;
    std::thread worker([&] {
        std::unique_lock<std::mutex> lock(mutex);
        released.wait(lock, [&] { return done; });
    });
    try {
        Kv::Device::enter();
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("before any thread is made"), std::string::npos)
            << error.what();
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
    }
    released.notify_one();
    worker.join();
    EXPECT_FALSE(Kv::Device::entered());
}
