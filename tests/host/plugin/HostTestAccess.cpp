#include "HostTestAccess.h"

#include <JSWebAPIErrorFactory.h>

#include <Commons/Exception.h>
#include <Commons/WrtAccess/Privileges.h>
#include <Commons/WrtAccess/WrtAccess.h>
#include <Logger.h>
#include <dpl/singleton.h>

#include <exception>
#include <map>

namespace DeviceAPI {
namespace HostTest {

using DeviceAPI::Common::JSWebAPIErrorFactory;
using WrtDeviceApis::Commons::AceDeviceCapability;
using WrtDeviceApis::Commons::AceFeature;
using WrtDeviceApis::Commons::AceFunction;
using WrtDeviceApis::Commons::WrtAccess;

namespace {

typedef DPL::Singleton<WrtAccess> WrtAccessSingleton;

// The access-control table: one record per guarded function, each needing
// the accessory privilege and using the accessory link.
std::map<std::string, AceFunction> makeFunctionTable() {
    AceFunction guarded{kGuardedFunctionId, {}, {}};
    WrtDeviceApis::Commons::aceAddApiFeature(
        AceFeature{WrtDeviceApis::Commons::Privileges::ACCESSORY}, guarded.features);
    WrtDeviceApis::Commons::aceAddDeviceCap(AceDeviceCapability{"kvplink", {}},
                                            guarded.deviceCapabilities);
    return {{kGuardedFunctionId, guarded}};
}

const std::map<std::string, AceFunction> kFunctionTable = makeFunctionTable();

}  // namespace

AceFunction getHostTestFunctionData(const std::string& functionId) {
    auto found = kFunctionTable.find(functionId);
    if (found == kFunctionTable.end()) {
        ThrowMsg(WrtDeviceApis::Commons::NotFoundException,
                 "No access-control record for " << functionId);
    }
    return found->second;
}

AccessOutcome checkAccess(const std::string& functionId) {
    switch (
        WrtAccessSingleton::Instance().checkAccessControl(getHostTestFunctionData(functionId))) {
        case WrtAccess::CHECK_ACCESS_PRIVILEGE_DENIED:
            return AccessOutcome::Denied;
        case WrtAccess::CHECK_ACCESS_PRIVACY_DENIED:
            return AccessOutcome::BlockedByUser;
        case WrtAccess::CHECK_ACCESS_INTERNAL_ERROR:
            return AccessOutcome::InternalError;
        default:
            return AccessOutcome::Granted;
    }
}

bool postAccessError(JSContextRef context, JSValueRef* exception, AccessOutcome outcome) {
    switch (outcome) {
        case AccessOutcome::Denied:
            JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::SECURITY_ERROR,
                "The application does not have the privilege to call this method.");
            return true;
        case AccessOutcome::BlockedByUser:
            JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::SECURITY_ERROR,
                "The user blocks an application from calling this method.");
            return true;
        case AccessOutcome::InternalError:
            JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error");
            return true;
        case AccessOutcome::Granted:
            break;
    }
    return false;
}

void startAccessControl(int widgetId) {
    try {
        WrtAccessSingleton::Instance().initialize(widgetId);
    } catch (const std::exception& error) {
        LoggerE("Access control is not available for widget " << widgetId << ": " << error.what());
    }
}

void stopAccessControl(int widgetId) {
    try {
        WrtAccessSingleton::Instance().deinitialize(widgetId);
    } catch (const std::exception& error) {
        LoggerW("Access control was not initialised for widget " << widgetId << ": "
                                                                 << error.what());
    }
}

}  // namespace HostTest
}  // namespace DeviceAPI
