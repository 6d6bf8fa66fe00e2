// Delivers a notification of the client library's two tables to whoever
// registered them, by the table field's name:
//   deliver("onPeerAgent", {agentId, peer, status})
// The arguments follow the callback's own parameters; a peer is a plain
// object (see Arguments::peer) or null; a data indication takes its length
// from the data string.
#ifndef KV_TESTS_PLUGIN_NOTIFICATIONS_H
#define KV_TESTS_PLUGIN_NOTIFICATIONS_H

#include "ScriptValues.h"

#include <string>

namespace KvDoublePlugin {

// Throws std::invalid_argument for an unknown name, a table entry that was
// not registered, or arguments of the wrong kind. `first` is the index of the
// notification's first argument in `arguments`.
void deliver(const std::string& name, const Arguments& arguments, size_t first);

}  // namespace KvDoublePlugin

#endif
