// The commands of the kv-runtime program. Each returns the process's exit
// code and reports its own errors on stderr.
#ifndef KV_RUNTIME_COMMANDS_H
#define KV_RUNTIME_COMMANDS_H

#include "CommandLine.h"

namespace Kv {
namespace Runtime {

// Exit codes besides the app's own (a usage error exits with
// Cli::kUsageExitCode, 2).
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUnknownApp = 3;
inline constexpr int kExitPluginError = 4;

int installCommand(const CommandLine& line);
int listCommand();
// Runs the app; the process must have entered the device already.
int runCommand(const CommandLine& line);

}  // namespace Runtime
}  // namespace Kv

#endif
