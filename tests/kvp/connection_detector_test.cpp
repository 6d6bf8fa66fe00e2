// Tests of the connection detector against the fake vconf: when it watches
// the link key, and whom it tells of which change. See
// connection_detector_vconf_test.cpp for the detector on the real vconf.
#include <KvConnectionDetector.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "fake_vconf.h"

using namespace DeviceAPI::KVP;

namespace {

const std::string kKey = "memory/private/kvp/conn_status";

// A receiver that writes what it is told into a shared journal.
class JournalReceiver : public KvConnectionReceiver {
public:
    JournalReceiver() = default;
    JournalReceiver(std::vector<std::string>* journal, std::string name)
        : journal(journal), name(std::move(name)) {}

    void onConnected() override { note("connected"); }
    void onDisconnected() override { note("disconnected"); }

    std::vector<std::string>* journal = nullptr;
    std::string name;
    // Runs after the note, if set.
    std::function<void()> afterNote;

private:
    void note(const std::string& what) {
        journal->push_back(name + " " + what);
        if (afterNote) {
            afterNote();
        }
    }
};

std::string addressText(const void* pointer) {
    std::ostringstream text;
    text << pointer;
    return text.str();
}

class ConnectionDetectorTest : public testing::Test {
protected:
    void SetUp() override {
        FakeVconf::reset();
        // Receivers in address order, which is the order of dispatch.
        for (size_t i = 0; i < 3; ++i) {
            receivers[i] = JournalReceiver(&journal, "receiver" + std::to_string(i));
        }
    }

    // Writes the key and delivers the change, as vconf would.
    void changeKey(int value) {
        FakeVconf::setInt(kKey, value);
        FakeVconf::notifyKeyChanged(kKey);
    }

    std::vector<std::string> journal;
    JournalReceiver receivers[3];
    KvConnectionDetector detector;
};

}  // namespace

TEST_F(ConnectionDetectorTest, KeyIsTheLinkStatusKey) {
    EXPECT_STREQ(KvConnectionDetector::kConnectionStatusKey, "memory/private/kvp/conn_status");
}

TEST_F(ConnectionDetectorTest, NothingIsWatchedBeforeTheFirstReceiver) {
    EXPECT_TRUE(FakeVconf::calls().empty());
    EXPECT_EQ(FakeVconf::watcherCount(kKey), 0u);
}

TEST_F(ConnectionDetectorTest, TwoReceiversStartTheWatchOnce) {
    detector.registerReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[1]);
    EXPECT_EQ(FakeVconf::calls(),
              std::vector<std::string>{"vconf_notify_key_changed(" + kKey + ")"});
    EXPECT_EQ(FakeVconf::watcherCount(kKey), 1u);
    detector.unregisterReceiver(&receivers[0]);
    detector.unregisterReceiver(&receivers[1]);
}

TEST_F(ConnectionDetectorTest, UnregisteringOneOfTwoKeepsTheWatch) {
    detector.registerReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[1]);
    detector.unregisterReceiver(&receivers[0]);
    EXPECT_EQ(FakeVconf::watcherCount(kKey), 1u);
    EXPECT_EQ(FakeVconf::calls().size(), 1u);

    changeKey(1);
    EXPECT_EQ(journal, std::vector<std::string>{"receiver1 connected"});
    detector.unregisterReceiver(&receivers[1]);
}

TEST_F(ConnectionDetectorTest, UnregisteringTheLastStopsTheWatch) {
    detector.registerReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[1]);
    detector.unregisterReceiver(&receivers[1]);
    detector.unregisterReceiver(&receivers[0]);
    EXPECT_EQ(FakeVconf::calls(),
              (std::vector<std::string>{"vconf_notify_key_changed(" + kKey + ")",
                                        "vconf_ignore_key_changed(" + kKey + ")"}));
    EXPECT_EQ(FakeVconf::watcherCount(kKey), 0u);
}

TEST_F(ConnectionDetectorTest, WatchStartsAgainAfterItStopped) {
    detector.registerReceiver(&receivers[0]);
    detector.unregisterReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[0]);
    EXPECT_EQ(FakeVconf::watcherCount(kKey), 1u);
    changeKey(0);
    EXPECT_EQ(journal, std::vector<std::string>{"receiver0 disconnected"});
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, LinkUpTellsEveryReceiverInAddressOrder) {
    detector.registerReceiver(&receivers[2]);
    detector.registerReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[1]);
    changeKey(1);
    EXPECT_EQ(journal, (std::vector<std::string>{"receiver0 connected", "receiver1 connected",
                                                 "receiver2 connected"}));
    for (JournalReceiver& receiver : receivers) {
        detector.unregisterReceiver(&receiver);
    }
}

TEST_F(ConnectionDetectorTest, LinkDownTellsEveryReceiver) {
    detector.registerReceiver(&receivers[1]);
    detector.registerReceiver(&receivers[0]);
    changeKey(0);
    EXPECT_EQ(journal,
              (std::vector<std::string>{"receiver0 disconnected", "receiver1 disconnected"}));
    detector.unregisterReceiver(&receivers[0]);
    detector.unregisterReceiver(&receivers[1]);
}

TEST_F(ConnectionDetectorTest, OtherValuesTellNobody) {
    detector.registerReceiver(&receivers[0]);
    changeKey(2);
    changeKey(-1);
    changeKey(100);
    EXPECT_TRUE(journal.empty());
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, LinkUpTwiceIsReportedTwice) {
    detector.registerReceiver(&receivers[0]);
    changeKey(1);
    changeKey(1);
    EXPECT_EQ(journal, (std::vector<std::string>{"receiver0 connected", "receiver0 connected"}));
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, TheKeyIsReadAgainOnEveryChange) {
    detector.registerReceiver(&receivers[0]);
    FakeVconf::setInt(kKey, 1);
    FakeVconf::notifyKeyChanged(kKey);
    FakeVconf::setInt(kKey, 0);
    FakeVconf::notifyKeyChanged(kKey);
    const std::vector<std::string> calls = FakeVconf::calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "vconf_get_int(" + kKey + ")"), 2);
    EXPECT_EQ(journal, (std::vector<std::string>{"receiver0 connected", "receiver0 disconnected"}));
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, AnUnreadableKeyTellsNobody) {
    detector.registerReceiver(&receivers[0]);
    FakeVconf::notifyKeyChanged(kKey);
    EXPECT_TRUE(journal.empty());
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, ReceiverRegisteredTwiceIsToldOnce) {
    detector.registerReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[0]);
    changeKey(1);
    EXPECT_EQ(journal, std::vector<std::string>{"receiver0 connected"});
    detector.unregisterReceiver(&receivers[0]);
    EXPECT_EQ(FakeVconf::watcherCount(kKey), 0u);
}

TEST_F(ConnectionDetectorTest, UnknownReceiverIsLoggedAndTheOthersStay) {
    detector.registerReceiver(&receivers[0]);
    DlogCapture capture;
    detector.unregisterReceiver(&receivers[1]);

    const std::vector<DlogLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, DLOG_ERROR);
    EXPECT_EQ(lines[0].tag, "WRT_PLUGINS/TIZEN");
    const std::string expected = "There is no receiver : " + addressText(&receivers[1]);
    EXPECT_EQ(lines[0].message.substr(lines[0].message.find(" > ") + 3), expected);
    EXPECT_EQ(lines[0].message.rfind("KvConnectionDetector.cpp: unregisterReceiver(", 0), 0u);

    EXPECT_EQ(FakeVconf::watcherCount(kKey), 1u);
    changeKey(1);
    EXPECT_EQ(journal, std::vector<std::string>{"receiver0 connected"});
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, UnknownReceiverWithNoneRegisteredChangesNothing) {
    DlogCapture capture;
    detector.unregisterReceiver(&receivers[0]);
    EXPECT_EQ(capture.count("There is no receiver : "), 1u);
    EXPECT_TRUE(FakeVconf::calls().empty());
}

TEST_F(ConnectionDetectorTest, ReceiverMayUnregisterItselfWhileTold) {
    detector.registerReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[1]);
    receivers[0].afterNote = [this] { detector.unregisterReceiver(&receivers[0]); };
    changeKey(1);
    changeKey(0);
    EXPECT_EQ(journal, (std::vector<std::string>{"receiver0 connected", "receiver1 connected",
                                                 "receiver1 disconnected"}));
    detector.unregisterReceiver(&receivers[1]);
}

TEST_F(ConnectionDetectorTest, ReceiverRemovedWhileOthersAreToldIsSkipped) {
    detector.registerReceiver(&receivers[0]);
    detector.registerReceiver(&receivers[1]);
    receivers[0].afterNote = [this] { detector.unregisterReceiver(&receivers[1]); };
    changeKey(1);
    EXPECT_EQ(journal, std::vector<std::string>{"receiver0 connected"});
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, FailingReceiverIsCaughtAndLogged) {
    detector.registerReceiver(&receivers[0]);
    receivers[0].afterNote = [] { throw std::runtime_error("receiver broke"); };
    DlogCapture capture;
    EXPECT_NO_THROW(changeKey(1));
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "receiver broke"));
    EXPECT_EQ(journal, std::vector<std::string>{"receiver0 connected"});
    detector.unregisterReceiver(&receivers[0]);
}

TEST_F(ConnectionDetectorTest, SingletonIsOneDetectorPerProcess) {
    KvConnectionDetector& first = KvConnectionDetectorSingleton::Instance();
    KvConnectionDetector& second = KvConnectionDetectorSingleton::Instance();
    EXPECT_EQ(&first, &second);
    first.registerReceiver(&receivers[0]);
    changeKey(1);
    EXPECT_EQ(journal, std::vector<std::string>{"receiver0 connected"});
    second.unregisterReceiver(&receivers[0]);
    EXPECT_EQ(FakeVconf::watcherCount(kKey), 0u);
}
