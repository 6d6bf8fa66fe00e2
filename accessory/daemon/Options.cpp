#include "Options.h"

#include <stdexcept>
#include <tuple>

namespace Kv {
namespace Accessory {

const char* const kDaemonUsage =
    "usage: kv-accessoryd [--device DIR] [--name NAME] [--listen HOST:PORT | --connect "
    "HOST:PORT] [--insecure]\n";

std::pair<std::string, unsigned short> splitHostPort(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) {
        throw std::invalid_argument("expected HOST:PORT, got \"" + text + "\"");
    }
    const std::string port = text.substr(colon + 1);
    if (port.find_first_not_of("0123456789") != std::string::npos || port.size() > 5 ||
        std::stoul(port) > 65535) {
        throw std::invalid_argument("bad port in \"" + text + "\"");
    }
    return {text.substr(0, colon), static_cast<unsigned short>(std::stoul(port))};
}

DaemonOptions parseDaemonOptions(const std::vector<std::string>& arguments) {
    DaemonOptions options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--insecure") {
            options.insecure = true;
            continue;
        }
        if (i + 1 >= arguments.size()) {
            throw std::invalid_argument("missing value or unknown option: " + option);
        }
        const std::string& value = arguments[++i];
        if (option == "--device") {
            options.device = value;
        } else if (option == "--name") {
            options.name = value;
        } else if (option == "--listen" || option == "--connect") {
            if (options.linkGiven) {
                throw std::invalid_argument("give one of --listen and --connect");
            }
            options.linkGiven = true;
            options.listen = option == "--listen";
            std::tie(options.host, options.port) = splitHostPort(value);
        } else {
            throw std::invalid_argument("unknown option: " + option);
        }
    }
    return options;
}

}  // namespace Accessory
}  // namespace Kv
