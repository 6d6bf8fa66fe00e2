// kv-accessory: drives the accessory services of emulated devices.
#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/Pairing.h>
#include <kv-accessory/StatusText.h>
#include <kv-cli/CommandLine.h>
#include <kv-device/Device.h>
#include <limits.h>
#include <stdlib.h>

#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>

#include "StatusJson.h"

using namespace Kv::Accessory;
using Kv::Cli::Arguments;
using Kv::Cli::Option;
using Kv::Cli::UsageError;

namespace {

const char kUsage[] =
    "usage: kv-accessory COMMAND [DIR...] [OPTIONS]\n"
    "commands:\n"
    "  create DIR_A DIR_B          make two device folders, each with its identity\n"
    "  pair DIR_A DIR_B [--insecure]\n"
    "                              pin each other's certificate and start both\n"
    "                              services, linked over loopback (TLS 1.3)\n"
    "  pair DIR --listen HOST:PORT | --connect HOST:PORT\n"
    "                              pair with a device of another host: both show a\n"
    "                              code; confirm when they show the same\n"
    "  unpair DIR                  forget the paired device\n"
    "  identity DIR                the device's certificate and its pin\n"
    "  start DIR [--listen HOST:PORT | --connect HOST:PORT] [--name NAME] [--insecure]\n"
    "                              start the service (no options: as it was last started)\n"
    "  status DIR [--json]         the service's link, agents, connections and file\n"
    "                              transfers; --json: the same as one JSON object\n"
    "  detach DIR                  drop the device's link and keep it down\n"
    "  attach DIR                  allow the link again\n"
    "  stop DIR...                 stop the services\n"
    "options:\n"
    "  --device DIR   stands for a DIR (pair --device A --device B is pair A B); a\n"
    "                 command on one device takes $KV_DEVICE, else the default\n"
    "                 device, when no DIR is given\n";

using Folders = std::vector<std::string>;
// A command, given the command line and its device folders.
using Command = std::function<void(const Arguments&, const Folders&)>;

std::string absolute(const std::string& folder) {
    Kv::Device::ensureLayout(folder);
    char resolved[PATH_MAX];
    if (::realpath(folder.c_str(), resolved) == nullptr) {
        throw std::runtime_error("cannot resolve " + folder);
    }
    return resolved;
}

// The device folders of a command: the operands after the command, then
// the values of --device.
Folders deviceFolders(const Arguments& arguments) {
    Folders folders(arguments.operands().begin() + 1, arguments.operands().end());
    const Folders given = arguments.values("device");
    folders.insert(folders.end(), given.begin(), given.end());
    return folders;
}

// The one device of a command; without a folder, the process's device.
std::string oneDevice(const Folders& folders, const std::string& command) {
    if (folders.size() > 1) {
        throw UsageError(command + " takes one device folder, not " +
                         std::to_string(folders.size()));
    }
    return absolute(folders.empty() ? Kv::Device::root() : folders[0]);
}

void needFolders(const Folders& folders, std::size_t count, const std::string& command) {
    if (folders.size() < count) {
        throw UsageError(command + " needs " + std::to_string(count) + " device folders");
    }
}

void pairLocally(const std::string& first, const std::string& second, bool insecure) {
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

void pairRemotely(const std::string& device, const Arguments& arguments) {
    const bool listen = arguments.has("listen");
    const std::string hostPort = *arguments.value(listen ? "listen" : "connect");
    const auto listening = [&](unsigned short port) {
        const std::string host = hostPort.substr(0, hostPort.rfind(':'));
        std::cout << "waiting for the other device on " << host << ":" << port << std::endl;
    };
    if (!pairOverNetwork(device, listen, hostPort, confirmCode, listening)) {
        std::cout << "not paired\n";
        throw std::runtime_error("the codes were not confirmed; nothing was pinned");
    }
    std::cout << "paired: " << device << " now links only with that device\n";
}

void pairCommand(const Arguments& arguments, const Folders& folders) {
    if (arguments.has("listen") || arguments.has("connect")) {
        const std::string command = "pair --listen or --connect";
        arguments.allowOnly(command, {"device", "listen", "connect"});
        arguments.allowOneOf("listen", "connect");
        pairRemotely(oneDevice(folders, command), arguments);
        return;
    }
    arguments.allowOnly("pair", {"device", "insecure"});
    needFolders(folders, 2, "pair");
    if (folders.size() > 2) {
        throw UsageError("unexpected argument '" + folders[2] + "'");
    }
    pairLocally(absolute(folders[0]), absolute(folders[1]), arguments.has("insecure"));
}

void createCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("create", {"device"});
    needFolders(folders, 2, "create");
    for (const std::string& folder : folders) {
        const std::string device = absolute(folder);
        ensureIdentity(device, device.substr(device.rfind('/') + 1));
        std::cout << device << "\n";
    }
}

void showIdentity(const std::string& device) {
    std::cout << "certificate: " << certificateFingerprint(ownCertificate(device)) << "\n";
    const std::optional<std::string> pin = pinnedCertificate(device);
    std::cout << "paired with: " << (pin ? certificateFingerprint(*pin) : "nobody") << "\n";
}

// The daemon's link options of a start: --listen or --connect, --name,
// --insecure.
std::vector<std::string> daemonArguments(const Arguments& arguments) {
    arguments.allowOneOf("listen", "connect");
    std::vector<std::string> forwarded;
    for (const std::string option : {"listen", "connect", "name"}) {
        if (const auto value = arguments.value(option)) {
            forwarded.insert(forwarded.end(), {"--" + option, *value});
        }
    }
    if (arguments.has("insecure")) {
        forwarded.push_back("--insecure");
    }
    return forwarded;
}

void startCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("start", {"device", "listen", "connect", "name", "insecure"});
    const std::vector<std::string> forwarded = daemonArguments(arguments);
    startDaemon(oneDevice(folders, "start"), forwarded);
}

void showStatus(const std::string& device, bool json) {
    wire::Request request;
    request.mutable_status();
    const wire::Reply reply = control(device, request);
    if (!reply.has_status_report()) {
        if (json) {
            throw std::runtime_error("the service of " + device + " gives no report; restart it");
        }
        std::cout << reply.status_text();
        return;
    }
    std::cout << (json ? statusJson(reply.status_report()) + "\n"
                       : statusText(reply.status_report()));
}

void statusCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("status", {"device", "json"});
    showStatus(oneDevice(folders, "status"), arguments.has("json"));
}

void setLink(const std::string& device, bool enabled) {
    wire::Request request;
    request.mutable_set_link()->set_enabled(enabled);
    control(device, request);
}

void stopCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("stop", {"device"});
    for (const std::string& folder : folders.empty() ? Folders{Kv::Device::root()} : folders) {
        if (!stopDaemon(absolute(folder))) {
            std::cerr << "kv-accessory: no service runs for " << folder << "\n";
        }
    }
}

// A command on one device that takes no option but --device.
Command onOneDevice(const std::string& name,
                    const std::function<void(const std::string&)>& action) {
    return [name, action](const Arguments& arguments, const Folders& folders) {
        arguments.allowOnly(name, {"device"});
        action(oneDevice(folders, name));
    };
}

const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> table{
        {"create", createCommand},
        {"pair", pairCommand},
        {"unpair", onOneDevice("unpair", unpair)},
        {"identity", onOneDevice("identity", showIdentity)},
        {"start", startCommand},
        {"status", statusCommand},
        {"detach",
         onOneDevice("detach", [](const std::string& device) { setLink(device, false); })},
        {"attach", onOneDevice("attach", [](const std::string& device) { setLink(device, true); })},
        {"stop", stopCommand}};
    return table;
}

int runTool(const Arguments& arguments) {
    if (arguments.operands().empty()) {
        throw UsageError("no command");
    }
    const std::string& name = arguments.operands()[0];
    const auto command = commands().find(name);
    if (command == commands().end()) {
        throw UsageError("unknown command '" + name + "'");
    }
    command->second(arguments, deviceFolders(arguments));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const Kv::Cli::CommandLine commandLine("kv-accessory", kUsage,
                                           {Kv::Cli::kDeviceOption,
                                            {"listen", Option::WithValue},
                                            {"connect", Option::WithValue},
                                            {"name", Option::WithValue},
                                            {"insecure", Option::Flag},
                                            {"json", Option::Flag}});
    return commandLine.run(argc, argv, runTool);
}
