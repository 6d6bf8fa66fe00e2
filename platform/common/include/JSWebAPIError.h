// The script class "WebAPIError": the error objects that device API methods
// throw and pass to error callbacks. Each has the read-only properties
// `name`, `message` and `code` (the legacy DOM exception number of the name,
// 0 for names that have none) and a `toString()` that gives
// "name: message" ("name" alone when the message is empty). Its prototype
// is the context's Error.prototype, so `e instanceof Error` holds, and
// `isObjectOfClass` tells it apart from the script's own errors.
#ifndef KV_PLATFORM_COMMON_JS_WEB_API_ERROR_H
#define KV_PLATFORM_COMMON_JS_WEB_API_ERROR_H

#include <PlatformException.h>

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace DeviceAPI {
namespace Common {

class JSWebAPIError {
public:
    JSWebAPIError() = delete;

    static JSClassRef getClassRef();
    static const JSClassDefinition* getClassInfo();
    static bool isObjectOfClass(JSContextRef context, JSValueRef value);

    // A new error object with the exception's name and message.
    static JSObjectRef makeJSWebAPIError(JSContextRef context, const BasePlatformException& error);

    // The legacy code of an error name: the DOM exception number where the
    // name has one, else 0.
    static int convertToErrorCode(const std::string& name);
};

}  // namespace Common
}  // namespace DeviceAPI

#endif
