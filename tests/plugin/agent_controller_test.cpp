// KvAgentController: the peer agent search and service connection events
// reach the listener's callbacks by kind, in their slots and with their
// arguments; events it cannot dispatch call nothing; authentication answers
// reach the success and error callbacks.
#include "PluginTestSupport.h"
#include "ScriptTestContext.h"

#include <JSCallbacksManager.h>
#include <KvAgent.h>
#include <KvAgentController.h>
#include <KvSocket.h>
#include <dlog-capture.h>

#include <CommonsJavaScript/JSCallbackManager.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace DeviceAPI::KVP;
using PluginTest::makePeer;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManager;

namespace {

// Records of kinds that the controller does not know.
class StrangeFindInfo : public EventInfoPeerAgentFind {
public:
    int getType() const override { return 3; }
};

class StrangeConnectionInfo : public EventInfoServiceConnection {
public:
    int getType() const override { return -1; }
};

class KvAgentControllerTest : public ::testing::Test {
protected:
    KvAgentControllerTest() {
        context.evaluate(
            "var heard = [];"
            "var owner = {tag: 'agent'};"
            "function describe(value) {"
            "  var name = Object.prototype.toString.call(value);"
            "  return name === '[object Object]' || name === '[object String]' ?"
            "      String(value) : name;"
            "}"
            "function record(name) {"
            "  return function () {"
            "    heard.push(name + '(' + Array.prototype.map.call(arguments, describe).join(' ') +"
            "               ')' + (this === owner ? ' on agent' : ''));"
            "  };"
            "}");
    }

    JSValueRef value(const char* script) { return context.evaluate(script); }
    std::string heard() { return context.text(context.evaluate("heard.join(',')")); }

    // A listener's callbacks: record(name) in each slot, `owner` as `this`.
    JSCallbacksManagerPtr listener(const char* first, const char* second, const char* third) {
        JSCallbacksManagerPtr callbacks = JSCallbacksManager::createObject(
            context.get(), record(first), record(second), record(third));
        callbacks->setObject(value("owner"));
        return callbacks;
    }

    JSValueRef record(const char* name) {
        return value(("record('" + std::string(name) + "')").c_str());
    }

    // Emits a peer agent search event carrying `info` through an emitter bound
    // to the controller, with `callbacks` as its private data.
    void emitFind(const DPL::SharedPtr<EventInfoPeerAgentFind>& info,
                  const JSCallbacksManagerPtr& callbacks) {
        auto emitter =
            KvListenerBinding<EventKvAgentPeerAgentFindListener>::make(&controller, callbacks);
        controller.peerAgentFindBinding().bind(emitter);
        auto event = std::make_shared<EventKvAgentPeerAgentFindListener>();
        event->info = info;
        emitter->emit(event);
    }

    void emitConnection(const DPL::SharedPtr<EventInfoServiceConnection>& info,
                        const JSCallbacksManagerPtr& callbacks) {
        auto emitter =
            KvListenerBinding<EventKvAgentServiceConnectionListener>::make(&controller, callbacks);
        controller.serviceConnectionBinding().bind(emitter);
        auto event = std::make_shared<EventKvAgentServiceConnectionListener>();
        event->info = info;
        emitter->emit(event);
    }

    // An answered authentication request carrying `callbacks`.
    std::shared_ptr<EventKvAgentAuthenticatePeerAgent> authentication(
        const std::shared_ptr<JSCallbackManager>& callbacks) {
        auto event = std::make_shared<EventKvAgentAuthenticatePeerAgent>();
        event->peerAgent = makePeer("peer-1");
        event->setPrivateData(callbacks);
        return event;
    }

    // Makes record(name) note the name and message of the error it gets.
    void recordErrors() {
        context.evaluate(
            "record = function (name) { return function (e) {"
            "  heard.push(name + ' ' + e.name + ' ' + e.message); }; }");
    }

    std::shared_ptr<JSCallbackManager> authenticationCallbacks() {
        return JSCallbackManager::createObject(context.get(), record("success"), record("error"));
    }

    ScriptTestContext context;
    KvAgentController controller{context.get(),
                                 std::make_shared<KvAgent>(std::make_shared<KvAgentInit>())};
};

TEST_F(KvAgentControllerTest, SearchResultsReachTheirCallbacksWithTheirArguments) {
    const auto callbacks = listener("found", "updated", "failed");
    const KvPeerAgentPtr peer = makePeer("peer-1");
    emitFind(std::make_shared<EventInfoPeerAgentFindFound>(peer), callbacks);
    emitFind(std::make_shared<EventInfoPeerAgentFindUpdated>(peer, 1), callbacks);
    emitFind(std::make_shared<EventInfoPeerAgentFindUpdated>(peer, 0), callbacks);
    emitFind(std::make_shared<EventInfoPeerAgentFindError>(1), callbacks);
    emitFind(std::make_shared<EventInfoPeerAgentFindError>(2), callbacks);
    EXPECT_EQ(heard(),
              "found([object KvPeerAgent]) on agent,"
              "updated([object KvPeerAgent] UNAVAILABLE) on agent,"
              "updated([object KvPeerAgent] AVAILABLE) on agent,"
              "failed(DUPLICATE_REQUEST) on agent,failed(DEVICE_NOT_CONNECTED) on agent");
}

TEST_F(KvAgentControllerTest, ConnectionEventsReachTheirCallbacksWithTheirArguments) {
    const auto callbacks = listener("request", "connect", "failed");
    auto socket = std::make_shared<KvSocket>();
    socket->setPeerAgent(makePeer("peer-1"));
    emitConnection(std::make_shared<EventInfoServiceConnectionRequest>(makePeer("peer-1")),
                   callbacks);
    emitConnection(std::make_shared<EventInfoServiceConnectionConnect>(socket), callbacks);
    emitConnection(std::make_shared<EventInfoServiceConnectionError>(3), callbacks);
    emitConnection(std::make_shared<EventInfoServiceConnectionError>(0), callbacks);
    EXPECT_EQ(heard(),
              "request([object KvPeerAgent]) on agent,connect([object KvSocket]) on agent,"
              "failed(INVALID_PEERAGENT) on agent,failed(ALREADY_EXIST) on agent");
}

TEST_F(KvAgentControllerTest, AnEmptySlotIsSkipped) {
    const auto callbacks = JSCallbacksManager::createObject(context.get(), record("found"));
    emitFind(std::make_shared<EventInfoPeerAgentFindError>(0), callbacks);
    emitFind(std::make_shared<EventInfoPeerAgentFindFound>(makePeer("peer-1")), callbacks);
    EXPECT_EQ(heard(), "found([object KvPeerAgent])");
}

TEST_F(KvAgentControllerTest, AnUnknownKindLogsWrongTypeAndCallsNothing) {
    DlogCapture capture;
    emitFind(std::make_shared<StrangeFindInfo>(), listener("found", "updated", "failed"));
    emitConnection(std::make_shared<StrangeConnectionInfo>(),
                   listener("request", "connect", "failed"));
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(capture.count("Wrong type"), 2u);
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "Wrong type"));
}

TEST_F(KvAgentControllerTest, AnEventWithoutRecordLogsLowerCaseWrongType) {
    DlogCapture capture;
    emitFind(nullptr, listener("found", "updated", "failed"));
    emitConnection(nullptr, listener("request", "connect", "failed"));
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(capture.count("wrong type"), 2u);
    EXPECT_EQ(capture.count("Wrong type"), 0u);
}

TEST_F(KvAgentControllerTest, AnEventWithoutCallbacksLogsNoCallbackManager) {
    DlogCapture capture;
    emitFind(std::make_shared<EventInfoPeerAgentFindError>(0), nullptr);
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "no callback manager"));
}

TEST_F(KvAgentControllerTest, AGoneControllerNoLongerListens) {
    auto emitter = std::make_shared<KvAgentPeerAgentFindEmitter>();
    {
        KvAgentController gone(context.get(),
                               std::make_shared<KvAgent>(std::make_shared<KvAgentInit>()));
        emitter = KvListenerBinding<EventKvAgentPeerAgentFindListener>::make(
            &gone, listener("found", "updated", "failed"));
        gone.peerAgentFindBinding().bind(emitter);
    }
    auto event = std::make_shared<EventKvAgentPeerAgentFindListener>();
    event->info = std::make_shared<EventInfoPeerAgentFindError>(0);
    emitter->emit(event);
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(emitter->getEventPrivateData(), nullptr);
}

TEST_F(KvAgentControllerTest, AnAuthenticatedPeerReachesTheSuccessCallbackWithItsToken) {
    auto event = authentication(authenticationCallbacks());
    event->token = std::make_shared<KvAuthenticationToken>("token-1", 1);
    controller.answerAuthentication(event);
    EXPECT_EQ(heard(), "success([object KvPeerAgent] [object KvAuthenticationToken])");
}

TEST_F(KvAgentControllerTest, CodeOneIsTokenNotGeneratedWithTheMessage) {
    recordErrors();
    auto event = authentication(authenticationCallbacks());
    event->error = std::make_shared<KvErrorObject>(1, "Invalid state");
    controller.answerAuthentication(event);
    EXPECT_EQ(heard(), "error TokenNotGeneratedError Invalid state");
}

TEST_F(KvAgentControllerTest, AnyOtherCodeIsAnUnknownError) {
    recordErrors();
    auto event = authentication(authenticationCallbacks());
    event->error = std::make_shared<KvErrorObject>(5, "Unknown error");
    DlogCapture capture;
    controller.answerAuthentication(event);
    EXPECT_EQ(heard(), "error UnknownError Unknown error");
    EXPECT_TRUE(capture.contains(DLOG_WARN, "Unknown Error was delivered."));
}

TEST_F(KvAgentControllerTest, AnAnswerWithoutCallbacksLogsNoCallbackManager) {
    auto event = authentication(nullptr);
    event->error = std::make_shared<KvErrorObject>(1, "Invalid state");
    DlogCapture capture;
    controller.answerAuthentication(event);
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "no callback manager"));
}

TEST_F(KvAgentControllerTest, AnAnswerWithEmptyCallbacksCallsAndLogsNothing) {
    auto event = authentication(JSCallbackManager::createObject(context.get()));
    event->error = std::make_shared<KvErrorObject>(1, "Invalid state");
    DlogCapture capture;
    controller.answerAuthentication(event);
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.lines().empty());
}

}  // namespace
