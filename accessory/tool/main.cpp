// kv-accessory: drives the accessory services of emulated devices.
#include <kv-device/Device.h>
#include <limits.h>
#include <stdlib.h>

#include <iostream>
#include <map>
#include <stdexcept>

#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/Pairing.h>

using namespace Kv::Accessory;

namespace {

const char* const kUsage =
    "usage:\n"
    "  kv-accessory create DIR_A DIR_B          make two device folders, each with its identity\n"
    "  kv-accessory pair DIR_A DIR_B [--insecure]\n"
    "                                           pin each other's certificate and start both\n"
    "                                           services, linked over loopback (TLS 1.3)\n"
    "  kv-accessory pair DIR --listen HOST:PORT | --connect HOST:PORT\n"
    "                                           pair with a device of another host: both show a\n"
    "                                           code; confirm when they show the same\n"
    "  kv-accessory unpair DIR                  forget the paired device\n"
    "  kv-accessory identity DIR                the device's certificate and its pin\n"
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

void pair(const std::string& first, const std::string& second, bool insecure) {
    pairFolders(first, second);
    const std::vector<std::string> extra =
        insecure ? std::vector<std::string>{"--insecure"} : std::vector<std::string>{};
    std::vector<std::string> listen{"--listen", "127.0.0.1:0"};
    listen.insert(listen.end(), extra.begin(), extra.end());
    startDaemon(first, listen);
    const std::string port = std::to_string(listeningPort(first));
    std::vector<std::string> connect{"--connect", "127.0.0.1:" + port};
    connect.insert(connect.end(), extra.begin(), extra.end());
    startDaemon(second, connect);
    if (!waitLinked(first, 10000) || !waitLinked(second, 10000)) {
        throw std::runtime_error("the devices did not link");
    }
    std::cout << "linked " << first << " and " << second << " on 127.0.0.1:" << port << "\n";
}

// Asks the user whether the other device shows the same code.
bool confirmCode(const std::string& code, const std::string& fingerprint) {
    std::cout << "the other device's certificate: " << fingerprint << "\n"
              << "pairing code: " << code.substr(0, 3) << " " << code.substr(3) << "\n"
              << "Does the other device show the same code? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

void pairRemote(const std::vector<std::string>& arguments) {
    if (arguments.size() != 3 || (arguments[1] != "--listen" && arguments[1] != "--connect")) {
        throw UsageError("pair DIR needs --listen HOST:PORT or --connect HOST:PORT");
    }
    const std::string device = absolute(arguments[0]);
    const auto listening = [&](unsigned short port) {
        const std::string host = arguments[2].substr(0, arguments[2].rfind(':'));
        std::cout << "waiting for the other device on " << host << ":" << port << std::endl;
    };
    if (!pairOverNetwork(device, arguments[1] == "--listen", arguments[2], confirmCode,
                         listening)) {
        std::cout << "not paired\n";
        throw std::runtime_error("the codes were not confirmed; nothing was pinned");
    }
    std::cout << "paired: " << device << " now links only with that device\n";
}

void showIdentity(const std::string& device) {
    std::cout << "certificate: " << certificateFingerprint(ownCertificate(device)) << "\n";
    const std::optional<std::string> pin = pinnedCertificate(device);
    std::cout << "paired with: " << (pin ? certificateFingerprint(*pin) : "nobody") << "\n";
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
            const std::string device = absolute(folder);
            ensureIdentity(device, device.substr(device.rfind('/') + 1));
            std::cout << device << "\n";
        }
    } else if (command == "pair" && arguments.size() >= 2 && arguments[1].rfind("--", 0) == 0) {
        pairRemote(arguments);
    } else if (command == "pair") {
        needArguments(arguments, 2);
        const bool insecure = arguments.size() == 3 && arguments[2] == "--insecure";
        if (arguments.size() > 2 && !insecure) {
            throw UsageError("unexpected argument: " + arguments[2]);
        }
        pair(absolute(arguments[0]), absolute(arguments[1]), insecure);
    } else if (command == "unpair") {
        needArguments(arguments, 1);
        unpair(absolute(arguments[0]));
    } else if (command == "identity") {
        needArguments(arguments, 1);
        showIdentity(absolute(arguments[0]));
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
