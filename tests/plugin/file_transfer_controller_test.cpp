// KvFileTransferController: each kind of file send and file receive record
// reaches its callback with the transfer id and its own value; records of
// an unknown kind, events without a record and events without callbacks
// call nothing.
#include "ScriptTestContext.h"

#include <JSCallbacksManager.h>
#include <KvFileTransfer.h>
#include <KvFileTransferController.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace DeviceAPI::KVP;

namespace {

class StrangeSendInfo : public EventInfoFileSend {
public:
    StrangeSendInfo() : EventInfoFileSend(1) {}
    int getType() const override { return 3; }
};

class StrangeReceiveInfo : public EventInfoFileReceive {
public:
    StrangeReceiveInfo() : EventInfoFileReceive(1) {}
    int getType() const override { return 4; }
};

class KvFileTransferControllerTest : public ::testing::Test {
protected:
    KvFileTransferControllerTest() {
        context.evaluate(
            "var heard = [];"
            "var owner = {};"
            "function record(name) {"
            "  return function () {"
            "    heard.push(name + JSON.stringify(Array.prototype.slice.call(arguments)) +"
            "               (this === owner ? '' : ' on another object'));"
            "  };"
            "}");
    }

    std::string heard() { return context.text(context.evaluate("heard.join(' ')")); }

    JSValueRef record(const char* name) {
        return context.evaluate(("record('" + std::string(name) + "')").c_str());
    }

    JSCallbacksManagerPtr sendCallbacks() {
        auto made = JSCallbacksManager::createObject(context.get(), record("progress"),
                                                     record("complete"), record("error"));
        made->setObject(context.evaluate("owner"));
        return made;
    }

    JSCallbacksManagerPtr receiveCallbacks() {
        auto made =
            JSCallbacksManager::createObject(context.get(), record("receive"), record("progress"),
                                             record("complete"), record("error"));
        made->setObject(context.evaluate("owner"));
        return made;
    }

    void emitSend(const DPL::SharedPtr<EventInfoFileSend>& info,
                  const JSCallbacksManagerPtr& callbacks) {
        auto emitter =
            KvListenerBinding<EventKvFileTransferFileSendListener>::make(&controller, callbacks);
        controller.fileSendBinding().bind(emitter);
        auto event = std::make_shared<EventKvFileTransferFileSendListener>();
        event->info = info;
        emitter->emit(event);
    }

    void emitReceive(const DPL::SharedPtr<EventInfoFileReceive>& info,
                     const JSCallbacksManagerPtr& callbacks) {
        auto emitter =
            KvListenerBinding<EventKvFileTransferFileReceiveListener>::make(&controller, callbacks);
        controller.fileReceiveBinding().bind(emitter);
        auto event = std::make_shared<EventKvFileTransferFileReceiveListener>();
        event->info = info;
        emitter->emit(event);
    }

    ScriptTestContext context;
    KvFileTransferController controller{context.get(), std::make_shared<KvFileTransfer>(nullptr)};
};

TEST_F(KvFileTransferControllerTest, SendRecordsReachTheirCallbacks) {
    const auto callbacks = sendCallbacks();
    emitSend(std::make_shared<EventInfoFileSendProgress>(61, 30), callbacks);
    emitSend(std::make_shared<EventInfoFileSendComplete>(61, "/opt/usr/media/a.txt"), callbacks);
    emitSend(std::make_shared<EventInfoFileSendComplete>(62, "file:///opt/usr/media/b.txt"),
             callbacks);
    emitSend(std::make_shared<EventInfoFileSendError>(63, 1), callbacks);
    emitSend(std::make_shared<EventInfoFileSendError>(64, 9), callbacks);
    EXPECT_EQ(heard(),
              "progress[61,30] complete[61,\"file:///opt/usr/media/a.txt\"] "
              "complete[62,\"file:///opt/usr/media/b.txt\"] error[63,\"PEER_BUSY\"] "
              "error[64,\"\"]");
}

TEST_F(KvFileTransferControllerTest, ReceiveRecordsReachTheirCallbacks) {
    const auto callbacks = receiveCallbacks();
    emitReceive(std::make_shared<EventInfoFileReceiveReceive>(42, "photo.jpg"), callbacks);
    emitReceive(std::make_shared<EventInfoFileReceiveProgress>(42, 100), callbacks);
    emitReceive(std::make_shared<EventInfoFileReceiveComplete>(42, "/opt/usr/media/photo.jpg"),
                callbacks);
    emitReceive(std::make_shared<EventInfoFileReceiveError>(43, 1), callbacks);
    EXPECT_EQ(heard(),
              "receive[42,\"photo.jpg\"] progress[42,100] "
              "complete[42,\"file:///opt/usr/media/photo.jpg\"] error[43,\"PEER_CHANNEL_IO\"]");
}

TEST_F(KvFileTransferControllerTest, AnEmptySlotIsSkipped) {
    auto callbacks =
        JSCallbacksManager::createObject(context.get(), nullptr, nullptr, nullptr, record("error"));
    callbacks->setObject(context.evaluate("owner"));
    emitReceive(std::make_shared<EventInfoFileReceiveReceive>(42, "photo.jpg"), callbacks);
    emitReceive(std::make_shared<EventInfoFileReceiveError>(42, 6), callbacks);
    EXPECT_EQ(heard(), "error[42,\"UNKNOWN_ERROR\"]");
}

TEST_F(KvFileTransferControllerTest, AnUnknownKindLogsWrongTypeAndCallsNothing) {
    DlogCapture capture;
    emitSend(std::make_shared<StrangeSendInfo>(), sendCallbacks());
    emitReceive(std::make_shared<StrangeReceiveInfo>(), receiveCallbacks());
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(capture.count("Wrong type"), 2u);
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "Wrong type"));
}

TEST_F(KvFileTransferControllerTest, AnEventWithoutRecordLogsLowerCaseWrongType) {
    DlogCapture capture;
    emitSend(nullptr, sendCallbacks());
    emitReceive(nullptr, receiveCallbacks());
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(capture.count("wrong type"), 2u);
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "wrong type"));
}

TEST_F(KvFileTransferControllerTest, AnEventWithoutCallbacksLogsNoCallbackManager) {
    DlogCapture capture;
    emitReceive(std::make_shared<EventInfoFileReceiveReceive>(42, "photo.jpg"), nullptr);
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "no callback manager"));
}

}  // namespace
