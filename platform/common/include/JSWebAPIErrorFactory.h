// Makes WebAPIError objects (see JSWebAPIError.h) for error callbacks and
// thrown script exceptions. The names below are the ones the device APIs
// use; any other name is taken as a custom name (code 0).
//   return JSWebAPIErrorFactory::postException(context, exception,
//              JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR, "Wrong object");
#ifndef KV_PLATFORM_COMMON_JS_WEB_API_ERROR_FACTORY_H
#define KV_PLATFORM_COMMON_JS_WEB_API_ERROR_FACTORY_H

#include <PlatformException.h>

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace DeviceAPI {
namespace Common {

class JSWebAPIErrorFactory {
public:
    JSWebAPIErrorFactory() = delete;

    static const std::string TYPE_MISMATCH_ERROR;
    static const std::string INVALID_VALUES_ERROR;
    static const std::string SECURITY_ERROR;
    static const std::string IO_ERROR;
    static const std::string UNKNOWN_ERROR;
    static const std::string NOT_FOUND_ERROR;
    static const std::string NOT_SUPPORTED_ERROR;
    static const std::string INVALID_STATE_ERROR;
    static const std::string SERVICE_NOT_AVAILABLE_ERROR;
    static const std::string NETWORK_ERROR;
    static const std::string ABORT_ERROR;
    static const std::string QUOTA_EXCEEDED_ERROR;
    static const std::string TIMEOUT_ERROR;

    // A new error object with this name and message.
    static JSObjectRef makeErrorObject(JSContextRef context, const std::string& name,
                                       const std::string& message = "");
    static JSObjectRef makeErrorObject(JSContextRef context, const BasePlatformException& error);

    // Makes the error object, stores it in `*exception` when `exception` is
    // not null (so the script method that returns throws it) and returns it.
    static JSObjectRef postException(JSContextRef context, JSValueRef* exception,
                                     const std::string& name, const std::string& message = "");
    static JSObjectRef postException(JSContextRef context, JSValueRef* exception,
                                     const BasePlatformException& error);
};

}  // namespace Common
}  // namespace DeviceAPI

#endif
