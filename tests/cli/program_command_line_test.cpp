// Every program of the project answers --help, --version and a wrong option
// alike: the usage on stdout and 0, one version line and 0, a one-line hint
// on stderr and 2.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "ChildProcess.h"

namespace KvTest {
namespace {

struct Program {
    std::string name;
    std::string path;
};

void PrintTo(const Program& program, std::ostream* out) { *out << program.name; }

class ProgramCommandLineTest : public testing::TestWithParam<Program> {
protected:
    ProcessResult run(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{GetParam().path};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return runProcess(command);
    }

    std::string hint(const std::string& problem) const {
        const std::string& name = GetParam().name;
        return name + ": " + problem + "; try '" + name + " --help'\n";
    }
};

TEST_P(ProgramCommandLineTest, HelpPrintsTheUsageOnStdoutAndExitsWith0) {
    const ProcessResult help = run({"--help"});
    EXPECT_EQ(help.exitCode, 0) << help.err;
    EXPECT_EQ(help.out.rfind("usage: " + GetParam().name + " ", 0), 0u) << help.out;
    EXPECT_NE(help.out.find("--device DIR"), std::string::npos) << help.out;
    EXPECT_NE(help.out.find("--version"), std::string::npos) << help.out;
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(run({"-h"}).out, help.out);
}

TEST_P(ProgramCommandLineTest, VersionPrintsOneLineWithTheProjectsVersion) {
    const ProcessResult version = run({"--version"});
    EXPECT_EQ(version.exitCode, 0) << version.err;
    EXPECT_EQ(version.out, GetParam().name + " " + KV_PROJECT_VERSION + "\n");
    EXPECT_EQ(version.err, "");
}

TEST_P(ProgramCommandLineTest, UnknownOptionExitsWith2AndAOneLineHint) {
    const ProcessResult result = run({"--no-such-option"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, hint("unknown option '--no-such-option'"));
}

TEST_P(ProgramCommandLineTest, DeviceWithoutAFolderExitsWith2AndAOneLineHint) {
    const ProcessResult result = run({"--device"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, hint("--device needs a value"));
}

TEST_P(ProgramCommandLineTest, AValueForAFlagExitsWith2AndAOneLineHint) {
    const ProcessResult result = run({"--version=2"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, hint("--version takes no value"));
}

std::vector<Program> programs() {
    std::vector<Program> all{{"kv-accessoryd", KV_ACCESSORYD_PATH},
                             {"kv-accessory", KV_ACCESSORY_TOOL_PATH},
                             {"kv-device", KV_DEVICE_TOOL_PATH},
                             {"kv-vconf", KV_VCONF_TOOL_PATH}};
#ifdef KV_PAGE_HOST_PATH
    all.push_back({"kv-page-host", KV_PAGE_HOST_PATH});
#endif
#ifdef KV_RUNTIME_PATH
    all.push_back({"kv-runtime", KV_RUNTIME_PATH});
#endif
    return all;
}

std::string testName(const testing::TestParamInfo<Program>& info) {
    std::string name = info.param.name;
    for (char& c : name) {
        c = c == '-' ? '_' : c;
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Programs, ProgramCommandLineTest, testing::ValuesIn(programs()), testName);

}  // namespace
}  // namespace KvTest
