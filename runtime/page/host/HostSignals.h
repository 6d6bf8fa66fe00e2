// SIGINT, SIGTERM and SIGQUIT end a page app as they end a script app (exit
// codes 130, 143, 131): the handler only writes the signal's number to a
// pipe, which the GLib loop reads.
#ifndef KV_PAGE_HOST_SIGNALS_H
#define KV_PAGE_HOST_SIGNALS_H

#include <kv-runtime/ExitControl.h>

#include <functional>

namespace Kv {
namespace Page {

// Calls `stop` on the main loop with the reason of each signal that comes.
void watchStopSignals(std::function<void(Runtime::ExitReason)> stop);

}  // namespace Page
}  // namespace Kv

#endif
