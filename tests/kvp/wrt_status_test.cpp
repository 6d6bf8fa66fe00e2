// The runtime status object and the bridge's side of the link detector. The
// first test must see a process in which nothing has made the bridge yet.
#include "KvpTestSupport.h"
#include "fake_vconf.h"

#include <KvConnectionDetector.h>
#include <KvWrtStatus.h>

using namespace KvpTest;

TEST(WrtStatusTest, WidgetStopBeforeAnythingElseMakesTheBridgeAndSoftResetsIt) {
    DPL::MainLoop::Instance();
    ASSERT_EQ(KvpDouble::count("registerNotifications"), 0u) << "the bridge must not exist yet";
    DlogCapture log;
    KvWrtStatusSingleton::Instance().onWidgetStop();
    EXPECT_EQ(KvpDouble::count("registerNotifications"), 1u);
    EXPECT_TRUE(KvpDouble::notificationsRegistered());
    EXPECT_TRUE(log.contains(DLOG_INFO, "softReset"));
    EXPECT_GE(FakeVconf::watcherCount(KvConnectionDetector::kConnectionStatusKey), 1u)
        << "the bridge watches the link";
}

TEST(WrtStatusTest, WidgetStartDoesNothing) {
    KvpDouble::reset();
    KvWrtStatusSingleton::Instance().onWidgetStart();
    EXPECT_TRUE(KvpDouble::calls().empty());
}

class LinkKeyTest : public KvpFixture {};

TEST_F(LinkKeyTest, LinkUpTwiceInARowAttachesOnce) {
    auto agent = std::make_shared<RecordingAgent>(makeInit("a"));
    proxy().setAgentList(std::make_shared<std::vector<KvAgentPtr>>(std::vector<KvAgentPtr>{agent}));
    KvpDouble::reset();
    FakeVconf::setInt(KvConnectionDetector::kConnectionStatusKey, 1);
    FakeVconf::notifyKeyChanged(KvConnectionDetector::kConnectionStatusKey);
    FakeVconf::notifyKeyChanged(KvConnectionDetector::kConnectionStatusKey);
    EXPECT_EQ(KvpDouble::count("registerNotifications"), 1u);
    EXPECT_EQ(agent->calls, std::vector<std::string>{"onDeviceAttached"});
}

TEST_F(LinkKeyTest, LinkDownDetachesOnceAndOtherValuesDoNothing) {
    auto agent = std::make_shared<RecordingAgent>(makeInit("a"));
    proxy().onConnected();
    registerAgent(agent, 4);
    agent->calls.clear();
    FakeVconf::setInt(KvConnectionDetector::kConnectionStatusKey, 2);
    FakeVconf::notifyKeyChanged(KvConnectionDetector::kConnectionStatusKey);
    EXPECT_TRUE(agent->calls.empty());
    FakeVconf::setInt(KvConnectionDetector::kConnectionStatusKey, 0);
    FakeVconf::notifyKeyChanged(KvConnectionDetector::kConnectionStatusKey);
    FakeVconf::notifyKeyChanged(KvConnectionDetector::kConnectionStatusKey);
    EXPECT_EQ(agent->calls, std::vector<std::string>{"onDeviceDetached"});
    EXPECT_EQ(KvpDouble::count("deRegisterServiceAgent"), 1u);
}
