#include "CommandLine.h"

#include <cmath>
#include <cstdlib>

namespace Kv {
namespace Runtime {

namespace {

// Walks the arguments; `next` takes the value of an option.
class Arguments {
public:
    Arguments(int argc, const char* const argv[]) : m_argv(argv + 1, argv + argc) {}

    bool done() const { return m_index >= m_argv.size(); }
    const std::string& peek() const { return m_argv[m_index]; }
    std::string take() { return m_argv[m_index++]; }
    std::string valueOf(const std::string& option) {
        if (done()) {
            throw UsageError(option + " needs a value");
        }
        return take();
    }

private:
    std::vector<std::string> m_argv;
    size_t m_index = 0;
};

double parseTimeout(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds <= 0) {
        throw UsageError("--timeout needs a positive number of seconds, not '" + text + "'");
    }
    return seconds;
}

void parseRunOptions(Arguments& arguments, CommandLine& line) {
    while (!arguments.done()) {
        const std::string option = arguments.take();
        if (option == "--plugins") {
            line.pluginFolders.push_back(arguments.valueOf(option));
        } else if (option == "--plugin") {
            line.pluginFiles.push_back(arguments.valueOf(option));
        } else if (option == "--timeout") {
            line.timeoutSeconds = parseTimeout(arguments.valueOf(option));
        } else if (option == "--") {
            while (!arguments.done()) {
                line.appArguments.push_back(arguments.take());
            }
        } else if (line.appId.empty() && option.rfind("--", 0) != 0) {
            line.appId = option;
        } else {
            throw UsageError("unexpected argument '" + option + "'");
        }
    }
    if (line.appId.empty()) {
        throw UsageError("run needs an app id");
    }
}

// The one operand of a command, and nothing after it.
std::string singleOperand(Arguments& arguments, const std::string& command,
                          const std::string& what) {
    if (arguments.done()) {
        throw UsageError(command + " needs " + what);
    }
    std::string operand = arguments.take();
    if (!arguments.done()) {
        throw UsageError("unexpected argument '" + arguments.peek() + "'");
    }
    return operand;
}

Command commandNamed(const std::string& name) {
    if (name == "install") {
        return Command::Install;
    }
    if (name == "run") {
        return Command::Run;
    }
    if (name == "list") {
        return Command::List;
    }
    if (name == "--help" || name == "-h" || name == "help") {
        return Command::Help;
    }
    throw UsageError("unknown command '" + name + "'");
}

}  // namespace

CommandLine parseCommandLine(int argc, const char* const argv[]) {
    Arguments arguments(argc, argv);
    CommandLine line;
    if (!arguments.done() && arguments.peek() == "--device") {
        const std::string option = arguments.take();
        line.deviceDir = arguments.valueOf(option);
    }
    if (arguments.done()) {
        throw UsageError("a command is needed");
    }
    line.command = commandNamed(arguments.take());
    switch (line.command) {
        case Command::Install:
            line.appFolder = singleOperand(arguments, "install", "an app folder");
            break;
        case Command::Run:
            parseRunOptions(arguments, line);
            break;
        case Command::List:
        case Command::Help:
            if (!arguments.done()) {
                throw UsageError("unexpected argument '" + arguments.peek() + "'");
            }
            break;
    }
    return line;
}

const char* usageText() {
    return "usage: kv-runtime [--device DIR] install APP_FOLDER\n"
           "       kv-runtime [--device DIR] run APP_ID [--plugins DIR] [--plugin FILE]... "
           "[--timeout SECONDS]\n"
           "                [-- ARGUMENT...]\n"
           "       kv-runtime [--device DIR] list\n"
           "\n"
           "  install   installs the app in APP_FOLDER (its config.xml names it) and prints its "
           "id\n"
           "  run       runs an installed app until it calls runtime.exit(code), throws, is\n"
           "            interrupted or terminated, or SECONDS pass (exit code 124); the\n"
           "            ARGUMENTs after -- reach the app as the strings of runtime.args\n"
           "  list      prints the installed apps: app id, package, name\n"
           "\n"
           "  --device DIR     the device folder (default: $KV_DEVICE or the default device)\n"
           "  --plugins DIR    load every *.so of DIR, in name order\n"
           "  --plugin FILE    load this plug-in (may be repeated)\n"
           "  without --plugins and --plugin, the plug-ins of $KV_PLUGIN_DIR or of the\n"
           "  build's plugins/ folder are loaded\n";
}

}  // namespace Runtime
}  // namespace Kv
