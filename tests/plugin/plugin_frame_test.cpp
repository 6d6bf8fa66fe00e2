// The plug-in's frame: the access-control table and its records, the access
// check over whatever the runtime's access control answers, the widget
// hooks' handling of access-control failures, and the hooks of the script
// classes. Access control is the programmable stand-in of
// fake_wrt_access.h.
#include "ScriptTestContext.h"
#include "fake_wrt_access.h"

#include <JSKvAgent.h>
#include <JSKvFileTransfer.h>
#include <JSKvManager.h>
#include <JSKvSocket.h>
#include <dlog-capture.h>
#include <plugin_config.h>

#include <Commons/Exception.h>
#include <Commons/WrtAccess/Privileges.h>
#include <gtest/gtest.h>
#include <wrt_plugin_export.h>

#include <stdexcept>
#include <string>
#include <vector>

extern "C" {
extern start_function_cb on_widget_start;
extern stop_function_cb on_widget_stop;
}

using namespace DeviceAPI::KVP;
using WrtDeviceApis::Commons::AceFunction;
using WrtDeviceApis::Commons::InvalidArgumentException;

namespace {

const std::vector<std::string> GUARDED_IDS = {"KvManager.requestKvAgent",
                                              "KvManager.setDeviceStatusListener"};

// The message of the InvalidArgumentException that looking `id` up throws.
std::string lookUpFailure(const std::string& id) {
    try {
        getKVPFunctionData(id);
    } catch (const InvalidArgumentException& error) {
        return error.GetMessage();
    }
    return "<no exception>";
}

TEST(AccessTableTest, EachGuardedIdCarriesTheAccessoryFeatureAndTheLinkCapability) {
    for (const std::string& id : GUARDED_IDS) {
        const AceFunction function = getKVPFunctionData(id);
        EXPECT_EQ(function.name, id);
        ASSERT_EQ(function.features.size(), 1u) << id;
        EXPECT_EQ(function.features[0].name, WrtDeviceApis::Commons::Privileges::ACCESSORY);
        ASSERT_EQ(function.deviceCapabilities.size(), 1u) << id;
        EXPECT_EQ(function.deviceCapabilities[0].devCapName, "kvplink");
        EXPECT_TRUE(function.deviceCapabilities[0].devCapParams.empty()) << id;
    }
}

TEST(AccessTableTest, ARecordIsACopyOfTheTables) {
    AceFunction function = getKVPFunctionData(GUARDED_IDS[0]);
    function.name = "changed";
    function.features.clear();
    EXPECT_EQ(getKVPFunctionData(GUARDED_IDS[0]).name, GUARDED_IDS[0]);
    EXPECT_EQ(getKVPFunctionData(GUARDED_IDS[0]).features.size(), 1u);
}

TEST(AccessTableTest, AnyOtherIdThrowsWithTheIdRunIntoNotFound) {
    EXPECT_EQ(lookUpFailure("KvManager.unknown"), "Function with id KvManager.unknownnot found");
    EXPECT_EQ(lookUpFailure("KvAgent.findPeerAgents"),
              "Function with id KvAgent.findPeerAgentsnot found");
    EXPECT_EQ(lookUpFailure(""), "Function with id not found");
}

class AccessCheckTest : public ::testing::Test {
protected:
    void SetUp() override { FakeWrtAccess::reset(); }
    void TearDown() override { FakeWrtAccess::reset(); }

    // The outcome of checking `id` when access control answers `answer`.
    static KvAccessOutcome outcomeFor(int answer, const std::string& id = GUARDED_IDS[0]) {
        FakeWrtAccess::setAnswer(answer);
        return checkKvAccess(id);
    }

    // What `script` threw, as "<name>: <message>", or "no exception".
    std::string thrownBy(const std::string& script) {
        JSValueRef exception = nullptr;
        context.evaluate(script, &exception);
        if (exception == nullptr) {
            return "no exception";
        }
        context.setGlobal("thrown", exception);
        return context.text(context.evaluate("thrown.name + ': ' + thrown.message"));
    }

    ScriptTestContext context;
};

TEST_F(AccessCheckTest, TheRuntimesDenialsArePassedOnAsTheyAre) {
    EXPECT_EQ(outcomeFor(1), KV_ACCESS_DENIED);
    EXPECT_EQ(outcomeFor(2), KV_ACCESS_BLOCKED_BY_USER);
    EXPECT_EQ(outcomeFor(3), KV_ACCESS_INTERNAL_ERROR);
}

TEST_F(AccessCheckTest, EveryOtherAnswerGrantsTheCall) {
    for (int answer : {0, 4, 5, 17, 255, -1, -3}) {
        EXPECT_EQ(outcomeFor(answer), KV_ACCESS_GRANTED) << "answer " << answer;
    }
}

TEST_F(AccessCheckTest, AccessControlIsAskedAboutTheTablesRecord) {
    for (const std::string& id : GUARDED_IDS) {
        outcomeFor(0, id);
    }
    const std::vector<AceFunction> checked = FakeWrtAccess::checkedFunctions();
    ASSERT_EQ(checked.size(), 2u);
    for (size_t index = 0; index < checked.size(); ++index) {
        const AceFunction expected = getKVPFunctionData(GUARDED_IDS[index]);
        EXPECT_EQ(checked[index].name, expected.name);
        ASSERT_EQ(checked[index].features.size(), 1u);
        EXPECT_EQ(checked[index].features[0].name, expected.features[0].name);
        ASSERT_EQ(checked[index].deviceCapabilities.size(), 1u);
        EXPECT_EQ(checked[index].deviceCapabilities[0].devCapName, "kvplink");
    }
}

TEST_F(AccessCheckTest, AnIdOutsideTheTableIsNeverChecked) {
    EXPECT_THROW(checkKvAccess("KvManager.other"), InvalidArgumentException);
    EXPECT_TRUE(FakeWrtAccess::calls().empty());
}

TEST_F(AccessCheckTest, AGuardedScriptMethodAnswersEachOutcome) {
    context.setGlobal("kv", JSObjectMake(context.get(), JSKvManager::getClassRef(), nullptr));
    const std::string call = "kv.requestKvAgent(42)";
    FakeWrtAccess::setAnswer(1);
    EXPECT_EQ(thrownBy(call),
              "SecurityError: The application does not have the privilege to call this method.");
    FakeWrtAccess::setAnswer(2);
    EXPECT_EQ(thrownBy(call),
              "SecurityError: The user blocks an application from calling this method.");
    FakeWrtAccess::setAnswer(3);
    EXPECT_EQ(thrownBy(call), "UnknownError: Internal error");
    // Any other answer lets the call through to its argument checks.
    for (int answer : {0, 4, -1}) {
        FakeWrtAccess::setAnswer(answer);
        EXPECT_EQ(thrownBy(call).rfind("TypeMismatchError: ", 0), 0u) << "answer " << answer;
    }
}

class WidgetHookTest : public ::testing::Test {
protected:
    void SetUp() override { FakeWrtAccess::reset(); }
    void TearDown() override { FakeWrtAccess::reset(); }
};

TEST_F(WidgetHookTest, AFailedAccessInitialisationIsLoggedAndTheHookReturns) {
    FakeWrtAccess::setInitializeOutcome(FakeWrtAccess::Outcome::ThrowCommonsException);
    DlogCapture capture;
    EXPECT_NO_THROW(on_widget_start(5));
    EXPECT_EQ(FakeWrtAccess::calls(), std::vector<std::string>{"initialize(5)"});
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "WrtAccess initialization failed"));
}

TEST_F(WidgetHookTest, AnyOtherExceptionOfAccessInitialisationPassesThrough) {
    FakeWrtAccess::setInitializeOutcome(FakeWrtAccess::Outcome::ThrowStdException);
    DlogCapture capture;
    EXPECT_THROW(on_widget_start(5), std::runtime_error);
    EXPECT_EQ(capture.count("WrtAccess initialization failed"), 0u);
}

TEST_F(WidgetHookTest, AnyOtherExceptionOfAccessDeinitialisationPassesThrough) {
    FakeWrtAccess::setDeinitializeOutcome(FakeWrtAccess::Outcome::ThrowStdException);
    DlogCapture capture;
    EXPECT_THROW(on_widget_stop(5), std::runtime_error);
    EXPECT_EQ(capture.count("WrtAccess deinitialization failed"), 0u);
}

TEST(ScriptClassHooksTest, TheManagerAgentSocketAndFileTransferClassesHaveBothHooks) {
    const std::vector<const JSClassDefinition*> classes = {
        JSKvManager::getClassInfo(), JSKvAgent::getClassInfo(), JSKvSocket::getClassInfo(),
        JSKvFileTransfer::getClassInfo()};
    for (const JSClassDefinition* definition : classes) {
        EXPECT_NE(definition->initialize, nullptr) << definition->className;
        EXPECT_NE(definition->finalize, nullptr) << definition->className;
    }
}

}  // namespace
