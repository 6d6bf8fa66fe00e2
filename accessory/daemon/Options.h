// The command line of kv-accessoryd.
#ifndef KV_ACCESSORYD_OPTIONS_H
#define KV_ACCESSORYD_OPTIONS_H

#include <kv-cli/CommandLine.h>

#include <string>
#include <utility>

namespace Kv {
namespace Accessory {

struct DaemonOptions {
    std::string device;  // empty: KV_DEVICE or the default device
    std::string name;    // empty: the device folder's name
    bool listen = false;
    std::string host;
    unsigned short port = 0;
    bool linkGiven = false;
    bool insecure = false;    // a plain TCP link: nobody authenticated, nothing encrypted
    std::string linkProfile;  // the name of a known link profile
    std::string keyLog;       // non-empty: the file the link's TLS secrets are appended to
};

// The daemon's options and usage text.
const Cli::CommandLine& daemonCommandLine();

// Reads what the command line gave. Throws Cli::UsageError when it is wrong.
DaemonOptions readDaemonOptions(const Cli::Arguments& arguments);

// Splits "HOST:PORT". Throws Cli::UsageError when it is not that.
std::pair<std::string, unsigned short> splitHostPort(const std::string& text);

}  // namespace Accessory
}  // namespace Kv

#endif
