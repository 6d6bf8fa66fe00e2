// kv-accessory: drives the accessory services of emulated devices.
#include <kv-device/Device.h>
#include <limits.h>
#include <stdlib.h>

#include <iostream>
#include <map>
#include <stdexcept>

#include <kv-accessory/DeviceControl.h>

using namespace Kv::Accessory;

namespace {

const char* const kUsage =
    "usage:\n"
    "  kv-accessory create DIR_A DIR_B          make two device folders\n"
    "  kv-accessory pair DIR_A DIR_B            start both services, linked over loopback TCP\n"
    "  kv-accessory start DIR [--listen HOST:PORT | --connect HOST:PORT] [--name NAME]\n"
    "                                           (no options: as it was last started)\n"
    "  kv-accessory status DIR                  the service's link, apps, agents, connections\n"
    "  kv-accessory detach DIR                  drop the device's link and keep it down\n"
    "  kv-accessory attach DIR                  allow the link again\n"
    "  kv-accessory stop DIR...                 stop the services\n";

struct UsageError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

std::string absolute(const std::string& folder) {
    Kv::Device::ensureLayout(folder);
    char resolved[PATH_MAX];
    if (::realpath(folder.c_str(), resolved) == nullptr) {
        throw std::runtime_error("cannot resolve " + folder);
    }
    return resolved;
}

void needArguments(const std::vector<std::string>& arguments, std::size_t count) {
    if (arguments.size() < count) {
        throw UsageError("missing arguments");
    }
}

void pair(const std::string& first, const std::string& second) {
    startDaemon(first, {"--listen", "127.0.0.1:0"});
    const std::string port = std::to_string(listeningPort(first));
    startDaemon(second, {"--connect", "127.0.0.1:" + port});
    if (!waitLinked(first, 10000) || !waitLinked(second, 10000)) {
        throw std::runtime_error("the devices did not link");
    }
    std::cout << "linked " << first << " and " << second << " on 127.0.0.1:" << port << "\n";
}

void setLink(const std::string& device, bool enabled) {
    wire::Request request;
    request.mutable_set_link()->set_enabled(enabled);
    control(device, request);
}

int runCommand(const std::string& command, const std::vector<std::string>& arguments) {
    if (command == "create") {
        needArguments(arguments, 2);
        for (const std::string& folder : arguments) {
            std::cout << absolute(folder) << "\n";
        }
    } else if (command == "pair") {
        needArguments(arguments, 2);
        pair(absolute(arguments[0]), absolute(arguments[1]));
    } else if (command == "start") {
        needArguments(arguments, 1);
        startDaemon(absolute(arguments[0]),
                    std::vector<std::string>(arguments.begin() + 1, arguments.end()));
    } else if (command == "status") {
        needArguments(arguments, 1);
        wire::Request request;
        request.mutable_status();
        std::cout << control(absolute(arguments[0]), request).status_text();
    } else if (command == "detach" || command == "attach") {
        needArguments(arguments, 1);
        setLink(absolute(arguments[0]), command == "attach");
    } else if (command == "stop") {
        needArguments(arguments, 1);
        for (const std::string& folder : arguments) {
            if (!stopDaemon(absolute(folder))) {
                std::cerr << "kv-accessory: no service runs for " << folder << "\n";
            }
        }
    } else {
        throw UsageError("unknown command: " + command);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << kUsage;
        return 2;
    }
    try {
        return runCommand(argv[1], std::vector<std::string>(argv + 2, argv + argc));
    } catch (const UsageError& error) {
        std::cerr << "kv-accessory: " << error.what() << "\n" << kUsage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "kv-accessory: " << error.what() << "\n";
        return 1;
    }
}
