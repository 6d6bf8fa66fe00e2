// kv-device: makes, shows and enters emulated devices.
#include <kv-cli/CommandLine.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>

#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Kv::Cli::UsageError;

constexpr int kExecFailed = 127;

const char kUsage[] =
    "usage: kv-device [--device DIR] COMMAND\n"
    "commands:\n"
    "  create               make the device's layout and print its folder\n"
    "  path                 print the device's folder\n"
    "  run -- CMD [ARGS...] run a command inside the device (its /opt is the device's)\n"
    "  apps                 list the installed apps: app id, package, name\n"
    "  install APP_FOLDER   install the app in APP_FOLDER (it holds config.xml)\n"
    "options:\n"
    "  --device DIR   the device (default: $KV_DEVICE, else the default device)\n";

int runInside(const std::vector<std::string>& command) {
    Kv::Device::enter();
    std::vector<char*> argv;
    argv.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
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
