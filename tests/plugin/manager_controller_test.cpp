// KvManagerController's answers: how an agent request's outcome reaches the
// script's callbacks, and the device status listener.
#include "ScriptTestContext.h"

#include <JSCallbacksManager.h>
#include <KvManagerController.h>
#include <dlog-capture.h>

#include <CommonsJavaScript/JSCallbackManager.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace DeviceAPI::KVP;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManager;

namespace {

class KvManagerControllerTest : public ::testing::Test {
protected:
    KvManagerControllerTest() {
        context.evaluate(
            "var heard = [];"
            "function onSuccess(agents) { heard.push('success ' + agents.length); }"
            "function onError(error) { heard.push('error ' + error.name + ' ' + error.message); }"
            "function onStatus(type, status) { heard.push(type + ' ' + status); }");
    }

    JSValueRef global(const char* name) { return context.evaluate(name); }

    std::string heard() { return context.text(context.evaluate("heard.join(',')")); }

    // An answered agent request carrying `callbacks` as its private data.
    std::shared_ptr<EventKvManagerRequestKvAgent> answer(
        const std::shared_ptr<JSCallbackManager>& callbacks) {
        auto event = std::make_shared<EventKvManagerRequestKvAgent>();
        event->setPrivateData(callbacks);
        return event;
    }

    ScriptTestContext context;
    KvManagerController controller{context.get(), std::make_shared<KvManager>()};
};

TEST_F(KvManagerControllerTest, AgentsReachTheSuccessCallback) {
    auto event = answer(
        JSCallbackManager::createObject(context.get(), global("onSuccess"), global("onError")));
    event->agents = std::make_shared<KvAgentList>();
    controller.OnAnswerReceived(event);
    EXPECT_EQ(heard(), "success 0");
}

TEST_F(KvManagerControllerTest, ServiceNotAvailableKeepsTheReceiversMessage) {
    auto event = answer(
        JSCallbackManager::createObject(context.get(), global("onSuccess"), global("onError")));
    event->error = std::make_shared<KvErrorObject>(2, "Failed to register KvAgent.");
    controller.OnAnswerReceived(event);
    EXPECT_EQ(heard(), "error ServiceNotAvailableError Failed to register KvAgent.");
}

TEST_F(KvManagerControllerTest, AnyOtherCodeIsAnUnknownError) {
    auto event = answer(
        JSCallbackManager::createObject(context.get(), global("onSuccess"), global("onError")));
    event->error = std::make_shared<KvErrorObject>(7, "something");
    DlogCapture capture;
    controller.OnAnswerReceived(event);
    EXPECT_EQ(heard(), "error UnknownError Unknown error");
    EXPECT_TRUE(capture.contains(DLOG_WARN, "Unknown Error was delivered."));
}

TEST_F(KvManagerControllerTest, AnswerWithoutCallbackManagerLogsAndCallsNothing) {
    auto event = std::make_shared<EventKvManagerRequestKvAgent>();
    event->agents = std::make_shared<KvAgentList>();
    DlogCapture capture;
    controller.OnAnswerReceived(event);
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "no callback manager"));
}

TEST_F(KvManagerControllerTest, AnswerWithNeitherCallbackIsSilent) {
    auto event = answer(JSCallbackManager::createObject(context.get()));
    event->error = std::make_shared<KvErrorObject>(2, "Failed to register KvAgent.");
    DlogCapture capture;
    controller.OnAnswerReceived(event);
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(KvManagerControllerTest, DeviceStatusReachesTheFirstSlot) {
    auto event = std::make_shared<EventKvManagerDeviceStatusListener>();
    event->transportType = 3;
    event->deviceStatus = 1;
    event->setPrivateData(JSCallbacksManager::createObject(context.get(), global("onStatus")));
    controller.onAnswerReceived(event);
    EXPECT_EQ(heard(), "TRANSPORT_WIFI DETACHED");
}

TEST_F(KvManagerControllerTest, DeviceStatusWithoutStatusCallbackCallsAndLogsNothing) {
    auto event = std::make_shared<EventKvManagerDeviceStatusListener>();
    event->setPrivateData(JSCallbacksManager::createObject(context.get()));
    DlogCapture capture;
    controller.onAnswerReceived(event);
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(KvManagerControllerTest, DeviceStatusWithoutCallbacksObjectLogs) {
    DlogCapture capture;
    controller.onAnswerReceived(std::make_shared<EventKvManagerDeviceStatusListener>());
    EXPECT_EQ(heard(), "");
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "no callback manager"));
}

}  // namespace
