#include <JSWebAPIErrorFactory.h>

#include <JSWebAPIError.h>

namespace DeviceAPI {
namespace Common {

const std::string JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR = "TypeMismatchError";
const std::string JSWebAPIErrorFactory::INVALID_VALUES_ERROR = "InvalidValuesError";
const std::string JSWebAPIErrorFactory::SECURITY_ERROR = "SecurityError";
const std::string JSWebAPIErrorFactory::IO_ERROR = "IOError";
const std::string JSWebAPIErrorFactory::UNKNOWN_ERROR = "UnknownError";
const std::string JSWebAPIErrorFactory::NOT_FOUND_ERROR = "NotFoundError";
const std::string JSWebAPIErrorFactory::NOT_SUPPORTED_ERROR = "NotSupportedError";
const std::string JSWebAPIErrorFactory::INVALID_STATE_ERROR = "InvalidStateError";
const std::string JSWebAPIErrorFactory::SERVICE_NOT_AVAILABLE_ERROR = "ServiceNotAvailableError";
const std::string JSWebAPIErrorFactory::NETWORK_ERROR = "NetworkError";
const std::string JSWebAPIErrorFactory::ABORT_ERROR = "AbortError";
const std::string JSWebAPIErrorFactory::QUOTA_EXCEEDED_ERROR = "QuotaExceededError";
const std::string JSWebAPIErrorFactory::TIMEOUT_ERROR = "TimeoutError";

JSObjectRef JSWebAPIErrorFactory::makeErrorObject(JSContextRef context, const std::string& name,
                                                  const std::string& message) {
    return makeErrorObject(context, BasePlatformException(name.c_str(), message.c_str()));
}

JSObjectRef JSWebAPIErrorFactory::makeErrorObject(JSContextRef context,
                                                  const BasePlatformException& error) {
    return JSWebAPIError::makeJSWebAPIError(context, error);
}

JSObjectRef JSWebAPIErrorFactory::postException(JSContextRef context, JSValueRef* exception,
                                                const std::string& name,
                                                const std::string& message) {
    return postException(context, exception, BasePlatformException(name.c_str(), message.c_str()));
}

JSObjectRef JSWebAPIErrorFactory::postException(JSContextRef context, JSValueRef* exception,
                                                const BasePlatformException& error) {
    JSObjectRef object = makeErrorObject(context, error);
    if (exception != nullptr) {
        *exception = object;
    }
    return object;
}

}  // namespace Common
}  // namespace DeviceAPI
