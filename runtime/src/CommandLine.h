// The command line of the kv-runtime program:
//   kv-runtime [--device DIR] install APP_FOLDER
//   kv-runtime [--device DIR] run APP_ID [RUN OPTIONS] [-- ARGUMENT...]
//   kv-runtime [--device DIR] list
//   kv-runtime --help | --version
#ifndef KV_RUNTIME_COMMAND_LINE_H
#define KV_RUNTIME_COMMAND_LINE_H

#include <RunOptions.h>

#include <kv-cli/CommandLine.h>

#include <optional>
#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

enum class Command { Install, Run, List };

struct CommandLine {
    Command command = Command::List;
    std::optional<std::string> deviceDir;
    std::string appFolder;                  // install
    std::string appId;                      // run
    RunOptions run;                         // run: RunOptions.h
    std::vector<std::string> appArguments;  // run: what follows "--", for the app
};

// The program's options and usage text.
const Cli::CommandLine& programCommandLine();

// Reads what the command line gave. Throws Cli::UsageError.
CommandLine parseCommandLine(const Cli::Arguments& arguments);

}  // namespace Runtime
}  // namespace Kv

#endif
