// kv-device: makes, shows and enters emulated devices.
#include <kv-cli/CommandLine.h>
#include <kv-cli/ExecArguments.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/Screen.h>

#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Kv::Cli::UsageError;

constexpr int kExecFailed = 127;

const char kUsage[] =
    "usage: kv-device [--device DIR] COMMAND\n"
    "commands:\n"
    "  create                make the device's layout and print its folder\n"
    "  path                  print the device's folder\n"
    "  run -- CMD [ARGS...]  run a command inside the device (its /opt is the device's)\n"
    "  apps                  list the installed apps: app id, package, name\n"
    "  install APP_FOLDER    install the app in APP_FOLDER (it holds config.xml)\n"
    "  screen [SCREEN]       print the device's screen, or set it: watch (360x360\n"
    "                        round), phone (412x892), or WIDTHxHEIGHT, with 'round'\n"
    "                        after it for a round one\n"
    "options:\n"
    "  --device DIR   the device (default: $KV_DEVICE, else the default device)\n";

int runInside(const std::vector<std::string>& command) {
    Kv::Device::enter();
    std::vector<std::string> words = command;
    std::vector<char*> argv = Kv::Cli::execArguments(words);
    execvp(argv[0], argv.data());
    std::cerr << "kv-device: cannot run " << command[0] << ": " << std::strerror(errno) << "\n";
    return kExecFailed;
}

int listApps() {
    for (const Kv::Device::AppInfo& app : Kv::Device::listApps()) {
        std::cout << app.appId << "\t" << app.package << "\t" << app.name << "\n";
    }
    return 0;
}

// The command after "run", with or without the "--" before it.
int runCommand(const std::vector<std::string>& program) {
    if (program.empty()) {
        throw UsageError("run needs a command");
    }
    return runInside(program);
}

// Prints the device's screen, or sets the one the words describe.
int screenCommand(const std::vector<std::string>& words) {
    if (words.empty()) {
        std::cout << Kv::Device::describeScreen(Kv::Device::screen()) << "\n";
        return 0;
    }
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    const std::optional<Kv::Device::Screen> screen = Kv::Device::parseScreen(text);
    if (!screen) {
        throw UsageError("'" + text +
                         "' is no screen: give watch, phone or WIDTHxHEIGHT [round], sides from "
                         "64 to 4096");
    }
    Kv::Device::setScreen(*screen);
    std::cout << Kv::Device::describeScreen(*screen) << "\n";
    return 0;
}

int dispatch(const std::string& command, const std::vector<std::string>& rest) {
    if ((command == "create" || command == "path" || command == "apps") && !rest.empty()) {
        throw UsageError("too many arguments for " + command);
    }
    if (command == "create" || command == "path") {
        std::cout << Kv::Device::root() << "\n";
        return 0;
    }
    if (command == "apps") {
        return listApps();
    }
    if (command == "install") {
        if (rest.size() != 1) {
            throw UsageError("install needs one app folder");
        }
        std::cout << Kv::Device::installApp(rest[0]).appId << "\n";
        return 0;
    }
    if (command == "run") {
        return runCommand(rest);
    }
    if (command == "screen") {
        return screenCommand(rest);
    }
    throw UsageError("unknown command '" + command + "'");
}

int run(const Kv::Cli::Arguments& arguments) {
    if (const auto device = arguments.value("device")) {
        Kv::Device::select(*device);
    }
    const std::vector<std::string>& operands = arguments.operands();
    if (operands.empty()) {
        throw UsageError("no command");
    }
    return dispatch(operands[0], {operands.begin() + 1, operands.end()});
}

}  // namespace

int main(int argc, char** argv) {
    const Kv::Cli::CommandLine commandLine("kv-device", kUsage, {Kv::Cli::kDeviceOption});
    return commandLine.run(argc, argv, run);
}
