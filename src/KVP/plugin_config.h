// The plug-in's access-control table and the access check of its guarded
// script methods. The table is built when the library is loaded: one device
// capability ("kvplink"), one API feature (the accessory privilege) and one
// record per guarded function id.
#ifndef KVP_PLUGIN_CONFIG_H
#define KVP_PLUGIN_CONFIG_H

#include <Commons/FunctionDefinition.h>

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace DeviceAPI {
namespace KVP {

extern const char* const KVP_FUNCTION_API_REQUEST_KV_AGENT;
extern const char* const KVP_FUNCTION_API_SET_DEVICE_STATUS_LISTENER;

// The outcome of an access check; the runtime's own answers 1 to 3 are kept,
// every other answer counts as granted.
enum KvAccessOutcome {
    KV_ACCESS_GRANTED = 0,
    KV_ACCESS_DENIED = 1,
    KV_ACCESS_BLOCKED_BY_USER = 2,
    KV_ACCESS_INTERNAL_ERROR = 3,
};

// A copy of the table's record for `functionId`. Throws
// InvalidArgumentException "Function with id <id>not found" for any other id.
WrtDeviceApis::Commons::AceFunction getKVPFunctionData(const std::string& functionId);

// Asks the runtime's access control about `functionId`.
KvAccessOutcome checkKvAccess(const std::string& functionId);

// The access check of a script method: true when the call may go on;
// otherwise the script error of the outcome is stored in `*exception`.
bool kvAccessGranted(JSContextRef context, const std::string& functionId, JSValueRef* exception);

}  // namespace KVP
}  // namespace DeviceAPI

#endif
