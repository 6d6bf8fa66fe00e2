#include <vconf.h>

#include "DeviceTestSupport.h"
#include "MainLoopRunner.h"

#include <dpl/main_loop.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr char kKey[] = "memory/private/kvp/conn_status";

struct Seen {
    std::string name;
    int type = VCONF_TYPE_NONE;
    int number = 0;
    std::string text;
};

struct Recorder {
    std::vector<Seen> seen;
};

void record(keynode_t* node, void* userData) {
    Seen seen;
    seen.name = vconf_keynode_get_name(node);
    seen.type = vconf_keynode_get_type(node);
    if (seen.type == VCONF_TYPE_INT) {
        seen.number = vconf_keynode_get_int(node);
    } else if (seen.type == VCONF_TYPE_STRING) {
        seen.text = vconf_keynode_get_str(node);
    }
    static_cast<Recorder*>(userData)->seen.push_back(seen);
}

void recordAgain(keynode_t* node, void* userData) { record(node, userData); }

void removeSelf(keynode_t* node, void* userData) {
    record(node, userData);
    vconf_ignore_key_changed(vconf_keynode_get_name(node), removeSelf);
}

void removeOther(keynode_t* node, void* userData) {
    record(node, userData);
    vconf_ignore_key_changed(vconf_keynode_get_name(node), recordAgain);
}

// Every test runs in a fresh device and ends with no registration left, so
// that the next test's device can be watched.
class VconfNotifyTest : public testing::Test {
protected:
    void SetUp() override { DPL::MainLoop::Instance(); }

    void TearDown() override {
        for (vconf_callback_fn callback : {record, recordAgain, removeSelf, removeOther}) {
            while (vconf_ignore_key_changed(kKey, callback) == VCONF_OK) {
            }
        }
    }

    KvTest::ProcessResult setInChild(const std::vector<std::string>& arguments) {
        std::vector<std::string> command = {KV_VCONF_TOOL_PATH};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return KvTest::runProcess(command);
    }

    bool waitFor(size_t count) {
        return KvTest::runMainLoopUntil([&] { return m_recorder.seen.size() >= count; });
    }

    KvTest::TempDevice m_device;
    Recorder m_recorder;
};

}  // namespace

TEST_F(VconfNotifyTest, SetCallsTheCallbackLaterOnTheLoopWithTheNewValue) {
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    EXPECT_TRUE(m_recorder.seen.empty()) << "never inside the set";
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(m_recorder.seen[0].name, kKey);
    EXPECT_EQ(m_recorder.seen[0].type, VCONF_TYPE_INT);
    EXPECT_EQ(m_recorder.seen[0].number, 1);
}

TEST_F(VconfNotifyTest, EverySetNotifiesEvenWithAnUnchangedValue) {
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    ASSERT_TRUE(waitFor(1));
    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    ASSERT_TRUE(waitFor(2));
    KvTest::runMainLoopFor(50ms);
    EXPECT_EQ(m_recorder.seen.size(), 2u);
}

TEST_F(VconfNotifyTest, OtherKeysDoNotNotify) {
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_set_int("memory/other", 1), VCONF_OK);
    ASSERT_EQ(vconf_set_str(kKey, "text"), VCONF_OK);
    ASSERT_TRUE(waitFor(1));
    KvTest::runMainLoopFor(50ms);
    ASSERT_EQ(m_recorder.seen.size(), 1u);
    EXPECT_EQ(m_recorder.seen[0].type, VCONF_TYPE_STRING);
    EXPECT_EQ(m_recorder.seen[0].text, "text");
}

TEST_F(VconfNotifyTest, EveryCallbackOfTheKeyIsCalledWithItsUserData) {
    Recorder second;
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_notify_key_changed(kKey, recordAgain, &second), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 3), VCONF_OK);
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return second.seen.size() == 1; }));
    ASSERT_EQ(m_recorder.seen.size(), 1u);
    EXPECT_EQ(second.seen[0].number, 3);
}

TEST_F(VconfNotifyTest, IgnoreRemovesOnlyThatCallback) {
    Recorder second;
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_notify_key_changed(kKey, recordAgain, &second), VCONF_OK);
    ASSERT_EQ(vconf_ignore_key_changed(kKey, recordAgain), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 3), VCONF_OK);
    ASSERT_TRUE(waitFor(1));
    KvTest::runMainLoopFor(50ms);
    EXPECT_TRUE(second.seen.empty());
}

TEST_F(VconfNotifyTest, IgnoreWithoutARegistrationIsAnError) {
    EXPECT_EQ(vconf_ignore_key_changed(kKey, record), VCONF_ERROR);
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    EXPECT_EQ(vconf_ignore_key_changed(kKey, recordAgain), VCONF_ERROR);
    EXPECT_EQ(vconf_ignore_key_changed("memory/other", record), VCONF_ERROR);
}

TEST_F(VconfNotifyTest, NullArgumentsAreErrors) {
    EXPECT_EQ(vconf_notify_key_changed(nullptr, record, nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_notify_key_changed(kKey, nullptr, nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_notify_key_changed("", record, nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_ignore_key_changed(nullptr, record), VCONF_ERROR);
    EXPECT_EQ(vconf_ignore_key_changed(kKey, nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_keynode_get_name(nullptr), nullptr);
    EXPECT_EQ(vconf_keynode_get_type(nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_keynode_get_int(nullptr), VCONF_ERROR);
    EXPECT_EQ(vconf_keynode_get_str(nullptr), nullptr);
}

TEST_F(VconfNotifyTest, ACallbackMayRemoveItself) {
    ASSERT_EQ(vconf_notify_key_changed(kKey, removeSelf, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    ASSERT_TRUE(waitFor(1));
    ASSERT_EQ(vconf_set_int(kKey, 2), VCONF_OK);
    KvTest::runMainLoopFor(100ms);
    EXPECT_EQ(m_recorder.seen.size(), 1u);
    // The watch stopped with its last registration and starts again.
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 3), VCONF_OK);
    ASSERT_TRUE(waitFor(2));
    EXPECT_EQ(m_recorder.seen[1].number, 3);
}

TEST_F(VconfNotifyTest, ACallbackMayRemoveAnotherThatIsThenNotCalled) {
    Recorder second;
    ASSERT_EQ(vconf_notify_key_changed(kKey, removeOther, &m_recorder), VCONF_OK);
    ASSERT_EQ(vconf_notify_key_changed(kKey, recordAgain, &second), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    ASSERT_TRUE(waitFor(1));
    KvTest::runMainLoopFor(50ms);
    EXPECT_TRUE(second.seen.empty());
}

TEST_F(VconfNotifyTest, SetInAnotherProcessOfTheDeviceNotifies) {
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    const KvTest::ProcessResult result = setInChild({"set", kKey, "int", "5"});
    ASSERT_EQ(result.exitCode, 0) << result.output;
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(m_recorder.seen[0].number, 5);
}

TEST_F(VconfNotifyTest, SetInAProcessOfAnotherDeviceDoesNotNotify) {
    KvTest::TempFolder otherDevice;
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    const KvTest::ProcessResult other =
        setInChild({"--device", otherDevice.path(), "set", kKey, "int", "7"});
    ASSERT_EQ(other.exitCode, 0) << other.output;
    KvTest::runMainLoopFor(200ms);
    EXPECT_TRUE(m_recorder.seen.empty());
    // The watch itself works: a set in this device arrives.
    ASSERT_EQ(setInChild({"set", kKey, "int", "8"}).exitCode, 0);
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(m_recorder.seen[0].number, 8);
}

TEST_F(VconfNotifyTest, RegistrationOffTheMainLoopThreadIsAnError) {
    int result = VCONF_OK;
    std::thread other([&] { result = vconf_notify_key_changed(kKey, record, &m_recorder); });
    other.join();
    EXPECT_EQ(result, VCONF_ERROR);
}

TEST_F(VconfNotifyTest, ChangingDevicesWhileWatchingIsAnError) {
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    KvTest::TempDevice other;
    EXPECT_EQ(vconf_notify_key_changed(kKey, recordAgain, &m_recorder), VCONF_ERROR);
}

TEST_F(VconfNotifyTest, KeynodeGettersOfAnotherTypeAreErrors) {
    ASSERT_EQ(vconf_notify_key_changed(kKey, record, &m_recorder), VCONF_OK);
    struct Check {
        int asBool = 0;
        char* asString = nullptr;
    } check;
    vconf_callback_fn inspect = [](keynode_t* node, void* data) {
        auto* seen = static_cast<Check*>(data);
        seen->asBool = vconf_keynode_get_bool(node);
        seen->asString = vconf_keynode_get_str(node);
    };
    ASSERT_EQ(vconf_notify_key_changed(kKey, inspect, &check), VCONF_OK);
    ASSERT_EQ(vconf_set_int(kKey, 1), VCONF_OK);
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(check.asBool, VCONF_ERROR);
    EXPECT_EQ(check.asString, nullptr);
    EXPECT_EQ(vconf_ignore_key_changed(kKey, inspect), VCONF_OK);
}
