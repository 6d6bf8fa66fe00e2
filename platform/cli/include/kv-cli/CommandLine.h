// The command line of a program, alike in every program of the project:
//   - options are long (--name, --name VALUE or --name=VALUE) and may stand
//     anywhere among the operands; "--" ends them; a word that starts with
//     '-' and a digit is an operand (a negative number);
//   - -h/--help prints the usage on stdout and exits with 0;
//   - --version prints "<program> <version>" and exits with 0;
//   - a usage error prints "<program>: <what is wrong>; try '<program> --help'"
//     on stderr and exits with 2;
//   - any other failure prints "<program>: <reason>" and exits with 1.
#ifndef KV_CLI_COMMAND_LINE_H
#define KV_CLI_COMMAND_LINE_H

#include <kv-cli/Arguments.h>
#include <kv-cli/Option.h>
#include <kv-cli/UsageError.h>

#include <functional>
#include <string>
#include <vector>

namespace Kv {
namespace Cli {

class CommandLine {
public:
    // `usage` is the program's help text, ending with a newline; the lines
    // of --help and --version are added to it.
    CommandLine(std::string program, std::string usage, std::vector<Option> options);

    // Reads argv (argv[0] is the program's path). Throws UsageError.
    Arguments parse(int argc, const char* const argv[]) const;

    // The whole of a main(): parses argv, answers --help and --version, and
    // otherwise returns what `body` returns, turning its exceptions into
    // messages and exit codes as above.
    int run(int argc, const char* const argv[],
            const std::function<int(const Arguments&)>& body) const;

    const std::string& program() const { return m_program; }
    // "<program>: <problem>; try '<program> --help'"
    std::string hint(const std::string& problem) const;
    std::string help() const;

private:
    int answer(const Arguments& arguments, const std::function<int(const Arguments&)>& body) const;

    std::string m_program;
    std::string m_usage;
    std::vector<Option> m_options;
};

}  // namespace Cli
}  // namespace Kv

#endif
