// How the bridge calls the client library: every call is logged before
// (">>>>>> ::name()") and after (">>>>>> ::name returns : result"), and a
// result outside the library's known set is logged as a warning.
#ifndef KVP_KV_CLIENT_CALL_H
#define KVP_KV_CLIENT_CALL_H

#include <functional>

namespace DeviceAPI {
namespace KVP {
namespace KvClientCall {

// Runs `function`, a call of the library function `name`, between its logs.
int call(const char* name, const std::function<int()>& function);

// True for 0 and the known failures -2, -1 and 1. Any other value logs
// "<what> returns wrong value : <result>" at warning level and is false.
bool isKnownResult(const char* what, int result);

}  // namespace KvClientCall
}  // namespace KVP
}  // namespace DeviceAPI

#endif
