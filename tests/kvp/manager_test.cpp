#include "KvpTestSupport.h"

#include <KvManager.h>

using namespace KvpTest;

namespace {

class ManagerTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        manager = std::make_shared<KvManager>();
    }

    DPL::SharedPtr<EventKvManagerSetDeviceStatusListener> listen(
        RecordingListener<EventKvManagerDeviceStatusListener>* listener) {
        auto event = std::make_shared<EventKvManagerSetDeviceStatusListener>();
        if (listener != nullptr) {
            event->emitter = emitterFor(*listener);
        }
        return request(*manager, event);
    }

    KvManagerPtr manager;
};

}  // namespace

TEST_F(ManagerTest, FirstDeviceStatusListenerRegistersTheManagerWithTheBridge) {
    EXPECT_EQ(proxy().getManager(), nullptr);
    RecordingListener<EventKvManagerDeviceStatusListener> status;
    EXPECT_EQ(listen(&status)->getExceptionCode(), 0);
    EXPECT_EQ(proxy().getManager(), manager);
    proxy().onConnected();
    proxy().onDisconnected();
    ASSERT_EQ(status.events.size(), 2u);
    EXPECT_EQ(status.events[0]->deviceStatus, KV_DEVICE_ATTACHED);
    EXPECT_EQ(status.events[1]->deviceStatus, KV_DEVICE_DETACHED);
    EXPECT_EQ(status.events[0]->transportType, 0);
}

TEST_F(ManagerTest, DeviceStatusListenerSetTwiceKeepsOnlyTheSecond) {
    RecordingListener<EventKvManagerDeviceStatusListener> first;
    RecordingListener<EventKvManagerDeviceStatusListener> second;
    listen(&first);
    listen(&second);
    manager->onDeviceStatus(0, 0);
    EXPECT_TRUE(first.events.empty());
    EXPECT_EQ(second.events.size(), 1u);
}

TEST_F(ManagerTest, DeviceStatusListenerWithoutEmitterIsCodeSixAndKeepsTheOldOne) {
    RecordingListener<EventKvManagerDeviceStatusListener> status;
    listen(&status);
    DlogCapture log;
    EXPECT_EQ(listen(nullptr)->getExceptionCode(), 6);
    EXPECT_TRUE(
        log.contains(DLOG_ERROR, "Error during set ondevicestatus callback : Invalid arguments."));
    manager->onDeviceStatus(0, 1);
    EXPECT_EQ(status.events.size(), 1u);
}

TEST_F(ManagerTest, AnotherManagerDoesNotReplaceTheRegisteredOne) {
    listen(nullptr);
    auto other = std::make_shared<KvManager>();
    request(*other, std::make_shared<EventKvManagerSetDeviceStatusListener>());
    EXPECT_EQ(proxy().getManager(), manager);
}

TEST_F(ManagerTest, SoftResetKeepsTheDeviceStatusListener) {
    RecordingListener<EventKvManagerDeviceStatusListener> status;
    listen(&status);
    proxy().softReset();
    manager->onDeviceStatus(KV_TRANSPORT_BT, KV_DEVICE_DETACHED);
    ASSERT_EQ(status.events.size(), 1u);
    EXPECT_EQ(status.events[0]->deviceStatus, KV_DEVICE_DETACHED);
}

TEST_F(ManagerTest, AgentRequestIsDeliveredAfterItsDueTime) {
    struct Controller : WrtDeviceApis::Commons::EventAnswerReceiver<EventKvManagerRequestKvAgent> {
        Controller() : EventAnswerReceiver(WrtDeviceApis::Commons::ThreadEnum::NULL_THREAD) {}
        int answers = 0;
        void OnAnswerReceived(const DPL::SharedPtr<EventKvManagerRequestKvAgent>&) override {
            ++answers;
        }
    } controller;
    auto event = std::make_shared<EventKvManagerRequestKvAgent>();
    event->setForAsynchronousCall(&controller);
    static_cast<WrtDeviceApis::Commons::EventRequestReceiver<EventKvManagerRequestKvAgent>&>(
        *manager)
        .PostRequest(event, 0.01);
    EXPECT_EQ(controller.answers, 0);
    ASSERT_TRUE(KvTest::runMainLoopUntil([&] { return controller.answers == 1; }));
    ASSERT_NE(event->error, nullptr) << "the fake app has no profile";
    EXPECT_EQ(event->error->getMessage(), "Failed to register KvAgent.");
}

TEST_F(ManagerTest, ProcessHasOneManager) {
    EXPECT_EQ(KvManager::getInstance(), KvManager::getInstance());
    EXPECT_NE(KvManager::getInstance(), nullptr);
}
