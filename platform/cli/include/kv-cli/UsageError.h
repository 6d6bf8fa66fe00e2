// A command line that does not fit the program's usage. what() says what is
// wrong in a few words ("unknown command 'frob'"); the program shows it as a
// one-line hint and exits with kUsageExitCode.
#ifndef KV_CLI_USAGE_ERROR_H
#define KV_CLI_USAGE_ERROR_H

#include <stdexcept>

namespace Kv {
namespace Cli {

inline constexpr int kUsageExitCode = 2;

class UsageError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

}  // namespace Cli
}  // namespace Kv

#endif
