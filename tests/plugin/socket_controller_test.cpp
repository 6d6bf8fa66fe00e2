// KvSocketController: received data and the connection's loss reach the
// socket's callbacks; the listeners stay in force through a peer's close, and
// once the device is detached (the last loss a socket hears) they are
// released on the next turn of the main loop, so that the script object they
// held can go.
#include "ScriptTestContext.h"

#include <JSCallbacksManager.h>
#include <KvSocket.h>
#include <KvSocketController.h>
#include <MainLoopRunner.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

using namespace DeviceAPI::KVP;

namespace {

class KvSocketControllerTest : public ::testing::Test {
protected:
    KvSocketControllerTest() {
        context.evaluate(
            "var heard = [];"
            "var owner = {};"
            "function record(name) {"
            "  return function () {"
            "    heard.push(name + JSON.stringify(Array.prototype.slice.call(arguments)) +"
            "               (this === owner ? ' on socket' : ''));"
            "  };"
            "}");
    }

    std::string heard() { return context.text(context.evaluate("heard.join(',')")); }

    JSCallbacksManagerPtr callbacks(const char* name) {
        JSCallbacksManagerPtr made = JSCallbacksManager::createObject(
            context.get(), context.evaluate(("record('" + std::string(name) + "')").c_str()));
        made->setObject(context.evaluate("owner"));
        return made;
    }

    KvSocketDataReceiveEmitterPtr dataEmitter(const JSCallbacksManagerPtr& made) {
        auto emitter = KvListenerBinding<EventKvSocketDataReceiveListener>::make(&controller, made);
        controller.dataReceiveBinding().bind(emitter);
        return emitter;
    }

    KvSocketStatusEmitterPtr statusEmitter(const JSCallbacksManagerPtr& made) {
        auto emitter =
            KvListenerBinding<EventKvSocketSocketStatusListener>::make(&controller, made);
        controller.socketStatusBinding().bind(emitter);
        return emitter;
    }

    static DPL::SharedPtr<EventKvSocketDataReceiveListener> data(unsigned long channelId,
                                                                 const std::string& text) {
        auto event = std::make_shared<EventKvSocketDataReceiveListener>();
        event->channelId = channelId;
        event->data = text;
        return event;
    }

    static DPL::SharedPtr<EventKvSocketSocketStatusListener> lost(int reason) {
        auto event = std::make_shared<EventKvSocketSocketStatusListener>();
        event->reason = reason;
        return event;
    }

    ScriptTestContext context;
    KvSocketController controller{context.get(), std::make_shared<KvSocket>()};
};

TEST_F(KvSocketControllerTest, DataReachesTheCallbackAsChannelAndText) {
    auto emitter = dataEmitter(callbacks("data"));
    emitter->emit(data(104, "hello"));
    emitter->emit(data(105, ""));
    EXPECT_EQ(heard(), "data[104,\"hello\"] on socket,data[105,\"\"] on socket");
}

TEST_F(KvSocketControllerTest, TheLossReachesTheCallbackAsItsStatusString) {
    auto emitter = statusEmitter(callbacks("status"));
    emitter->emit(lost(1));
    emitter->emit(lost(3));
    EXPECT_EQ(heard(), "status[\"DEVICE_DETACHED\"] on socket,status[\"\"] on socket");
}

TEST_F(KvSocketControllerTest, APeersCloseKeepsBothListenersForTheDetach) {
    auto data = dataEmitter(callbacks("data"));
    auto status = statusEmitter(callbacks("status"));
    status->emit(lost(0));
    KvTest::runMainLoopFor(std::chrono::milliseconds(50));
    EXPECT_NE(data->getEventPrivateData(), nullptr);
    EXPECT_NE(status->getEventPrivateData(), nullptr);
    status->emit(lost(1));
    EXPECT_EQ(heard(),
              "status[\"PEER_DISCONNECTED\"] on socket,status[\"DEVICE_DETACHED\"] on socket");
}

TEST_F(KvSocketControllerTest, TheDetachReleasesBothListenersOnTheNextTurn) {
    auto data = dataEmitter(callbacks("data"));
    auto status = statusEmitter(callbacks("status"));
    status->emit(lost(1));
    EXPECT_NE(data->getEventPrivateData(), nullptr) << "released inside the delivery";
    KvTest::runMainLoopUntil([&] { return data->getEventPrivateData() == nullptr; });
    EXPECT_EQ(data->getEventPrivateData(), nullptr);
    EXPECT_EQ(status->getEventPrivateData(), nullptr);
    data->emit(KvSocketControllerTest::data(104, "late"));
    EXPECT_EQ(heard(), "status[\"DEVICE_DETACHED\"] on socket");
}

TEST_F(KvSocketControllerTest, AnEventWithoutCallbacksLogsNoCallbackManager) {
    auto emitter = dataEmitter(nullptr);
    DlogCapture capture;
    emitter->emit(data(104, "x"));
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "no callback manager"));
}

}  // namespace
