// kv-device: makes, shows and enters emulated devices.
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

constexpr int kUsageError = 2;
constexpr int kExecFailed = 127;

const char kUsage[] =
    "usage: kv-device [--device DIR] COMMAND\n"
    "commands:\n"
    "  create               make the device's layout and print its folder\n"
    "  path                 print the device's folder\n"
    "  run -- CMD [ARGS...] run a command inside the device (its /opt is the device's)\n"
    "  apps                 list the installed apps: app id, package, name\n"
    "  install APP_FOLDER   install the app in APP_FOLDER (it holds config.xml)\n"
    "The device is DIR, else $KV_DEVICE, else the default device.\n";

int usage(const std::string& problem) {
    std::cerr << "kv-device: " << problem << "\n" << kUsage;
    return kUsageError;
}

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

int dispatch(const std::string& command, const std::vector<std::string>& rest) {
    if ((command == "create" || command == "path" || command == "apps") && !rest.empty()) {
        return usage("too many arguments for " + command);
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
            return usage("install needs one app folder");
        }
        std::cout << Kv::Device::installApp(rest[0]).appId << "\n";
        return 0;
    }
    if (command == "run") {
        const bool dashes = !rest.empty() && rest[0] == "--";
        const std::vector<std::string> program(rest.begin() + (dashes ? 1 : 0), rest.end());
        return program.empty() ? usage("run needs a command") : runInside(program);
    }
    return usage("unknown command \"" + command + "\"");
}

int run(std::vector<std::string> arguments) {
    if (!arguments.empty() && arguments[0] == "--device") {
        if (arguments.size() < 2) {
            return usage("--device needs a folder");
        }
        Kv::Device::select(arguments[1]);
        arguments.erase(arguments.begin(), arguments.begin() + 2);
    }
    if (arguments.empty()) {
        return usage("no command");
    }
    const std::string command = arguments[0];
    return dispatch(command, {arguments.begin() + 1, arguments.end()});
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "kv-device: " << error.what() << "\n";
        return 1;
    }
}
