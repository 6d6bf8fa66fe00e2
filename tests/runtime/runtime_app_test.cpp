// The kv-runtime program, run as a separate process on a temporary device:
// installing and listing apps, and running scripts with the test plug-ins.
#include "ChildProcess.h"
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using KvTest::ChildProcess;
using KvTest::ProcessResult;
using KvTest::readFile;
using KvTest::readLines;
using KvTest::runProcess;
using KvTest::TempDir;
using KvTest::writeFile;

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class RuntimeAppTest : public testing::Test {
protected:
    // The environment of every run: the plug-ins' hook log, and the platform
    // log in a file so that stderr holds only what the program itself says.
    std::map<std::string, std::string> environment() const {
        return {{"KV_TEST_PLUGIN_LOG", m_dir.file("hooks.log")},
                {"KV_LOG_FILE", m_dir.file("kv.log")},
                {"KV_PLUGIN_DIR", KV_TEST_PLUGIN_DIR}};
    }

    std::vector<std::string> command(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {KV_RUNTIME_PATH, "--device", m_dir.file("device")});
        return arguments;
    }

    ProcessResult kvRuntime(const std::vector<std::string>& arguments) const {
        return runProcess(command(arguments), environment());
    }

    // Writes an app folder whose start script is `script` and installs it;
    // returns its app id.
    std::string install(const std::string& package, const std::string& script) {
        const std::string folder = m_dir.file("apps/" + package);
        writeFile(folder + "/config.xml", "<widget id=\"http://example.org/" + package +
                                              "\" version=\"1.0\">\n"
                                              "  <name>App " +
                                              package +
                                              "</name>\n"
                                              "  <application id=\"" +
                                              package + ".App\" package=\"" + package +
                                              "\"/>\n"
                                              "  <content src=\"js/main.js\"/>\n"
                                              "</widget>\n");
        writeFile(folder + "/js/main.js", script);
        const ProcessResult result = kvRuntime({"install", folder});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, package + ".App\n");
        return package + ".App";
    }

    ProcessResult run(const std::string& appId, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"run", appId});
        return kvRuntime(options);
    }

    std::vector<std::string> hookLog() const { return readLines(m_dir.file("hooks.log")); }

    // The hook calls, without the script's own lines and the finalisers.
    std::vector<std::string> hookCalls() const {
        std::vector<std::string> calls;
        for (const std::string& line : hookLog()) {
            if (!contains(line, " script ") && !contains(line, "finalize")) {
                calls.push_back(line.substr(
                    0, line.find(" widget_") == std::string::npos ? line.size() : line.rfind(' ')));
            }
        }
        return calls;
    }

    TempDir m_dir;
};

const std::vector<std::string> kAllHooks = {"a widget_start", "b widget_start", "a frame_load",
                                            "a frame_unload", "b widget_stop",  "a widget_stop"};

}  // namespace

TEST_F(RuntimeAppTest, InstallPrintsTheIdAndListShowsIdPackageAndName) {
    install("zeta0001", "");
    install("alpha0001", "");
    const ProcessResult list = kvRuntime({"list"});
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_EQ(list.out,
              "alpha0001.App\talpha0001\tApp alpha0001\n"
              "zeta0001.App\tzeta0001\tApp zeta0001\n");
}

TEST_F(RuntimeAppTest, InstallOfABadFolderIsAClearError) {
    const ProcessResult missing = kvRuntime({"install", m_dir.file("nothing")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(contains(missing.err, "kv-runtime: cannot install " + m_dir.file("nothing")))
        << missing.err;
    writeFile(m_dir.file("broken/config.xml"), "<widget><name>x</name>");
    const ProcessResult broken = kvRuntime({"install", m_dir.file("broken")});
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_TRUE(contains(broken.err, "config.xml")) << broken.err;
    EXPECT_EQ(kvRuntime({"list"}).out, "");
}

// An app's service-profile file is checked against the schema on install:
// a valid one installs, a malformed one and one that breaks the schema are
// refused (exit code 1) with the file, the line and what is wrong.
TEST_F(RuntimeAppTest, InstallChecksTheServiceProfile) {
    const std::string folder = m_dir.file("apps/profiled1");
    const std::string profile = folder + "/res/xml/services.xml";
    writeFile(folder + "/config.xml",
              "<widget>\n"
              "  <application id=\"profiled1.App\" package=\"profiled1\"/>\n"
              "  <metadata key=\"AccessoryServicesLocation\" value=\"res/xml/services.xml\"/>\n"
              "  <content src=\"main.js\"/>\n"
              "</widget>\n");
    writeFile(folder + "/main.js", "runtime.exit(0);\n");
    const std::string head = "<?xml version=\"1.0\"?>\n<resources>\n<application>\n";
    const std::string tail = "</application>\n</resources>\n";

    writeFile(profile, head + "<serviceProfile id=\"/t/a\" role=\"provider\">\n" +
                           "<serviceChannel id=\"1\"/>\n</serviceProfile>\n" + tail);
    const ProcessResult valid = kvRuntime({"install", folder});
    EXPECT_EQ(valid.exitCode, 0) << valid.err;
    EXPECT_EQ(valid.out, "profiled1.App\n");

    writeFile(profile, head + "<serviceProfile id=\"/t/a\">\n<serviceChannel id=\"1\">\n" +
                           "</serviceProfile>\n" + tail);
    const ProcessResult malformed = kvRuntime({"install", folder});
    EXPECT_EQ(malformed.exitCode, 1);
    EXPECT_EQ(malformed.out, "");
    EXPECT_TRUE(contains(malformed.err, "kv-runtime: cannot install " + folder + ": " + profile +
                                            ":6: not well-formed XML: "))
        << malformed.err;

    writeFile(profile, head + "<serviceProfile id=\"/t/a\" role=\"server\"/>\n" + tail);
    const ProcessResult breaking = kvRuntime({"install", folder});
    EXPECT_EQ(breaking.exitCode, 1);
    EXPECT_TRUE(contains(breaking.err, profile +
                                           ":4: breaks the service-profile schema: Element "
                                           "'serviceProfile', attribute 'role': 'server' is not "
                                           "one of provider, consumer"))
        << breaking.err;
}

TEST_F(RuntimeAppTest, UsageErrorsExitWith2AndAOneLineHint) {
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"launch"},
                                               {"run"},
                                               {"install"},
                                               {"list", "extra"},
                                               {"list", "--timeout", "5"},
                                               {"run", "x.App", "extra"},
                                               {"run", "x.App", "--timeout", "soon"},
                                               {"run", "x.App", "--plugin"}}) {
        std::vector<std::string> argv = {KV_RUNTIME_PATH};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        const ProcessResult result = runProcess(argv, environment());
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(arguments);
        EXPECT_TRUE(result.err.rfind("kv-runtime: ", 0) == 0) << result.err;
        EXPECT_TRUE(contains(result.err, "; try 'kv-runtime --help'\n")) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    const ProcessResult unknown = runProcess({KV_RUNTIME_PATH, "launch"}, environment());
    EXPECT_EQ(unknown.err, "kv-runtime: unknown command 'launch'; try 'kv-runtime --help'\n");
}

TEST_F(RuntimeAppTest, APositionIsTwoWholeNumbersOfPixels) {
    for (const std::string position :
         {"10", "10,", ",10", "10,20,30", "-1,5", "10,x", " 1,2", "+1,2"}) {
        const ProcessResult result =
            runProcess({KV_RUNTIME_PATH, "run", "x.App", "--position", position}, environment());
        EXPECT_EQ(result.exitCode, 2) << position;
        EXPECT_EQ(result.err, "kv-runtime: --position needs X,Y, two numbers of pixels, not '" +
                                  position + "'; try 'kv-runtime --help'\n");
    }
}

TEST_F(RuntimeAppTest, DeviceOptionMayFollowTheCommandAndItsOperands) {
    const std::string app = install("where0002", "runtime.exit(0);\n");
    const ProcessResult list =
        runProcess({KV_RUNTIME_PATH, "list", "--device", m_dir.file("device")}, environment());
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_EQ(list.out, "where0002.App\twhere0002\tApp where0002\n");
    const ProcessResult run = runProcess(
        {KV_RUNTIME_PATH, "run", app, "--timeout", "20", "--device=" + m_dir.file("device")},
        environment());
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

TEST_F(RuntimeAppTest, UnknownAppExitsWith3) {
    const ProcessResult result = run("nobody.App");
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_TRUE(contains(result.err, "unknown app 'nobody.App'")) << result.err;
    EXPECT_TRUE(hookLog().empty());
}

TEST_F(RuntimeAppTest, ScriptSeesThePluginObjectsBetweenTheHooks) {
    const std::string app =
        install("hooks0001",
                "webapis.testplugin.record('sum ' + webapis.testplugin.add(2, 3));\n"
                "console.log(typeof webapis.testplugin2, webapis.testplugin2.name);\n"
                "runtime.exit(0);\n");
    const ProcessResult result = run(app);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "object b\n");
    const std::vector<std::string> log = hookLog();
    ASSERT_GE(log.size(), 7u);
    EXPECT_EQ(log[3], "a script sum 5");
    EXPECT_EQ(hookCalls(), kAllHooks);
    // Every widget hook got the same positive widget id.
    const std::string id = log[0].substr(log[0].rfind(' ') + 1);
    EXPECT_GT(std::stol(id), 0);
    EXPECT_EQ(log[6], "a widget_stop " + id);
    // The same app gets the same widget id on every run.
    std::remove(m_dir.file("hooks.log").c_str());
    run(app);
    EXPECT_EQ(hookLog()[0], "a widget_start " + id);
}

TEST_F(RuntimeAppTest, PluginsComeFromTheCommandLineBeforeTheEnvironment) {
    const std::string app =
        install("only0001", "console.log(typeof webapis.testplugin2); runtime.exit();");
    const ProcessResult result = run(app, {"--plugin", KV_TEST_PLUGIN_A});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "undefined\n");
}

TEST_F(RuntimeAppTest, ConsolePrintsLogAndInfoToStdoutAndWarnAndErrorToStderr) {
    const std::string app = install("console0001",
                                    "console.log('one', 2, {three: [3]});\n"
                                    "console.warn('careful');\n"
                                    "console.info('four');\n"
                                    "console.error('bad', null);\n"
                                    "runtime.exit(0);\n");
    const ProcessResult result = run(app);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "one 2 {\"three\":[3]}\nfour\n");
    EXPECT_EQ(result.err, "careful\nbad null\n");
    const std::string log = readFile(m_dir.file("kv.log"));
    EXPECT_TRUE(contains(log, "I/KV_RUNTIME")) << log;
    EXPECT_TRUE(contains(log, "console: one 2")) << log;
    EXPECT_TRUE(contains(log, "console: bad null")) << log;
}

TEST_F(RuntimeAppTest, ArgumentsAfterTheDoubleDashReachTheScriptAsRuntimeArgs) {
    const std::string app = install("args0001",
                                    "console.log(JSON.stringify(runtime.args));\n"
                                    "runtime.exit(runtime.args.length);\n");
    const ProcessResult given = run(app, {"--timeout", "20", "--", "one", "--two", ""});
    EXPECT_EQ(given.exitCode, 3) << given.err;
    EXPECT_EQ(given.out, "[\"one\",\"--two\",\"\"]\n");
    const ProcessResult none = run(app);
    EXPECT_EQ(none.exitCode, 0) << none.err;
    EXPECT_EQ(none.out, "[]\n");
}

TEST_F(RuntimeAppTest, TimersFireInDueOrderWithTheirArguments) {
    const std::string app =
        install("timers0001",
                "var seen = [];\n"
                "setTimeout(function () { seen.push('late'); }, 60);\n"
                "setTimeout(function (a, b) { seen.push(a + b); }, 10, 'x', 'y');\n"
                "setTimeout(function () { seen.push('first'); }, 0);\n"
                "setTimeout(function () { seen.push('second'); }, 0);\n"
                "var gone = setTimeout(function () { seen.push('cleared'); }, 5);\n"
                "clearTimeout(gone);\n"
                "clearTimeout(12345);\n"
                "setTimeout(function () {\n"
                "  console.log(seen.join(','));\n"
                "  runtime.exit(0);\n"
                "}, 120);\n");
    const ProcessResult result = run(app, {"--timeout", "20"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "first,second,xy,late\n");
}

TEST_F(RuntimeAppTest, IntervalsRepeatUntilClearedEvenFromTheirOwnCallback) {
    // After the clear, the interval gets time for several more periods.
    const std::string app = install("interval0001",
                                    "var ticks = 0;\n"
                                    "var id = setInterval(function (step) {\n"
                                    "  ticks += step;\n"
                                    "  if (ticks === 6) {\n"
                                    "    clearInterval(id);\n"
                                    "    setTimeout(function () {\n"
                                    "      console.log('ticks', ticks);\n"
                                    "      runtime.exit(0);\n"
                                    "    }, 60);\n"
                                    "  }\n"
                                    "}, 5, 2);\n");
    const ProcessResult result = run(app, {"--timeout", "20"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "ticks 6\n");
}

TEST_F(RuntimeAppTest, RuntimeExitEndsWithItsCodeFromATimerAndRunsNothingAfter) {
    const std::string app = install("exit0001",
                                    "setTimeout(function () {\n"
                                    "  runtime.exit(42);\n"
                                    "  console.log('not reached');\n"
                                    "}, 10);\n"
                                    "setTimeout(function () { console.log('not run'); }, 10);\n");
    const ProcessResult result = run(app);
    EXPECT_EQ(result.exitCode, 42) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(hookCalls(), kAllHooks);
}

TEST_F(RuntimeAppTest, UncaughtExceptionAtTopLevelIsReportedAndEndsWith1AfterTheHooks) {
    const std::string app = install("throw0001",
                                    "console.log('before');\n"
                                    "\n"
                                    "null.property;\n"
                                    "console.log('after');\n");
    const ProcessResult result = run(app);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "before\n");
    EXPECT_TRUE(contains(result.err,
                         "Uncaught TypeError: null is not an object (evaluating "
                         "'null.property') at line 3 in js/main.js"))
        << result.err;
    EXPECT_EQ(hookCalls(), kAllHooks);
}

TEST_F(RuntimeAppTest, UncaughtExceptionInATimerEndsWith1) {
    const std::string app = install("throw0002",
                                    "setTimeout(function () {\n"
                                    "  throw new RangeError('too far');\n"
                                    "}, 5);\n"
                                    "setInterval(function () {}, 1000);\n");
    const ProcessResult result = run(app, {"--timeout", "20"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(contains(result.err, "Uncaught RangeError: too far at line 2 in js/main.js"))
        << result.err;
    EXPECT_EQ(hookCalls(), kAllHooks);
}

TEST_F(RuntimeAppTest, AppWithoutTimersWaitsUntilTheTimeoutWhichExitsWith124) {
    const std::string app = install("idle0001", "console.log('waiting');\n");
    const auto started = std::chrono::steady_clock::now();
    const ProcessResult result = run(app, {"--timeout", "0.5"});
    EXPECT_GE(std::chrono::steady_clock::now() - started, 500ms);
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_EQ(result.out, "waiting\n");
    // The seconds as they were given, not as a fixed-point number.
    EXPECT_TRUE(contains(result.err, "did not end within 0.5 seconds; stopped\n")) << result.err;
    EXPECT_EQ(hookCalls(), kAllHooks);
}

TEST_F(RuntimeAppTest, TimeoutAlsoStopsAScriptThatNeverReturns) {
    const std::string app = install("spin0001", "console.log('spinning');\nfor (;;) {}\n");
    const ProcessResult result = run(app, {"--timeout", "0.5"});
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_EQ(result.out, "spinning\n");
    EXPECT_FALSE(contains(result.err, "Uncaught")) << result.err;
    EXPECT_EQ(hookCalls(), kAllHooks);
}

TEST_F(RuntimeAppTest, SigtermAndSigintEndTheAppAfterItsStopHooks) {
    const std::string app = install("service0001",
                                    "setInterval(function () {}, 50);\n"
                                    "console.log('ready');\n");
    for (const auto& [signal, code] :
         std::vector<std::pair<int, int>>{{SIGTERM, 143}, {SIGINT, 130}}) {
        std::remove(m_dir.file("hooks.log").c_str());
        ChildProcess process(command({"run", app}), environment());
        ASSERT_TRUE(process.waitForOutput("ready\n", 10s));
        process.sendSignal(signal);
        const ProcessResult result = process.finish();
        EXPECT_EQ(result.exitCode, code) << result.err;
        EXPECT_EQ(hookCalls(), kAllHooks);
    }
}

TEST_F(RuntimeAppTest, RunningAppIsRegisteredWhileItRuns) {
    const std::string app = install("where0001", "console.log('ready');\n");
    ChildProcess process(command({"run", app}), environment());
    ASSERT_TRUE(process.waitForOutput("ready\n", 10s));
    const std::string running = m_dir.file("device/running");
    std::vector<std::string> entries;
    for (const auto& entry : std::filesystem::directory_iterator(running)) {
        entries.push_back(readFile(entry.path().string()));
    }
    process.sendSignal(SIGTERM);
    EXPECT_EQ(process.finish().exitCode, 143);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_TRUE(contains(entries[0], app)) << entries[0];
    EXPECT_TRUE(std::filesystem::is_empty(running));
}

TEST_F(RuntimeAppTest, BrokenPluginInTheFolderIsAClearErrorAndRunsNothing) {
    const std::string app = install("broken0001", "console.log('ran');\n");
    writeFile(m_dir.file("plugins/broken.so"), "not a shared object");
    const ProcessResult result = run(app, {"--plugins", m_dir.file("plugins")});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_TRUE(contains(
        result.err, "kv-runtime: cannot load plug-in " + m_dir.file("plugins/broken.so") + ": "))
        << result.err;
    EXPECT_EQ(result.out, "");
    const ProcessResult noClassMap = run(app, {"--plugin", KV_TEST_PLUGIN_NO_CLASS_MAP});
    EXPECT_EQ(noClassMap.exitCode, 4);
    EXPECT_TRUE(contains(noClassMap.err, "exports no class_map")) << noClassMap.err;
    const ProcessResult noFolder = run(app, {"--plugins", m_dir.file("none")});
    EXPECT_EQ(noFolder.exitCode, 4);
    EXPECT_TRUE(contains(noFolder.err, "cannot read plug-in folder " + m_dir.file("none")))
        << noFolder.err;
    EXPECT_TRUE(hookLog().empty());
}

TEST_F(RuntimeAppTest, LongRunWithManyTimersAndForcedCollectionsEndsCleanly) {
    const std::string app =
        install("gc0001",
                "var fired = 0, rounds = 0;\n"
                "var keep = [];\n"
                "var id = setInterval(function () {\n"
                "  for (var i = 0; i < 40; ++i) {\n"
                "    setTimeout(function (data) { fired += data.length; }, i % 5,\n"
                "               new Array(64).fill(rounds));\n"
                "  }\n"
                "  keep.push({round: rounds, junk: new Array(256).fill('x')});\n"
                "  if (keep.length > 20) { keep.shift(); }\n"
                "  if (rounds % 10 === 0) { webapis.testplugin.collectGarbage(); }\n"
                "  if (++rounds === 600) {\n"
                "    clearInterval(id);\n"
                "    setTimeout(function () {\n"
                "      console.log('fired', fired);\n"
                "      runtime.exit(0);\n"
                "    }, 50);\n"
                "  }\n"
                "}, 3);\n");
    const ProcessResult result = run(app, {"--timeout", "120"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "fired " + std::to_string(600 * 40 * 64) + "\n");
    EXPECT_EQ(hookCalls(), kAllHooks);
}
