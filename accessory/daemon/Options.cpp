#include "Options.h"

#include <kv-accessory/LinkProfiles.h>

#include <tuple>

namespace Kv {
namespace Accessory {

namespace {

using Cli::Option;
using Cli::UsageError;

const char kUsage[] =
    "usage: kv-accessoryd [--device DIR] [--name NAME] [--listen HOST:PORT | --connect "
    "HOST:PORT] [--insecure] [--link-profile NAME]\n"
    "                     [--keylog FILE]\n"
    "\n"
    "  --device DIR         the device (default: $KV_DEVICE, else the default device)\n"
    "  --name NAME          the device name that the linked device sees (default: the\n"
    "                       device folder's name)\n"
    "  --listen HOST:PORT   wait for the paired device's link there (port 0: any)\n"
    "  --connect HOST:PORT  link to the paired device there\n"
    "  --insecure           link over plain TCP: nobody authenticated, nothing encrypted\n"
    "  --link-profile NAME  the kind of link to emulate: unlimited (the default), wifi,\n"
    "                       usb, bt or ble (bandwidth, latency, largest send, transport)\n"
    "  --keylog FILE        append the TLS secrets of the link to FILE (made 0600), so that\n"
    "                       a capture of the link can be decrypted; whoever reads FILE\n"
    "                       reads everything on the link: for debugging only\n";

// --keylog: a file, and a link over TLS whose secrets it can hold.
void readKeyLog(const Cli::Arguments& arguments, DaemonOptions& options) {
    options.keyLog = arguments.value("keylog").value_or("");
    if (arguments.has("keylog") && options.keyLog.empty()) {
        throw UsageError("--keylog needs a file");
    }
    if (!options.keyLog.empty() && options.insecure) {
        throw UsageError("--keylog needs a TLS link: an insecure link has no secrets to log");
    }
}

void readLink(const Cli::Arguments& arguments, DaemonOptions& options) {
    arguments.allowOneOf("listen", "connect");
    const auto listen = arguments.value("listen");
    const auto connect = arguments.value("connect");
    if (listen || connect) {
        options.linkGiven = true;
        options.listen = listen.has_value();
        std::tie(options.host, options.port) = splitHostPort(listen ? *listen : *connect);
    }
}

}  // namespace

const Cli::CommandLine& daemonCommandLine() {
    static const Cli::CommandLine commandLine("kv-accessoryd", kUsage,
                                              {Cli::kDeviceOption,
                                               {"name", Option::WithValue},
                                               {"listen", Option::WithValue},
                                               {"connect", Option::WithValue},
                                               {"insecure", Option::Flag},
                                               {"link-profile", Option::WithValue},
                                               {"keylog", Option::WithValue}});
    return commandLine;
}

std::pair<std::string, unsigned short> splitHostPort(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) {
        throw UsageError("expected HOST:PORT, got \"" + text + "\"");
    }
    const std::string port = text.substr(colon + 1);
    if (port.find_first_not_of("0123456789") != std::string::npos || port.size() > 5 ||
        std::stoul(port) > 65535) {
        throw UsageError("bad port in \"" + text + "\"");
    }
    return {text.substr(0, colon), static_cast<unsigned short>(std::stoul(port))};
}

DaemonOptions readDaemonOptions(const Cli::Arguments& arguments) {
    arguments.allowOperands(0);
    DaemonOptions options;
    options.device = arguments.value("device").value_or("");
    options.name = arguments.value("name").value_or("");
    options.insecure = arguments.has("insecure");
    options.linkProfile = arguments.value("link-profile").value_or(kDefaultLinkProfile);
    if (findLinkProfile(options.linkProfile) == nullptr) {
        throw UsageError("unknown link profile '" + options.linkProfile + "' (" +
                         linkProfileNames() + ")");
    }
    readLink(arguments, options);
    readKeyLog(arguments, options);
    return options;
}

}  // namespace Accessory
}  // namespace Kv
