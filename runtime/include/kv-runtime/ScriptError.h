// Describing a script exception for the "Uncaught ..." report.
#ifndef KV_RUNTIME_SCRIPT_ERROR_H
#define KV_RUNTIME_SCRIPT_ERROR_H

#include <JavaScriptCore/JavaScript.h>

#include <string>

namespace Kv {
namespace Runtime {

struct ScriptErrorInfo {
    std::string message;  // String(exception), e.g. "TypeError: x is not a function"
    int line = 0;         // 0 when the thrown value carries no position
    std::string file;     // the script the error came from
};

// Reads the message and, for error objects, the line and source file the
// engine stamped on them; `fallbackFile` stands in when there is no file.
ScriptErrorInfo describeException(JSContextRef context, JSValueRef exception,
                                  const std::string& fallbackFile);

// "Uncaught <message> at line <n> in <file>"; without a line, "Uncaught
// <message> in <file>".
std::string formatUncaught(const ScriptErrorInfo& info);

}  // namespace Runtime
}  // namespace Kv

#endif
