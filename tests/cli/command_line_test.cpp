// The shared command line in process: where options may stand, what "--"
// and negative numbers do, the words of its usage errors, and what run()
// makes of --help, --version and the exceptions of a program's body.
#include <gtest/gtest.h>
#include <kv-cli/CommandLine.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Kv::Cli::Arguments;
using Kv::Cli::CommandLine;
using Kv::Cli::Option;
using Kv::Cli::UsageError;
using Strings = std::vector<std::string>;

const CommandLine& tool() {
    static const CommandLine commandLine(
        "kv-tool", "usage: kv-tool [--device DIR] COMMAND\n",
        {Kv::Cli::kDeviceOption, {"json", Option::Flag}, {"plugin", Option::WithValue}});
    return commandLine;
}

std::vector<const char*> argv(const Strings& words) {
    std::vector<const char*> pointers{"kv-tool"};
    for (const std::string& word : words) {
        pointers.push_back(word.c_str());
    }
    return pointers;
}

Arguments parse(const Strings& words) {
    const std::vector<const char*> pointers = argv(words);
    return tool().parse(static_cast<int>(pointers.size()), pointers.data());
}

// The message of the usage error that parsing `words` throws.
std::string refusal(const Strings& words) {
    try {
        parse(words);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "no usage error";
}

struct Outcome {
    int exitCode;
    std::string out;
    std::string err;
};

Outcome run(const Strings& words, const std::function<int(const Arguments&)>& body) {
    const std::vector<const char*> pointers = argv(words);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int exitCode = tool().run(static_cast<int>(pointers.size()), pointers.data(), body);
    std::string out = testing::internal::GetCapturedStdout();
    return {exitCode, out, testing::internal::GetCapturedStderr()};
}

TEST(CommandLineTest, OptionsMayStandBeforeBetweenAndAfterTheOperands) {
    const Arguments arguments =
        parse({"--device", "/a", "status", "--json", "/b", "--device=/c", "--plugin", "p.so"});
    EXPECT_EQ(arguments.operands(), (Strings{"status", "/b"}));
    EXPECT_EQ(arguments.values("device"), (Strings{"/a", "/c"}));
    EXPECT_EQ(arguments.value("device"), "/c");
    EXPECT_TRUE(arguments.has("json"));
    EXPECT_EQ(arguments.value("plugin"), "p.so");
    EXPECT_FALSE(arguments.has("help"));
}

TEST(CommandLineTest, WordsAfterTwoDashesAreOperandsKeptApart) {
    const Arguments arguments = parse({"run", "app", "--json", "--", "--json", "-x", "", "--"});
    EXPECT_EQ(arguments.operandsBeforeDashes(), (Strings{"run", "app"}));
    EXPECT_EQ(arguments.operandsAfterDashes(), (Strings{"--json", "-x", "", "--"}));
    EXPECT_EQ(arguments.operands(), (Strings{"run", "app", "--json", "-x", "", "--"}));
    EXPECT_EQ(arguments.values("json"), (Strings{""}));
    EXPECT_TRUE(parse({"list"}).operandsAfterDashes().empty());
}

TEST(CommandLineTest, NegativeNumbersAreOperandsAndMayBeValues) {
    const Arguments arguments = parse({"set", "key", "int", "-4", "-0.5", "--plugin", "-7"});
    EXPECT_EQ(arguments.operands(), (Strings{"set", "key", "int", "-4", "-0.5"}));
    EXPECT_EQ(arguments.value("plugin"), "-7");
}

TEST(CommandLineTest, WrongOptionsAreUsageErrorsThatSayWhatIsWrong) {
    EXPECT_EQ(refusal({"--frob"}), "unknown option '--frob'");
    EXPECT_EQ(refusal({"status", "--frob=1"}), "unknown option '--frob=1'");
    EXPECT_EQ(refusal({"-x"}), "unknown option '-x'");
    EXPECT_EQ(refusal({"status", "--device"}), "--device needs a value");
    EXPECT_EQ(refusal({"--json=yes"}), "--json takes no value");
}

TEST(CommandLineTest, ACommandRefusesTheOptionsAndOperandsItDoesNotTake) {
    const Arguments arguments = parse({"list", "extra", "--json", "--device", "/a"});
    EXPECT_NO_THROW(arguments.allowOnly("list", {"device", "json"}));
    try {
        arguments.allowOnly("list", {"device"});
        ADD_FAILURE() << "--json was allowed";
    } catch (const UsageError& error) {
        EXPECT_STREQ(error.what(), "--json does not go with list");
    }
    EXPECT_NO_THROW(arguments.allowOperands(2));
    try {
        arguments.allowOperands(1);
        ADD_FAILURE() << "a second operand was allowed";
    } catch (const UsageError& error) {
        EXPECT_STREQ(error.what(), "unexpected argument 'extra'");
    }
    EXPECT_NO_THROW(arguments.allowOneOf("json", "plugin"));
    EXPECT_THROW(parse({"--json", "--plugin", "x"}).allowOneOf("json", "plugin"), UsageError);
}

TEST(CommandLineTest, HelpAndVersionAreAnsweredWithoutTheBody) {
    bool ran = false;
    const auto body = [&ran](const Arguments&) {
        ran = true;
        return 5;
    };
    const Outcome help = run({"status", "--help"}, body);
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.out, tool().help());
    EXPECT_EQ(help.out.rfind("usage: kv-tool [--device DIR] COMMAND\n", 0), 0u);
    EXPECT_EQ(run({"-h"}, body).out, help.out);
    const Outcome version = run({"--version"}, body);
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out, std::string("kv-tool ") + KV_PROJECT_VERSION + "\n");
    EXPECT_FALSE(ran);
    EXPECT_EQ(run({"status"}, body).exitCode, 5);
    EXPECT_TRUE(ran);
}

TEST(CommandLineTest, UsageErrorsExitWith2AndOtherFailuresWith1) {
    const Outcome usage = run({"frob"}, [](const Arguments& arguments) -> int {
        throw UsageError("unknown command '" + arguments.operands()[0] + "'");
    });
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_EQ(usage.out, "");
    EXPECT_EQ(usage.err, "kv-tool: unknown command 'frob'; try 'kv-tool --help'\n");
    const Outcome failure = run({"status"}, [](const Arguments&) -> int {
        throw std::runtime_error("the service does not answer");
    });
    EXPECT_EQ(failure.exitCode, 1);
    EXPECT_EQ(failure.err, "kv-tool: the service does not answer\n");
    EXPECT_EQ(run({"--frob"}, [](const Arguments&) { return 0; }).exitCode, 2);
}

}  // namespace
