// Reads a command line with getopt_long: options may stand anywhere among
// the operands, "--" ends them, and a word that starts with '-' and a digit
// is an operand (a negative number), not an option.
#ifndef KV_CLI_OPTION_PARSER_H
#define KV_CLI_OPTION_PARSER_H

#include <kv-cli/Arguments.h>
#include <kv-cli/Option.h>

#include <string>
#include <vector>

namespace Kv {
namespace Cli {

// `words` is the whole command line, the program's name first. -h stands
// for --help. Throws UsageError on an unknown option, a missing value or a
// value given to a flag.
Arguments parseOptions(const std::vector<Option>& options, const std::vector<std::string>& words);

}  // namespace Cli
}  // namespace Kv

#endif
