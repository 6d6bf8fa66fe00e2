// Script objects of sockets, file transfers and agents that the script drops
// are collected, listeners and all: making and dropping many of them leaves
// only the one whose listener the native object still uses. Nothing is
// called through a listener whose object went, and a listener replaced while
// it is being delivered is not freed under the delivery.
#include "PluginTestSupport.h"
#include "ScriptTestContext.h"

#include <JSKvAgent.h>
#include <KvAgent.h>
#include <KvConverter.h>
#include <KvFileTransfer.h>
#include <KvSocket.h>
#include <MainLoopRunner.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

using namespace DeviceAPI::KVP;
using PluginTest::makePeer;

namespace {

// How many script objects are made and dropped.
constexpr int OBJECTS = 300;
// The most of them that may still be alive after a collection: the one in
// use, and a few that the collector may still see on the native stack.
constexpr long SURVIVORS = 10;

class ScriptObjectMemoryTest : public ::testing::Test {
protected:
    ScriptObjectMemoryTest() { context.evaluate("var heard = [];"); }

    std::string heard() { return context.text(context.evaluate("heard.join(',')")); }

    // Makes OBJECTS script objects of `native` as the global `object`, runs
    // `script` with each and drops it.
    template <class Native>
    void makeAndDrop(const DPL::SharedPtr<Native>& native, const std::string& script) {
        for (int made = 0; made < OBJECTS; ++made) {
            context.setGlobal("object", KvConverter(context.get()).toJSValueRef(native));
            JSValueRef exception = nullptr;
            context.evaluate(script + "; object = null;", &exception);
            ASSERT_EQ(exception, nullptr) << context.text(exception);
        }
        context.collectGarbage();
    }

    ScriptTestContext context;
};

TEST_F(ScriptObjectMemoryTest, DroppedSocketObjectsAreCollected) {
    auto socket = std::make_shared<KvSocket>();
    socket->setPeerAgent(makePeer("peer-1"));
    socket->setConnectionId(5);
    makeAndDrop(socket,
                "object.setDataReceiveListener(function (channel, data) { heard.push(data); });"
                "object.setSocketStatusListener(function (reason) { heard.push(reason); })");
    EXPECT_LT(socket.use_count(), SURVIVORS + 1);
    socket->onReceive(104, "data");
    EXPECT_EQ(heard(), "data");
    socket->onConnectionLost(1);
    EXPECT_EQ(heard(), "data,DEVICE_DETACHED");
    // The loss releases the listeners on the next turn; then the last object goes too.
    KvTest::runMainLoopFor(std::chrono::milliseconds(20));
    context.collectGarbage();
    EXPECT_LT(socket.use_count(), SURVIVORS);
    socket->onReceive(104, "late");
    EXPECT_EQ(heard(), "data,DEVICE_DETACHED");
}

TEST_F(ScriptObjectMemoryTest, DroppedFileTransferObjectsAreCollected) {
    auto fileTransfer = std::make_shared<KvFileTransfer>(nullptr);
    makeAndDrop(fileTransfer,
                "object.setFileReceiveListener({onreceive: function (id, name) {"
                "  heard.push(id + ' ' + name); }});"
                "object.setFileSendListener({onprogress: function (id, progress) {"
                "  heard.push(id + ' ' + progress + '%'); }})");
    EXPECT_LT(fileTransfer.use_count(), SURVIVORS + 1);
    fileTransfer->onFileReceive(42, "/remote/photo.jpg");
    EXPECT_EQ(heard(), "42 photo.jpg");
}

TEST_F(ScriptObjectMemoryTest, DroppedAgentObjectsAreCollected) {
    auto init = std::make_shared<KvAgentInit>();
    init->id = "/kvtest/hello";
    auto agent = std::make_shared<KvAgent>(init);
    for (int made = 0; made < OBJECTS; ++made) {
        context.setGlobal("object", JSKvAgent::createJSObject(context.get(), agent));
        context.evaluate(
            "object.setPeerAgentFindListener({onerror: function (code) { heard.push(code); }});"
            "object = null;");
    }
    context.collectGarbage();
    EXPECT_LT(agent.use_count(), SURVIVORS + 1);
    agent->onFindPeerAgentError(0);
    EXPECT_EQ(heard(), "PEER_NOT_FOUND");
}

TEST_F(ScriptObjectMemoryTest, AListenerReplacedDuringItsDeliveryOutlivesTheDelivery) {
    auto socket = std::make_shared<KvSocket>();
    socket->setConnectionId(5);
    context.setGlobal("socket", KvConverter(context.get()).toJSValueRef(socket));
    context.evaluate(
        "socket.setDataReceiveListener(function (channel, data) {"
        "  heard.push('first ' + data);"
        "  socket.setDataReceiveListener(function (channel, data) {"
        "    heard.push('second ' + data);"
        "  });"
        "});");
    socket->onReceive(104, "a");
    socket->onReceive(104, "b");
    KvTest::runMainLoopFor(std::chrono::milliseconds(20));
    socket->onReceive(104, "c");
    EXPECT_EQ(heard(), "first a,second b,second c");
}

}  // namespace
