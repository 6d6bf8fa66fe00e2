#include "CommandLine.h"

#include <set>

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
    "                [--inspect] [--screenshot FILE] [--screenshots DIR [--every MS]]\n"
    "                [--driver SOCKET] [--position X,Y] [-- ARGUMENT...]\n"
    "       kv-runtime [--device DIR] list\n"
    "\n"
    "  install   installs the app in APP_FOLDER (its config.xml names it) and prints its id\n"
    "  run       runs an installed app until it calls runtime.exit(code), throws, is\n"
    "            interrupted or terminated, or SECONDS pass from its start (a page's\n"
    "            once its page's process has started; exit code 124); the\n"
    "            ARGUMENTs after -- reach the app as the strings of runtime.args. An\n"
    "            app whose content is an HTML page runs as a page in the web engine,\n"
    "            in a window the size of the device's screen (kv-page-host)\n"
    "  list      prints the installed apps: app id, package, name\n"
    "\n"
    "  --device DIR        the device (default: $KV_DEVICE, else the default device)\n"
    "  --plugins DIR       load every *.so of DIR, in name order\n"
    "  --plugin FILE       load this plug-in (may be repeated)\n"
    "  without --plugins and --plugin, the plug-ins of $KV_PLUGIN_DIR, else of the\n"
    "  runtime's plug-in folder (the installed one, or plugins/ of the build) are loaded\n"
    "pages only:\n"
    "  --inspect           turn on the engine's developer tools and serve its inspector on\n"
    "                      a loopback port, printed at start\n"
    "  --screenshot FILE   write a PNG of the screen when the app ends\n"
    "  --screenshots DIR   write a PNG of the screen every MS milliseconds (--every, default\n"
    "                      1000) as DIR/<milliseconds since start>.png\n"
    "  --driver SOCKET     let a test drive the page through this Unix socket\n"
    "  --position X,Y      put the page's window there on the display\n";

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

void readRun(const Arguments& arguments, CommandLine& line) {
    std::set<std::string> allowed = runOptionNames();
    allowed.insert("device");
    arguments.allowOnly("run", allowed);
    line.appId = singleOperand(arguments.operandsBeforeDashes(), "an app id");
    line.run = readRunOptions(arguments);
    line.appArguments = arguments.operandsAfterDashes();
}

}  // namespace

const Cli::CommandLine& programCommandLine() {
    static const Cli::CommandLine commandLine("kv-runtime", kUsage, [] {
        std::vector<Option> options = runOptionList();
        options.push_back(Cli::kDeviceOption);
        return options;
    }());
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
        readRun(arguments, line);
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
