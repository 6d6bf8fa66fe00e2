// The command line of kv-accessoryd.
#ifndef KV_ACCESSORYD_OPTIONS_H
#define KV_ACCESSORYD_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

struct DaemonOptions {
    std::string device;  // empty: KV_DEVICE or the default device
    std::string name;    // empty: the device folder's name
    bool listen = false;
    std::string host;
    unsigned short port = 0;
    bool linkGiven = false;
    bool insecure = false;  // a plain TCP link: nobody authenticated, nothing encrypted
};

extern const char* const kDaemonUsage;

// Parses the arguments after the program name. Throws std::invalid_argument
// with the reason when they are wrong.
DaemonOptions parseDaemonOptions(const std::vector<std::string>& arguments);

// Splits "HOST:PORT". Throws std::invalid_argument when it is not that.
std::pair<std::string, unsigned short> splitHostPort(const std::string& text);

}  // namespace Accessory
}  // namespace Kv

#endif
