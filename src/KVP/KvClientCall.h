// How the bridge calls the client library: every call is logged before
// (">>>>>> ::name()") and after (">>>>>> ::name returns : result"), and a
// result outside the library's known set is logged as a warning.
#ifndef KVP_KV_CLIENT_CALL_H
#define KVP_KV_CLIENT_CALL_H

#include <kvp-client-stub-api.h>

#include <functional>

namespace DeviceAPI {
namespace KVP {
namespace KvClientCall {

// Runs `function`, a call of the library function `name`, between its logs.
int call(const char* name, const std::function<int()>& function);

// The library's answers (enum kvp_result): success and its known failures
// lie between these two.
inline constexpr int kLowestResult = KVP_ERROR_INVALID;
inline constexpr int kHighestResult = KVP_ERROR_NO_DEVICE;
static_assert(kLowestResult <= KVP_SUCCESS && KVP_SUCCESS <= kHighestResult &&
                  kLowestResult <= KVP_ERROR_GENERAL && KVP_ERROR_GENERAL <= kHighestResult,
              "every kvp_result lies in the known range");

// The highest answer of sendData and sendSecureData that the bridge takes
// without logging it as wrong.
inline constexpr int kHighestSendResult = 5;

// True for success and the known failures. Any other value logs
// "<what> returns wrong value : <result>" at warning level and is false.
bool isKnownResult(const char* what, int result);

}  // namespace KvClientCall
}  // namespace KVP
}  // namespace DeviceAPI

#endif
