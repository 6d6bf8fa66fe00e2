// kv-accessory: drives the accessory services of emulated devices.
#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/LinkProfiles.h>
#include <kv-accessory/Pairing.h>
#include <kv-accessory/StatusText.h>
#include <kv-accessory/TraceText.h>
#include <kv-accessory/TraceTimeline.h>
#include <kv-cli/CommandLine.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <kv-device/Paths.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <set>
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
    "  pair DIR_A DIR_B [--insecure] [--link-profile NAME] [--keylog FILE]\n"
    "                              pin each other's certificate and start both\n"
    "                              services, linked over loopback (TLS 1.3)\n"
    "  pair DIR --listen HOST:PORT | --connect HOST:PORT\n"
    "                              pair with a device of another host: both show a\n"
    "                              code; confirm when they show the same\n"
    "  unpair DIR                  forget the paired device\n"
    "  identity DIR                the device's certificate and its pin\n"
    "  start DIR [--listen HOST:PORT | --connect HOST:PORT] [--name NAME] [--insecure]\n"
    "            [--link-profile NAME] [--keylog FILE] [--foreground]\n"
    "                              start the service (no options: as it was last started);\n"
    "                              --foreground: run it in this process, its output on\n"
    "                              stderr (as systemd runs it)\n"
    "  status DIR [--json]         the service's link, agents, connections and file\n"
    "                              transfers; --json: the same as one JSON object\n"
    "  detach DIR [WHEN]           drop the device's link and keep it down\n"
    "  attach DIR                  allow the link again\n"
    "  drop DIR [WHEN]             drop the link; it is made again at once\n"
    "  stall DIR --seconds S [WHEN]\n"
    "                              nothing goes over the link either way for S seconds\n"
    "                              (beyond 6 s the link is given up, as a real one is)\n"
    "  disarm DIR                  forget the faults that wait for their WHEN\n"
    "  storage DIR --free BYTES | --unlimited\n"
    "                              the free storage the device pretends to have; files\n"
    "                              received take from it\n"
    "  stop DIR...                 stop the services\n"
    "  trace DIR [--json]          follow the service live, a line for each thing it does:\n"
    "                              sessions, agents, searches, connections, every message\n"
    "                              (with its time from the send to the delivery), files,\n"
    "                              the link and its faults; --json: JSON lines\n"
    "  timeline TRACE... [--output FILE]\n"
    "                              merge the traces (trace --json) of several devices into\n"
    "                              one timeline that trace viewers open\n"
    "WHEN, for a fault at an exact point instead of at once:\n"
    "  --after-file-bytes N        after N bytes of the next file transfer, either way\n"
    "  --after-messages N --channel C\n"
    "                              after N messages on channel C, either way\n"
    "link profiles (--link-profile; both devices of a pair take the same):\n"
    "  unlimited (the default), wifi, usb, bt, ble: bandwidth, latency, the largest\n"
    "  data of one send and the transport the apps see (docs/link-emulation.md)\n"
    "--keylog FILE (pair, start): the services append the TLS secrets of the link to\n"
    "  FILE, so that a capture of the link can be decrypted (docs/debugging.md);\n"
    "  whoever reads FILE reads everything on the link: for debugging only\n"
    "options:\n"
    "  --device DIR   stands for a DIR (pair --device A --device B is pair A B); a\n"
    "                 command on one device takes $KV_DEVICE, else the default\n"
    "                 device, when no DIR is given\n";

using Folders = std::vector<std::string>;
// A command, given the command line and its device folders.
using Command = std::function<void(const Arguments&, const Folders&)>;

// A device folder made where it is missing, absolute: for the commands
// that make a device (create, pair, start).
std::string absolute(const std::string& folder) {
    Kv::Device::ensureLayout(folder);
    char resolved[PATH_MAX];
    if (::realpath(folder.c_str(), resolved) == nullptr) {
        throw std::runtime_error("cannot resolve " + folder);
    }
    return resolved;
}

// A device folder that must exist already, absolute: for the commands that
// look at or act on a device, so that a mistyped folder is named rather than
// made into a new device.
std::string existing(const std::string& folder) {
    if (!Kv::Device::isDeviceFolder(folder)) {
        throw std::runtime_error("no device at " + folder +
                                 " (kv-accessory create makes one; start and pair do too)");
    }
    return absolute(folder);
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
// Only a command that makes a device (`making`) makes a missing folder.
std::string oneDevice(const Folders& folders, const std::string& command, bool making = false) {
    if (folders.size() > 1) {
        throw UsageError(command + " takes one device folder, not " +
                         std::to_string(folders.size()));
    }
    const std::string folder = folders.empty() ? Kv::Device::root() : folders[0];
    return making ? absolute(folder) : existing(folder);
}

void needFolders(const Folders& folders, std::size_t count, const std::string& command) {
    if (folders.size() < count) {
        throw UsageError(command + " needs " + std::to_string(count) + " device folders");
    }
}

// --keylog with the file's absolute path, so that a daemon started again
// later, from another folder, writes to the same file; nothing without it.
std::vector<std::string> keyLogArguments(const Arguments& arguments) {
    const auto keyLog = arguments.value("keylog");
    if (!keyLog) {
        return {};
    }
    if (keyLog->empty()) {
        throw UsageError("--keylog needs a file");
    }
    arguments.allowOneOf("insecure", "keylog");
    return {"--keylog", std::filesystem::absolute(*keyLog).string()};
}

// The options of the link that a pair's two daemons share.
std::vector<std::string> sharedLinkArguments(const Arguments& arguments) {
    std::vector<std::string> extra = keyLogArguments(arguments);
    if (arguments.has("insecure")) {
        extra.push_back("--insecure");
    }
    if (const auto profile = arguments.value("link-profile")) {
        if (findLinkProfile(*profile) == nullptr) {
            throw UsageError("unknown link profile '" + *profile + "' (" + linkProfileNames() +
                             ")");
        }
        extra.insert(extra.end(), {"--link-profile", *profile});
    }
    return extra;
}

void pairLocally(const std::string& first, const std::string& second,
                 const std::vector<std::string>& extra) {
    pairFolders(first, second);
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
    const std::string hostPort = arguments.value(listen ? "listen" : "connect").value_or("");
    const auto listening = [&](unsigned short port) {
        const std::string host = hostPort.substr(0, hostPort.rfind(':'));
        // Flushed: the person at the other device waits for this line.
        std::cout << "waiting for the other device on " << host << ":" << port << '\n'
                  << std::flush;
    };
    switch (pairOverNetwork(device, listen, hostPort, confirmCode, listening)) {
        case PairingOutcome::Paired:
            std::cout << "paired: " << device << " now links only with that device\n";
            return;
        case PairingOutcome::DeclinedHere:
            std::cout << "not paired\n";
            throw std::runtime_error("the codes were not confirmed; nothing was pinned");
        case PairingOutcome::DeclinedThere:
            std::cout << "not paired\n";
            throw std::runtime_error(
                "the other device's user did not confirm the code; nothing was pinned");
    }
}

void pairCommand(const Arguments& arguments, const Folders& folders) {
    if (arguments.has("listen") || arguments.has("connect")) {
        const std::string command = "pair --listen or --connect";
        arguments.allowOnly(command, {"device", "listen", "connect"});
        arguments.allowOneOf("listen", "connect");
        pairRemotely(oneDevice(folders, command, true), arguments);
        return;
    }
    arguments.allowOnly("pair", {"device", "insecure", "link-profile", "keylog"});
    needFolders(folders, 2, "pair");
    if (folders.size() > 2) {
        throw UsageError("unexpected argument '" + folders[2] + "'");
    }
    pairLocally(absolute(folders[0]), absolute(folders[1]), sharedLinkArguments(arguments));
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
// --insecure, --link-profile, --keylog.
std::vector<std::string> daemonArguments(const Arguments& arguments) {
    arguments.allowOneOf("listen", "connect");
    std::vector<std::string> forwarded;
    for (const std::string option : {"listen", "connect", "name"}) {
        if (const auto value = arguments.value(option)) {
            forwarded.insert(forwarded.end(), {"--" + option, *value});
        }
    }
    const std::vector<std::string> shared = sharedLinkArguments(arguments);
    forwarded.insert(forwarded.end(), shared.begin(), shared.end());
    return forwarded;
}

void startCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("start", {"device", "listen", "connect", "name", "insecure", "link-profile",
                                  "keylog", "foreground"});
    const std::vector<std::string> forwarded = daemonArguments(arguments);
    const std::string device = oneDevice(folders, "start", true);
    if (arguments.has("foreground")) {
        runDaemonInForeground(device, forwarded);
    }
    startDaemon(device, forwarded);
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

// A whole number of at least `least` from an option's text.
std::uint64_t count(const Arguments& arguments, const std::string& option, std::uint64_t least) {
    const std::string text = arguments.value(option).value_or("");
    if (text.empty() || text.size() > 18 ||
        text.find_first_not_of("0123456789") != std::string::npos || std::stoull(text) < least) {
        throw UsageError("--" + option + " takes a whole number of at least " +
                         std::to_string(least) + ", not '" + text + "'");
    }
    return std::stoull(text);
}

// The trigger of a fault (WHEN), if one was given.
void readTrigger(const Arguments& arguments, wire::LinkFault& fault) {
    arguments.allowOneOf("after-file-bytes", "after-messages");
    if (arguments.has("after-file-bytes")) {
        fault.set_after_file_bytes(count(arguments, "after-file-bytes", 1));
    } else if (arguments.has("after-messages")) {
        if (!arguments.has("channel")) {
            throw UsageError("--after-messages needs --channel");
        }
        fault.set_after_messages(static_cast<std::uint32_t>(
            std::min<std::uint64_t>(count(arguments, "after-messages", 1), UINT32_MAX)));
        fault.set_channel_id(static_cast<std::uint32_t>(
            std::min<std::uint64_t>(count(arguments, "channel", 0), 0xffff)));
    } else if (arguments.has("channel")) {
        throw UsageError("--channel goes with --after-messages");
    }
}

// A fault command: detach, drop or stall, and disarm, which forgets them.
Command faultCommand(const std::string& name, wire::LinkFault::Action action) {
    return [name, action](const Arguments& arguments, const Folders& folders) {
        std::set<std::string> allowed{"device"};
        if (action != wire::LinkFault::DISARM) {
            allowed.insert({"after-file-bytes", "after-messages", "channel"});
        }
        if (action == wire::LinkFault::STALL) {
            allowed.insert("seconds");
        }
        arguments.allowOnly(name, allowed);
        wire::Request request;
        wire::LinkFault& fault = *request.mutable_fault();
        fault.set_action(action);
        if (action == wire::LinkFault::STALL) {
            if (!arguments.has("seconds")) {
                throw UsageError("stall needs --seconds");
            }
            fault.set_stall_ms(static_cast<std::uint32_t>(
                std::min<std::uint64_t>(count(arguments, "seconds", 1), 3600) * 1000));
        }
        readTrigger(arguments, fault);
        const std::string device = oneDevice(folders, name);
        if (control(device, request).result() != wire::RESULT_SUCCESS) {
            throw std::runtime_error("the service of " + device + " has no link to " + name);
        }
    };
}

void storageCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("storage", {"device", "free", "unlimited"});
    arguments.allowOneOf("free", "unlimited");
    if (!arguments.has("free") && !arguments.has("unlimited")) {
        throw UsageError("storage needs --free BYTES or --unlimited");
    }
    const std::optional<std::uint64_t> free =
        arguments.has("free") ? std::optional(count(arguments, "free", 0)) : std::nullopt;
    const std::string file = oneDevice(folders, "storage") + "/" + Kv::Device::kStorageFreeFile;
    if (free) {
        Kv::Device::writeFileAtomically(file, std::to_string(*free) + "\n");
    } else {
        ::unlink(file.c_str());
    }
}

void stopCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("stop", {"device"});
    for (const std::string& folder : folders.empty() ? Folders{Kv::Device::root()} : folders) {
        if (!Kv::Device::isDeviceFolder(folder)) {
            std::cerr << "kv-accessory: no device at " << folder << "\n";
        } else if (!stopDaemon(absolute(folder))) {
            std::cerr << "kv-accessory: no service runs for " << folder << "\n";
        }
    }
}

// Prints the device's trace until the service ends it (or the tool is
// stopped); each line is flushed as it comes.
void traceCommand(const Arguments& arguments, const Folders& folders) {
    arguments.allowOnly("trace", {"device", "json"});
    const bool json = arguments.has("json");
    const std::string device = oneDevice(folders, "trace");
    followTrace(device, [json](const wire::TraceEvent& event) {
        // Flushed per event: whoever follows the trace sees it as it happens.
        std::cout << (json ? traceJson(event) : traceText(event)) << '\n' << std::flush;
        return static_cast<bool>(std::cout);
    });
    std::cerr << "kv-accessory: the service of " << device << " ended the trace\n";
}

// The traces are files of JSON lines, not device folders.
void timelineCommand(const Arguments& arguments, const Folders& /*folders*/) {
    arguments.allowOnly("timeline", {"output"});
    const std::vector<std::string> files(arguments.operands().begin() + 1,
                                         arguments.operands().end());
    if (files.empty()) {
        throw UsageError("timeline needs the traces of one or more devices (trace --json)");
    }
    std::vector<wire::TraceEvent> events;
    for (const std::string& file : files) {
        std::ifstream in(file);
        if (!in) {
            throw std::runtime_error("cannot read " + file);
        }
        for (wire::TraceEvent& event : readTraceJson(in, file)) {
            events.push_back(std::move(event));
        }
    }
    TimelineSummary summary;
    const std::string json = timelineJson(std::move(events), &summary);
    const std::optional<std::string> output = arguments.value("output");
    if (output) {
        Kv::Device::writeFileAtomically(*output, json + "\n");
    } else {
        std::cout << json << "\n";
    }
    std::cerr << "timeline of " << summary.devices << " devices: " << summary.connections
              << " connections, " << summary.transfers << " file transfers, " << summary.messages
              << " messages sent and delivered, " << summary.unpaired << " without their other end"
              << (output ? " in " + *output : std::string()) << "\n";
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
        {"detach", faultCommand("detach", wire::LinkFault::DETACH)},
        {"attach", onOneDevice("attach", [](const std::string& device) { setLink(device, true); })},
        {"drop", faultCommand("drop", wire::LinkFault::DROP)},
        {"stall", faultCommand("stall", wire::LinkFault::STALL)},
        {"disarm", faultCommand("disarm", wire::LinkFault::DISARM)},
        {"storage", storageCommand},
        {"stop", stopCommand},
        {"trace", traceCommand},
        {"timeline", timelineCommand}};
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
                                            {"foreground", Option::Flag},
                                            {"json", Option::Flag},
                                            {"link-profile", Option::WithValue},
                                            {"keylog", Option::WithValue},
                                            {"seconds", Option::WithValue},
                                            {"after-file-bytes", Option::WithValue},
                                            {"after-messages", Option::WithValue},
                                            {"channel", Option::WithValue},
                                            {"free", Option::WithValue},
                                            {"output", Option::WithValue},
                                            {"unlimited", Option::Flag}});
    return commandLine.run(argc, argv, runTool);
}
