// Access control of the host test plug-in. Its guarded function is checked
// the way the accessory plug-in checks its guarded methods: the function's
// access-control record names the accessory privilege as its feature, the
// runtime's answer is reduced to four outcomes, and every refused outcome
// becomes a script error.
#ifndef KV_TESTS_HOST_PLUGIN_HOST_TEST_ACCESS_H
#define KV_TESTS_HOST_PLUGIN_HOST_TEST_ACCESS_H

#include <Commons/FunctionDefinition.h>

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace DeviceAPI {
namespace HostTest {

// The function id of HostTest.guarded in the access-control table.
inline constexpr char kGuardedFunctionId[] = "HostTest.guarded";

enum class AccessOutcome {
    Granted = 0,
    Denied = 1,
    BlockedByUser = 2,
    InternalError = 3,
};

// A copy of the access-control record of `functionId`. Throws
// WrtDeviceApis::Commons::NotFoundException for an id the table lacks.
WrtDeviceApis::Commons::AceFunction getHostTestFunctionData(const std::string& functionId);

// Asks the runtime's access control about `functionId`. Answers 1, 2 and 3
// are passed on; every other answer counts as granted.
AccessOutcome checkAccess(const std::string& functionId);

// For a refused outcome, stores its script error in `*exception` and
// returns true; returns false for Granted. Denied and BlockedByUser are
// SecurityErrors, InternalError is an UnknownError "Internal error".
bool postAccessError(JSContextRef context, JSValueRef* exception, AccessOutcome outcome);

// The widget hooks' part: initialise and de-initialise the runtime's access
// control for the widget. Failures are logged, never thrown.
void startAccessControl(int widgetId);
void stopAccessControl(int widgetId);

}  // namespace HostTest
}  // namespace DeviceAPI

#endif
