// ScriptExceptionHost: what a callback throws goes to the host attached to
// the callback's global context; without one it is only logged.
#include "ScriptContext.h"

#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using WrtDeviceApis::CommonsJavaScript::ScriptExceptionHost;

namespace {

class ScriptExceptionHostTest : public KvTest::ScriptTest {
protected:
    void TearDown() override {
        ScriptExceptionHost::detach(m_context);
        ScriptTest::TearDown();
    }

    // Attaches a host to the test's context that records the text of what
    // it is handed, prefixed with `name`.
    void attachRecordingHost(const std::string& name) {
        ScriptExceptionHost::attach(m_context, [this, name](JSValueRef exception) {
            reported.push_back(name + ": " + text(exception));
        });
    }

    std::vector<std::string> reported;
};

TEST_F(ScriptExceptionHostTest, WithoutAHostTheExceptionIsOnlyLogged) {
    DlogCapture capture;
    EXPECT_FALSE(
        ScriptExceptionHost::reportUncaught(m_context, evalThrowing("throw new Error('lost')")));
    EXPECT_TRUE(
        capture.contains(DLOG_ERROR, "Uncaught exception in a script callback: Error: lost"));
}

TEST_F(ScriptExceptionHostTest, TheAttachedHostTakesWhatItsContextThrows) {
    attachRecordingHost("host");
    DlogCapture capture;
    EXPECT_TRUE(
        ScriptExceptionHost::reportUncaught(m_context, evalThrowing("throw new Error('taken')")));
    EXPECT_EQ(reported, std::vector<std::string>{"host: Error: taken"});
    EXPECT_EQ(capture.count("Uncaught exception in a script callback"), 0u);
}

TEST_F(ScriptExceptionHostTest, AHostTakesOnlyTheExceptionsOfItsOwnContext) {
    attachRecordingHost("host");
    JSGlobalContextRef other = JSGlobalContextCreate(nullptr);
    EXPECT_FALSE(ScriptExceptionHost::reportUncaught(other, JSValueMakeNumber(other, 42)));
    JSGlobalContextRelease(other);
    EXPECT_TRUE(reported.empty());
}

TEST_F(ScriptExceptionHostTest, AttachingAgainReplacesTheReporter) {
    attachRecordingHost("first");
    attachRecordingHost("second");
    ScriptExceptionHost::reportUncaught(m_context, JSValueMakeNumber(m_context, 7));
    EXPECT_EQ(reported, std::vector<std::string>{"second: 7"});
}

TEST_F(ScriptExceptionHostTest, ADetachedHostTakesNothingMore) {
    attachRecordingHost("host");
    ScriptExceptionHost::detach(m_context);
    EXPECT_FALSE(ScriptExceptionHost::reportUncaught(m_context, JSValueMakeNumber(m_context, 7)));
    EXPECT_TRUE(reported.empty());
}

}  // namespace
