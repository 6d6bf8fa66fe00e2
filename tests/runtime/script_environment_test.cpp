#include <kv-runtime/JsValues.h>
#include <kv-runtime/ScriptEngine.h>
#include <kv-runtime/ScriptEnvironment.h>

#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <dlog-capture.h>

#include <Ecore.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

using namespace Kv::Runtime;
using WrtDeviceApis::CommonsJavaScript::ScriptExceptionHost;

// The engine's synchronous collection, exported by the library for debugging.
extern "C" void JSSynchronousGarbageCollectForDebugging(JSContextRef context);

namespace {

std::string evaluateToString(ScriptEnvironment& environment, const std::string& code) {
    JSContextRef context = environment.context();
    JSValueRef exception = nullptr;
    JSValueRef value =
        JSEvaluateScript(context, JsString(code).get(), nullptr, nullptr, 1, &exception);
    return toStdString(context, exception ? exception : value);
}

// True when the process has a handler for `signal` (from /proc/self/status).
bool catchesSignal(int signal) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) == 0) {
            const unsigned long long mask = std::stoull(line.substr(7), nullptr, 16);
            return (mask >> (signal - 1)) & 1u;
        }
    }
    return false;
}

// The file name of the library whose function handles `signal`.
std::string handlerLibrary(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    Dl_info info{};
    const void* handler = (action.sa_flags & SA_SIGINFO)
                              ? reinterpret_cast<const void*>(action.sa_sigaction)
                              : reinterpret_cast<const void*>(action.sa_handler);
    return dladdr(handler, &info) && info.dli_fname ? info.dli_fname : "";
}

// Forces a full collection every few milliseconds while the loop runs.
Eina_Bool collect(void* data) {
    auto* environment = static_cast<ScriptEnvironment*>(data);
    environment->collectGarbage();
    JSSynchronousGarbageCollectForDebugging(environment->context());
    return ECORE_CALLBACK_RENEW;
}

}  // namespace

TEST(ScriptEngineTest, EngineSuspendsThreadsWithARealTimeSignalThatEcoreLeavesAlone) {
    ScriptEnvironment environment;  // starts the engine, which installs its handler
    EXPECT_GE(defaultGcSignal(), SIGRTMIN);
    EXPECT_LE(defaultGcSignal(), SIGRTMAX);
    EXPECT_TRUE(catchesSignal(defaultGcSignal()));
    EXPECT_NE(handlerLibrary(SIGUSR1).find("libecore"), std::string::npos)
        << "SIGUSR1 is handled by " << handlerLibrary(SIGUSR1);
    EXPECT_EQ(std::getenv("JSC_SIGNAL_FOR_GC"), nullptr) << "the engine would report it";
}

TEST(ScriptEnvironmentTest, EnvironmentIsFoundFromItsContextOnly) {
    ScriptEnvironment environment;
    EXPECT_EQ(ScriptEnvironment::from(environment.context()), &environment);
    JSGlobalContextRef foreign = JSGlobalContextCreate(nullptr);
    EXPECT_EQ(ScriptEnvironment::from(foreign), nullptr);
    JSGlobalContextRelease(foreign);
}

TEST(ScriptEnvironmentTest, ConsolePrintsAndLogsEveryLevel) {
    DlogCapture capture;
    ScriptEnvironment environment;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(
        environment.evaluate("console.log('hi', 1, {a: [1, 'x']}, null, undefined);"
                             "console.info('fyi');"
                             "console.warn('careful', new Error('bad'));"
                             "console.error(function f() {});",
                             "console.js"));
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(out, "hi 1 {\"a\":[1,\"x\"]} null undefined\nfyi\n");
    EXPECT_NE(err.find("careful Error: bad\nfunction f() {}\n"), std::string::npos) << err;
    EXPECT_TRUE(capture.contains(DLOG_INFO, "console: hi 1"));
    EXPECT_TRUE(capture.contains(DLOG_INFO, "console: fyi"));
    EXPECT_TRUE(capture.contains(DLOG_WARN, "console: careful Error: bad"));
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "console: function f() {}"));
}

TEST(ScriptEnvironmentTest, ExitAtTopLevelStopsTheScriptAndSkipsTheLoop) {
    ScriptEnvironment environment;
    EXPECT_TRUE(environment.evaluate("var after = false; runtime.exit(7); after = true;", "a.js"));
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(environment.run(), 7);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
    EXPECT_EQ(environment.exitControl().reason(), ExitReason::Script);
    EXPECT_EQ(evaluateToString(environment, "after"), "false");
}

TEST(ScriptEnvironmentTest, NowCountsMillisecondsSinceTheProcessStartedFinerThanAMillisecond) {
    ScriptEnvironment environment;
    const double first = std::stod(evaluateToString(environment, "runtime.now()"));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const double second = std::stod(evaluateToString(environment, "runtime.now()"));
    EXPECT_GT(first, 0.0);
    EXPECT_GE(second - first, 19.0);
    EXPECT_LT(second - first, 1000.0);
    EXPECT_EQ(
        evaluateToString(environment,
                         "var a = runtime.now(), b = a; while (b === a) { b = runtime.now(); }"
                         " b - a < 0.5"),
        "true");
}

TEST(ScriptEnvironmentTest, BadExitCodeIsARangeErrorAndEndsNothing) {
    ScriptEnvironment environment;
    EXPECT_EQ(evaluateToString(environment,
                               "var names = [];"
                               "for (const code of [256, -1, 1.5, 'x', NaN]) {"
                               "  try { runtime.exit(code); } catch (e) { names.push(e.name); }"
                               "}"
                               "names.join()"),
              "RangeError,RangeError,RangeError,RangeError,RangeError");
    EXPECT_FALSE(environment.exitControl().exitRequested());
}

TEST(ScriptEnvironmentTest, UncaughtExceptionIsReportedWithItsLineAndEndsWithCode1) {
    DlogCapture capture;
    ScriptEnvironment environment;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(environment.evaluate("var x = 1;\n\nthrow new TypeError('boom');\n", "app.js"));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.rfind("Uncaught TypeError: boom at line 3 in app.js\n", 0), 0u) << err;
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "Uncaught TypeError: boom at line 3 in app.js"));
    EXPECT_EQ(environment.run(), 1);
    EXPECT_EQ(environment.exitControl().reason(), ExitReason::Uncaught);
}

TEST(ScriptEnvironmentTest, WhatACallbackCalledByNativeCodeThrowsIsReportedAsUncaught) {
    ScriptEnvironment environment;
    JSContextRef context = environment.context();
    EXPECT_TRUE(environment.evaluate(
        "function listener() {\n  throw new TypeError('from a listener');\n}", "app.js"));
    // A plug-in calls the script's listener and hands over what it threw.
    JSValueRef listener = getProperty(context, JSContextGetGlobalObject(context), "listener");
    JSValueRef exception = nullptr;
    JSObjectCallAsFunction(context, JSValueToObject(context, listener, nullptr), nullptr, 0,
                           nullptr, &exception);
    ASSERT_NE(exception, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(ScriptExceptionHost::reportUncaught(context, exception));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.rfind("Uncaught TypeError: from a listener at line 2 in app.js\n", 0), 0u) << err;
    EXPECT_EQ(environment.run(), 1);
    EXPECT_EQ(environment.exitControl().reason(), ExitReason::Uncaught);
}

TEST(ScriptEnvironmentTest, AnEnvironmentThatIsGoneTakesNoMoreCallbackExceptions) {
    JSGlobalContextRef kept = nullptr;
    {
        ScriptEnvironment environment;
        kept = JSGlobalContextRetain(environment.context());
    }
    DlogCapture capture;
    EXPECT_FALSE(ScriptExceptionHost::reportUncaught(kept, JSValueMakeNumber(kept, 42)));
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "Uncaught exception in a script callback: 42"));
    JSGlobalContextRelease(kept);
}

TEST(ScriptEnvironmentTest, ThrownValueWithoutPositionIsReportedWithoutLine) {
    ScriptEnvironment environment;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(environment.evaluate("throw 42;", "app.js"));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.rfind("Uncaught 42 in app.js\n", 0), 0u) << err;
}

TEST(ScriptEnvironmentTest, PendingTimersAreReleasedWithTheEnvironment) {
    ScriptEnvironment environment;
    EXPECT_TRUE(
        environment.evaluate("setTimeout(function () {}, 60000, {big: new Array(1000)});"
                             "setInterval(function () {}, 60000);",
                             "t.js"));
    EXPECT_EQ(environment.pendingTimers(), 2u);
}

TEST(ScriptEnvironmentTest, TimeLimitEndsTheLoopWithCode124) {
    ScriptEnvironment environment;
    environment.setTimeLimit(0.2);
    EXPECT_TRUE(environment.evaluate("setInterval(function () {}, 5);", "t.js"));
    EXPECT_EQ(environment.run(), 124);
    EXPECT_EQ(environment.exitControl().reason(), ExitReason::Timeout);
}

TEST(ScriptEnvironmentTest, TimeLimitStopsAScriptThatNeverReturns) {
    for (const char* script : {"for (;;) {}", "setTimeout(function () { for (;;) {} }, 0);"}) {
        ScriptEnvironment environment;
        environment.setTimeLimit(0.3);
        testing::internal::CaptureStderr();
        const auto started = std::chrono::steady_clock::now();
        environment.evaluate(script, "spin.js");
        EXPECT_EQ(environment.run(), 124) << script;
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
        EXPECT_EQ(testing::internal::GetCapturedStderr().find("Uncaught"), std::string::npos);
        // The context is still usable, for the plug-ins' stop hooks.
        EXPECT_EQ(evaluateToString(environment, "1 + 1"), "2");
    }
}

TEST(ScriptEnvironmentTest, LongRunWithManyTimersAndForcedCollectionsCompletes) {
    ScriptEnvironment environment;
    // Many short-lived timers, each keeping garbage and an argument alive
    // until it fires, while collections run underneath.
    EXPECT_TRUE(environment.evaluate(
        "var fired = 0, ticks = 0;"
        "function burst(tag) {"
        "  for (var i = 0; i < 50; ++i) {"
        "    setTimeout(function (payload) { fired += payload.length > 0 ? 1 : 0; },"
        "               i % 7, new Array(100).fill(tag + i));"
        "  }"
        "}"
        "var interval = setInterval(function () {"
        "  burst('t' + ticks);"
        "  if (++ticks === 1000) { clearInterval(interval); setTimeout(function () {"
        "    runtime.exit(fired === 50000 ? 0 : 3); }, 20); }"
        "}, 2);",
        "gc.js"));
    Ecore_Timer* collector = ecore_timer_add(0.005, collect, &environment);
    environment.setTimeLimit(60);
    EXPECT_EQ(environment.run(), 0);
    ecore_timer_del(collector);
    EXPECT_EQ(environment.pendingTimers(), 0u);
}
