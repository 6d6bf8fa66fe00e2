// The engine's remote inspector for --inspect: an HTTP server on a free
// loopback port, from which a browser on the same machine opens the page's
// developer tools. It must be chosen before the engine starts.
#ifndef KV_PAGE_INSPECTOR_SERVER_H
#define KV_PAGE_INSPECTOR_SERVER_H

#include <string>

namespace Kv {
namespace Page {

// Picks a free loopback port, tells the engine to serve its inspector there
// and returns the address to open ("http://127.0.0.1:PORT/"). Throws
// std::runtime_error when no port can be had.
std::string startInspectorServer();

}  // namespace Page
}  // namespace Kv

#endif
