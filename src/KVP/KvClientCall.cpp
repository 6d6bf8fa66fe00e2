#include "KvClientCall.h"

#include <Logger.h>

namespace DeviceAPI {
namespace KVP {
namespace KvClientCall {

int call(const char* name, const std::function<int()>& function) {
    LoggerI(">>>>>> ::" << name << "()");
    const int result = function();
    LoggerI(">>>>>> ::" << name << " returns : " << result);
    return result;
}

bool isKnownResult(const char* what, int result) {
    if (result >= kLowestResult && result <= kHighestResult) {
        return true;
    }
    LoggerW(what << " returns wrong value : " << result);
    return false;
}

}  // namespace KvClientCall
}  // namespace KVP
}  // namespace DeviceAPI
