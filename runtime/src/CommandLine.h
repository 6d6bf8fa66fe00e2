// The command line of the kv-runtime program:
//   kv-runtime [--device DIR] install APP_FOLDER
//   kv-runtime [--device DIR] run APP_ID [--plugins DIR] [--plugin FILE]... [--timeout SECONDS]
//              [-- ARGUMENT...]
//   kv-runtime [--device DIR] list
//   kv-runtime --help
#ifndef KV_RUNTIME_COMMAND_LINE_H
#define KV_RUNTIME_COMMAND_LINE_H

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

enum class Command { Help, Install, Run, List };

struct CommandLine {
    Command command = Command::Help;
    std::optional<std::string> deviceDir;
    std::string appFolder;  // install
    std::string appId;      // run
    std::vector<std::string> pluginFolders;
    std::vector<std::string> pluginFiles;
    std::optional<double> timeoutSeconds;
    std::vector<std::string> appArguments;  // run: what follows "--", for the app
};

// A command line that does not fit the usage; the message says why.
class UsageError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

// Parses argv[1..argc-1]. Throws UsageError.
CommandLine parseCommandLine(int argc, const char* const argv[]);

// The usage text, several lines, ending with a newline.
const char* usageText();

}  // namespace Runtime
}  // namespace Kv

#endif
