#include <Logger.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <array>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

namespace {

struct RunResult {
    int exitCode;
    std::string output;
};

// Runs the log writer under `environment` and returns what it printed on
// stderr.
RunResult runWriter(const std::string& environment, const std::string& arguments) {
    const std::string command = "env -u KV_LOG_LEVEL -u KV_LOG_FILE " + environment +
                                " " DLOG_WRITER_PATH " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return {-1, {}};
    }
    std::string output;
    std::array<char, 4096> buffer{};
    size_t read;
    while ((read = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
        output.append(buffer.data(), read);
    }
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

std::string temporaryPath(const std::string& name) {
    return testing::TempDir() + "dlog_test_" + std::to_string(getpid()) + "_" + name;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace

TEST(DlogTest, StreamMacroWritesTheSourcePrefixUnderThePluginTag) {
    DlogCapture capture;
    const int line = __LINE__ + 1;
    LoggerI("entered " << 42);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].tag, "WRT_PLUGINS/TIZEN");
    EXPECT_EQ(lines[0].priority, DLOG_INFO);
    EXPECT_EQ(lines[0].message,
              "dlog_test.cpp: TestBody(" + std::to_string(line) + ") > entered 42");
}

TEST(DlogTest, PrintfMacroWritesTheSamePrefix) {
    DlogCapture capture;
    const int line = __LINE__ + 1;
    LOGE("failed with %d", -2);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message,
              "dlog_test.cpp: TestBody(" + std::to_string(line) + ") > failed with -2");
}

TEST(DlogTest, ALineWrittenInALambdaNamesTheFunctionAroundIt) {
    DlogCapture capture;
    const int line = __LINE__ + 1;
    const auto write = [] { LoggerW("from a lambda"); };
    write();
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message,
              "dlog_test.cpp: TestBody(" + std::to_string(line) + ") > from a lambda");
}

// The name is read from the pretty signatures that GCC and Clang write.
TEST(FunctionNameTest, IsTheLastWordBeforeTheFirstParameterList) {
    using Kv::Log::functionName;
    EXPECT_EQ(functionName("int run(const DaemonOptions&)"), "run");
    EXPECT_EQ(functionName("void Kv::Accessory::PeerLink::stall(std::chrono::milliseconds)"),
              "stall");
    EXPECT_EQ(functionName("Kv::Accessory::PeerLink::PeerLink(asio::io_context&)"), "PeerLink");
    EXPECT_EQ(functionName("Kv::Accessory::PeerLink::~PeerLink()"), "~PeerLink");
    EXPECT_EQ(functionName("std::function<void()> {anonymous}::makeHandler(int)"), "makeHandler");
    EXPECT_EQ(functionName("JSValueRef KVP::{anonymous}::setListener(JSContextRef) [with Event = "
                           "KVP::Event; JSValueRef = const OpaqueJSValue*]"),
              "setListener");
}

TEST(FunctionNameTest, InALambdaIsTheEnclosingFunction) {
    using Kv::Log::functionName;
    // GCC
    EXPECT_EQ(functionName("KVP::JSKvPeerAgent::equals(JSContextRef, JSObjectRef)::<lambda()>"),
              "equals");
    EXPECT_EQ(functionName("{anonymous}::writeFromThreads(int, int)::<lambda()>::<lambda(int)>"),
              "writeFromThreads");
    // Clang
    EXPECT_EQ(functionName("auto KVP::JSKvPeerAgent::equals(JSContextRef)::(anonymous "
                           "class)::operator()() const"),
              "equals");
}

TEST(FunctionNameTest, WithoutAParameterListIsTheWholeText) {
    EXPECT_EQ(Kv::Log::functionName("top level"), "top level");
    EXPECT_EQ(Kv::Log::functionName(""), "");
}

TEST(DlogTest, MacrosLogAtInformationWarningAndErrorLevels) {
    DlogCapture capture;
    LoggerI("information");
    LoggerW("warning");
    LoggerE("error");
    LOGW("printf warning");
    EXPECT_TRUE(capture.contains(DLOG_INFO, "information"));
    EXPECT_TRUE(capture.contains(DLOG_WARN, "> warning"));
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "> error"));
    EXPECT_TRUE(capture.contains(DLOG_WARN, "printf warning"));
    EXPECT_FALSE(capture.contains(DLOG_ERROR, "information"));
}

TEST(DlogTest, CaptureSeesOnlyLinesWrittenDuringItsLifetime) {
    LoggerI("before the capture");
    DlogCapture outer;
    {
        DlogCapture inner;
        LoggerI("inside both");
        EXPECT_EQ(inner.count("inside both"), 1u);
    }
    LoggerI("after the inner capture");
    EXPECT_EQ(outer.count("before the capture"), 0u);
    EXPECT_EQ(outer.count("inside both"), 1u);
    EXPECT_EQ(outer.count("after the inner capture"), 1u);
    outer.clear();
    EXPECT_TRUE(outer.lines().empty());
}

TEST(DlogTest, RejectsANullFormatAndAnUnknownPriorityOrLogId) {
    EXPECT_EQ(__dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", nullptr), DLOG_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(__dlog_print(LOG_ID_MAIN, DLOG_PRIO_MAX, "T", "x"), DLOG_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(__dlog_print(LOG_ID_MAX, DLOG_INFO, "T", "x"), DLOG_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(__dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", "four"), 4);
}

TEST(DlogTest, WritesLinesToStderrWithLevelTagAndPid) {
    const RunResult result = runWriter("", "levels");
    ASSERT_EQ(result.exitCode, 0);
    const std::regex infoLine(
        R"(\d\d:\d\d:\d\d\.\d{3} I/WRT_PLUGINS/TIZEN\( *\d+\): dlog_writer\.cpp: writeLevels\(\d+\) > info line)");
    EXPECT_TRUE(std::regex_search(result.output, infoLine)) << result.output;
}

TEST(DlogTest, DefaultLevelFilterDropsDebugLines) {
    const RunResult result = runWriter("", "levels");
    EXPECT_EQ(result.output.find("debug line"), std::string::npos);
    EXPECT_NE(result.output.find("info line"), std::string::npos);
}

TEST(DlogTest, LevelFilterComesFromTheEnvironment) {
    const RunResult warnings = runWriter("KV_LOG_LEVEL=WARN", "levels");
    EXPECT_EQ(warnings.output.find("info line"), std::string::npos);
    EXPECT_NE(warnings.output.find("W/WRT_PLUGINS/TIZEN"), std::string::npos);
    EXPECT_NE(warnings.output.find("E/WRT_PLUGINS/TIZEN"), std::string::npos);

    const RunResult debug = runWriter("KV_LOG_LEVEL=d", "levels");
    EXPECT_NE(debug.output.find("D/WRT_PLUGINS/TIZEN"), std::string::npos);

    const RunResult silent = runWriter("KV_LOG_LEVEL=SILENT", "levels");
    EXPECT_EQ(silent.output, "");
}

TEST(DlogTest, AFilteredLineCostsNoFormattingAndNoArgument) {
    const RunResult result = runWriter("", "lazy");
    EXPECT_NE(result.output.find("filtered 0 written 1"), std::string::npos) << result.output;
}

TEST(DlogTest, AChildAfterAForkLogsItsOwnProcessId) {
    const RunResult result = runWriter("", "fork");
    const std::regex childLine(
        R"(\( *(\d+)\): dlog_writer\.cpp: writeFromAChild\(\d+\) > child line (\d+))");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(result.output, match, childLine)) << result.output;
    EXPECT_EQ(match[1].str(), match[2].str());
}

TEST(DlogTest, LogFileFromTheEnvironmentTakesTheLinesInsteadOfStderr) {
    const std::string path = temporaryPath("file.log");
    std::remove(path.c_str());
    const RunResult result = runWriter("KV_LOG_FILE=" + path, "levels");
    EXPECT_EQ(result.output, "");
    const std::string content = readFile(path);
    EXPECT_NE(content.find("info line"), std::string::npos);
    EXPECT_NE(content.find("error line"), std::string::npos);
    std::remove(path.c_str());
}

TEST(DlogTest, LinesFromManyThreadsStayWhole) {
    const std::string path = temporaryPath("threads.log");
    std::remove(path.c_str());
    const RunResult result = runWriter("KV_LOG_FILE=" + path, "threads 4 250");
    ASSERT_EQ(result.exitCode, 0);
    std::istringstream content(readFile(path));
    const std::regex whole(
        R"(.* I/WRT_PLUGINS/TIZEN\( *\d+\): dlog_writer\.cpp: writeFromThreads\(\d+\) > thread \d line \d+ x{200})");
    std::string line;
    int lines = 0;
    while (std::getline(content, line)) {
        EXPECT_TRUE(std::regex_match(line, whole)) << line;
        ++lines;
    }
    EXPECT_EQ(lines, 1000);
    std::remove(path.c_str());
}
