// The log lines of a script method's failures: an argument that cannot be
// converted is logged as "Error on conversion : " and its message, any other
// failure as "Error on platform : " and its message.
#include "PluginTestSupport.h"
#include "ScriptTestContext.h"

#include <KvConverter.h>
#include <KvSocket.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace DeviceAPI::KVP;
using PluginTest::makePeer;

namespace {

class ScriptMethodLogTest : public ::testing::Test {
protected:
    ScriptMethodLogTest() {
        auto socket = std::make_shared<KvSocket>();
        socket->setPeerAgent(makePeer("peer-1"));
        socket->setConnectionId(5);
        context.setGlobal("socket", KvConverter(context.get()).toJSValueRef(socket));
    }

    // The message of what `script` threw ("" when it threw nothing).
    std::string messageThrownBy(const std::string& script) {
        JSValueRef exception = nullptr;
        context.evaluate(script, &exception);
        if (exception == nullptr) {
            return "";
        }
        context.setGlobal("thrown", exception);
        return context.text(context.evaluate("thrown.message"));
    }

    ScriptTestContext context;
};

TEST_F(ScriptMethodLogTest, AnArgumentTheValidatorRefusesIsAConversionError) {
    DlogCapture capture;
    const std::string message = messageThrownBy("socket.setDataReceiveListener(5)");
    ASSERT_FALSE(message.empty());
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "Error on conversion : " + message));
    EXPECT_EQ(capture.count("TypeMismatchError : "), 0u);
}

TEST_F(ScriptMethodLogTest, AMethodsOwnErrorIsAPlatformError) {
    DlogCapture capture;
    const std::string tooLong = "socket.sendData(104, new Array(0x100000 + 2).join('x'))";
    EXPECT_EQ(messageThrownBy(tooLong), "data string is too long.");
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "Error on platform : data string is too long."));
    EXPECT_EQ(capture.count("InvalidValuesError : "), 0u);
}

}  // namespace
