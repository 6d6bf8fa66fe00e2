#include <kv-cli/CommandLine.h>
#include <kv-cli/Version.h>

#include <iostream>

#include "OptionParser.h"

namespace Kv {
namespace Cli {

namespace {

constexpr int kFailureExitCode = 1;

const char kStandardOptionsHelp[] =
    "\n"
    "  -h, --help     print this help and exit\n"
    "  --version      print the version and exit\n";

}  // namespace

CommandLine::CommandLine(std::string program, std::string usage, std::vector<Option> options)
    : m_program(std::move(program)), m_usage(std::move(usage)), m_options(std::move(options)) {
    m_options.push_back({"help", Option::Flag});
    m_options.push_back({"version", Option::Flag});
}

Arguments CommandLine::parse(int argc, const char* const argv[]) const {
    return parseOptions(m_options, std::vector<std::string>(argv, argv + argc));
}

int CommandLine::run(int argc, const char* const argv[],
                     const std::function<int(const Arguments&)>& body) const {
    try {
        return answer(parse(argc, argv), body);
    } catch (const UsageError& error) {
        std::cerr << hint(error.what()) << '\n';
        return kUsageExitCode;
    } catch (const std::exception& error) {
        std::cerr << m_program << ": " << error.what() << '\n';
        return kFailureExitCode;
    }
}

int CommandLine::answer(const Arguments& arguments,
                        const std::function<int(const Arguments&)>& body) const {
    if (arguments.has("help")) {
        std::cout << help();
        return 0;
    }
    if (arguments.has("version")) {
        std::cout << m_program << " " << version() << "\n";
        return 0;
    }
    return body(arguments);
}

std::string CommandLine::hint(const std::string& problem) const {
    return m_program + ": " + problem + "; try '" + m_program + " --help'";
}

std::string CommandLine::help() const { return m_usage + kStandardOptionsHelp; }

}  // namespace Cli
}  // namespace Kv
