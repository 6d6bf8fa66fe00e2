#include <kv-runtime/ScriptError.h>

#include <kv-runtime/JsValues.h>

namespace Kv {
namespace Runtime {

namespace {

int lineOf(JSContextRef context, JSObjectRef error) {
    JSValueRef line = getProperty(context, error, "line");
    if (!JSValueIsNumber(context, line)) {
        return 0;
    }
    return static_cast<int>(JSValueToNumber(context, line, nullptr));
}

std::string sourceOf(JSContextRef context, JSObjectRef error) {
    JSValueRef source = getProperty(context, error, "sourceURL");
    return JSValueIsString(context, source) ? toStdString(context, source) : std::string();
}

}  // namespace

ScriptErrorInfo describeException(JSContextRef context, JSValueRef exception,
                                  const std::string& fallbackFile) {
    ScriptErrorInfo info;
    info.message = toStdString(context, exception);
    info.file = fallbackFile;
    if (JSValueIsObject(context, exception)) {
        JSObjectRef error = JSValueToObject(context, exception, nullptr);
        info.line = lineOf(context, error);
        const std::string source = sourceOf(context, error);
        if (!source.empty()) {
            info.file = source;
        }
    }
    return info;
}

std::string formatUncaught(const ScriptErrorInfo& info) {
    std::string text = "Uncaught " + info.message;
    if (info.line > 0) {
        text += " at line " + std::to_string(info.line);
    }
    return text + " in " + info.file;
}

}  // namespace Runtime
}  // namespace Kv
