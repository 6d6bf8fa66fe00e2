#include "plugin_config.h"

#include <Commons/Exception.h>
#include <Commons/WrtAccess/Privileges.h>
#include <Commons/WrtAccess/WrtAccess.h>
#include <JSWebAPIErrorFactory.h>
#include <dpl/singleton.h>

#include <map>

namespace DeviceAPI {
namespace KVP {

using DeviceAPI::Common::JSWebAPIErrorFactory;
using WrtDeviceApis::Commons::AceDeviceCapability;
using WrtDeviceApis::Commons::AceDeviceCaps;
using WrtDeviceApis::Commons::AceFeature;
using WrtDeviceApis::Commons::AceFeatures;
using WrtDeviceApis::Commons::AceFunction;
using WrtDeviceApis::Commons::WrtAccess;

const char* const KVP_FUNCTION_API_REQUEST_KV_AGENT = "KvManager.requestKvAgent";
const char* const KVP_FUNCTION_API_SET_DEVICE_STATUS_LISTENER = "KvManager.setDeviceStatusListener";

namespace {

const char* const KVP_DEVICE_CAP_LINK = "kvplink";

typedef std::map<std::string, AceFunction> FunctionMapping;

AceFunction makeFunction(const std::string& functionId, const AceFeatures& features,
                         const AceDeviceCaps& capabilities) {
    AceFunction function;
    function.name = functionId;
    function.features = features;
    function.deviceCapabilities = capabilities;
    return function;
}

FunctionMapping createKvpFunctions() {
    AceDeviceCaps capabilities;
    WrtDeviceApis::Commons::aceAddDeviceCap(AceDeviceCapability{KVP_DEVICE_CAP_LINK, {}},
                                            capabilities);
    AceFeatures features;
    WrtDeviceApis::Commons::aceAddApiFeature(
        AceFeature{WrtDeviceApis::Commons::Privileges::ACCESSORY}, features);

    FunctionMapping functions;
    for (const char* id :
         {KVP_FUNCTION_API_REQUEST_KV_AGENT, KVP_FUNCTION_API_SET_DEVICE_STATUS_LISTENER}) {
        functions.emplace(id, makeFunction(id, features, capabilities));
    }
    return functions;
}

// Built when the library is loaded, destroyed when it is unloaded.
const FunctionMapping kvpFunctions = createKvpFunctions();

}  // namespace

AceFunction getKVPFunctionData(const std::string& functionId) {
    const auto found = kvpFunctions.find(functionId);
    if (found == kvpFunctions.end()) {
        ThrowMsg(WrtDeviceApis::Commons::InvalidArgumentException,
                 "Function with id " << functionId << "not found");
    }
    return found->second;
}

KvAccessOutcome checkKvAccess(const std::string& functionId) {
    const AceFunction function = getKVPFunctionData(functionId);
    switch (DPL::Singleton<WrtAccess>::Instance().checkAccessControl(function)) {
        case WrtAccess::CHECK_ACCESS_PRIVILEGE_DENIED:
            return KV_ACCESS_DENIED;
        case WrtAccess::CHECK_ACCESS_PRIVACY_DENIED:
            return KV_ACCESS_BLOCKED_BY_USER;
        case WrtAccess::CHECK_ACCESS_INTERNAL_ERROR:
            return KV_ACCESS_INTERNAL_ERROR;
        default:
            return KV_ACCESS_GRANTED;
    }
}

bool kvAccessGranted(JSContextRef context, const std::string& functionId, JSValueRef* exception) {
    switch (checkKvAccess(functionId)) {
        case KV_ACCESS_GRANTED:
            return true;
        case KV_ACCESS_DENIED:
            JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::SECURITY_ERROR,
                "The application does not have the privilege to call this method.");
            return false;
        case KV_ACCESS_BLOCKED_BY_USER:
            JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::SECURITY_ERROR,
                "The user blocks an application from calling this method.");
            return false;
        default:
            JSWebAPIErrorFactory::postException(
                context, exception, JSWebAPIErrorFactory::UNKNOWN_ERROR, "Internal error");
            return false;
    }
}

}  // namespace KVP
}  // namespace DeviceAPI
