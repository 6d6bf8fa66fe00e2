// JSCallbacksManager: four protected slots, a `this` object, and calls that
// never let a script exception out but hand it to the context's host.
#include "ScriptTestContext.h"

#include <JSCallbacksManager.h>
#include <dlog-capture.h>

#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using DeviceAPI::KVP::JSCallbacksManager;
using WrtDeviceApis::CommonsJavaScript::ScriptExceptionHost;

namespace {

class JSCallbacksManagerTest : public ::testing::Test {
protected:
    JSCallbacksManagerTest() {
        context.evaluate(
            "var heard = [];"
            "function record(name) {"
            "  return function () {"
            "    heard.push(name + '(' + Array.prototype.join.call(arguments, ' ') + ')' +"
            "               (this && this.tag ? ' on ' + this.tag : ''));"
            "  };"
            "}");
    }

    JSValueRef value(const char* script) { return context.evaluate(script); }
    std::string heard() { return context.text(context.evaluate("heard.join(',')")); }

    ScriptTestContext context;
};

TEST_F(JSCallbacksManagerTest, SlotsAreFilledInOrderAndCalledWithTheirArguments) {
    JSCallbacksManager callbacks(context.get(), value("record('a')"), value("record('b')"),
                                 value("record('c')"), value("record('d')"));
    callbacks.callFirstCallback(value("1"));
    const JSValueRef two[] = {value("2"), value("'x'")};
    callbacks.callSecondCallback(2, two);
    callbacks.callThirdCallback(0, nullptr);
    callbacks.callFourthCallback(value("4"));
    EXPECT_EQ(heard(), "a(1),b(2 x),c(),d(4)");
}

TEST_F(JSCallbacksManagerTest, ObjectSlotStandsAsThis) {
    JSCallbacksManager callbacks(context.get(), value("record('a')"));
    callbacks.setObject(value("({tag: 'agent'})"));
    callbacks.callFirstCallback(value("1"));
    EXPECT_EQ(heard(), "a(1) on agent");
}

TEST_F(JSCallbacksManagerTest, NullLeavesASlotAndAValueReplacesIt) {
    JSCallbacksManager callbacks(context.get(), value("record('a')"));
    callbacks.setFirstCallback(nullptr);
    callbacks.callFirstCallback(value("1"));
    callbacks.setFirstCallback(value("record('b')"));
    callbacks.callFirstCallback(value("2"));
    EXPECT_EQ(heard(), "a(1),b(2)");
}

TEST_F(JSCallbacksManagerTest, EmptySlotsAndNonFunctionsCallNothing) {
    JSCallbacksManager callbacks(context.get(), nullptr, value("5"));
    callbacks.callFirstCallback(value("1"));
    callbacks.callSecondCallback(value("2"));
    EXPECT_EQ(heard(), "");
    EXPECT_EQ(callbacks.getFirstCallback(), nullptr);
}

TEST_F(JSCallbacksManagerTest, MakeCallbackLogsANullCallback) {
    DlogCapture capture;
    JSCallbacksManager::makeCallback(context.get(), nullptr, nullptr, 0, nullptr);
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "callback is NULL"));
}

TEST_F(JSCallbacksManagerTest, ThrowingCallbackIsLoggedAndContained) {
    JSCallbacksManager callbacks(context.get(),
                                 value("(function () { throw new Error('boom'); })"));
    DlogCapture capture;
    callbacks.callFirstCallback(value("1"));
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "callback threw: Error: boom"));
    // No host owns this context, so the platform only logs it too.
    EXPECT_TRUE(
        capture.contains(DLOG_ERROR, "Uncaught exception in a script callback: Error: boom"));
}

TEST_F(JSCallbacksManagerTest, ThrowingCallbackIsHandedToTheHostOfItsContext) {
    std::vector<std::string> reported;
    ScriptExceptionHost::attach(context.get(), [this, &reported](JSValueRef exception) {
        reported.push_back(context.text(exception));
    });
    JSCallbacksManager callbacks(context.get(), value("record('a')"),
                                 value("(function () { throw new TypeError('boom'); })"));
    DlogCapture capture;
    callbacks.callFirstCallback(value("1"));
    callbacks.callSecondCallback(value("2"));
    ScriptExceptionHost::detach(context.get());
    EXPECT_EQ(reported, std::vector<std::string>{"TypeError: boom"});
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "callback threw: TypeError: boom"));
    EXPECT_EQ(heard(), "a(1)");
}

TEST_F(JSCallbacksManagerTest, NoCallbackRunsOnceTheAppIsEnding) {
    bool running = true;
    ScriptExceptionHost::attach(
        context.get(), [](JSValueRef) {}, [&running] { return running; });
    JSCallbacksManager callbacks(context.get(), value("record('a')"), value("record('b')"));
    callbacks.callFirstCallback(value("1"));
    running = false;
    callbacks.callSecondCallback(value("2"));
    callbacks.callFirstCallback(value("3"));
    ScriptExceptionHost::detach(context.get());
    EXPECT_EQ(heard(), "a(1)");
}

TEST_F(JSCallbacksManagerTest, HeldCallbacksSurviveCollection) {
    JSCallbacksManager callbacks(context.get(), value("record('kept')"));
    context.collectGarbage();
    callbacks.callFirstCallback(value("1"));
    EXPECT_EQ(heard(), "kept(1)");
}

}  // namespace
