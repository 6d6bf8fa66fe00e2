#include "CommandLine.h"

#include <cmath>
#include <cstdlib>

namespace Kv {
namespace Runtime {

namespace {

using Cli::Arguments;
using Cli::Option;
using Cli::UsageError;

const char kUsage[] =
    "usage: kv-runtime [--device DIR] install APP_FOLDER\n"
    "       kv-runtime [--device DIR] run APP_ID [--plugins DIR] [--plugin FILE]... "
    "[--timeout SECONDS]\n"
    "                [-- ARGUMENT...]\n"
    "       kv-runtime [--device DIR] list\n"
    "\n"
    "  install   installs the app in APP_FOLDER (its config.xml names it) and prints its id\n"
    "  run       runs an installed app until it calls runtime.exit(code), throws, is\n"
    "            interrupted or terminated, or SECONDS pass (exit code 124); the\n"
    "            ARGUMENTs after -- reach the app as the strings of runtime.args\n"
    "  list      prints the installed apps: app id, package, name\n"
    "\n"
    "  --device DIR     the device (default: $KV_DEVICE, else the default device)\n"
    "  --plugins DIR    load every *.so of DIR, in name order\n"
    "  --plugin FILE    load this plug-in (may be repeated)\n"
    "  without --plugins and --plugin, the plug-ins of $KV_PLUGIN_DIR or of the\n"
    "  build's plugins/ folder are loaded\n";

double parseTimeout(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds <= 0) {
        throw UsageError("--timeout needs a positive number of seconds, not '" + text + "'");
    }
    return seconds;
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
    throw UsageError("unknown command '" + name + "'");
}

// The operand after the command, and nothing after it.
std::string singleOperand(const std::vector<std::string>& operands, const std::string& what) {
    if (operands.size() < 2) {
        throw UsageError(operands[0] + " needs " + what);
    }
    if (operands.size() > 2) {
        throw UsageError("unexpected argument '" + operands[2] + "'");
    }
    return operands[1];
}

void readRunOptions(const Arguments& arguments, CommandLine& line) {
    arguments.allowOnly("run", {"device", "plugins", "plugin", "timeout"});
    line.appId = singleOperand(arguments.operandsBeforeDashes(), "an app id");
    line.pluginFolders = arguments.values("plugins");
    line.pluginFiles = arguments.values("plugin");
    if (const auto timeout = arguments.value("timeout")) {
        line.timeoutSeconds = parseTimeout(*timeout);
    }
    line.appArguments = arguments.operandsAfterDashes();
}

}  // namespace

const Cli::CommandLine& programCommandLine() {
    static const Cli::CommandLine commandLine("kv-runtime", kUsage,
                                              {Cli::kDeviceOption,
                                               {"plugins", Option::WithValue},
                                               {"plugin", Option::WithValue},
                                               {"timeout", Option::WithValue}});
    return commandLine;
}

CommandLine parseCommandLine(const Arguments& arguments) {
    const std::vector<std::string>& operands = arguments.operands();
    if (operands.empty()) {
        throw UsageError("a command is needed");
    }
    CommandLine line;
    line.deviceDir = arguments.value("device");
    line.command = commandNamed(operands[0]);
    if (line.command == Command::Run) {
        readRunOptions(arguments, line);
        return line;
    }
    arguments.allowOnly(operands[0], {"device"});
    if (line.command == Command::Install) {
        line.appFolder = singleOperand(operands, "an app folder");
    } else {
        arguments.allowOperands(1);
    }
    return line;
}

}  // namespace Runtime
}  // namespace Kv
