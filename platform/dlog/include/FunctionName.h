// The name of the function that a line of code is in, for log lines and
// exceptions. __func__ says "operator()" inside a lambda; the compiler's
// pretty signature names the enclosing function first, so the name is read
// from it: the last word before the first parameter list outside angle
// brackets ("equals" for "JSValueRef KVP::JSKvPeerAgent::equals(...)::<lambda()>").
#ifndef KV_PLATFORM_FUNCTION_NAME_H
#define KV_PLATFORM_FUNCTION_NAME_H

#include <cstddef>
#include <string_view>

namespace Kv {
namespace Log {

constexpr bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '~';
}

constexpr std::string_view functionName(std::string_view pretty) {
    int angleDepth = 0;
    for (std::size_t i = 0; i < pretty.size(); ++i) {
        const char c = pretty[i];
        if (c == '<') {
            ++angleDepth;
        } else if (c == '>' && angleDepth > 0) {
            --angleDepth;
        } else if (c == '(' && angleDepth == 0) {
            std::size_t start = i;
            while (start > 0 && isNameCharacter(pretty[start - 1])) {
                --start;
            }
            if (start < i) {
                return pretty.substr(start, i - start);
            }
        }
    }
    return pretty;
}

}  // namespace Log
}  // namespace Kv

// The enclosing function's name as a std::string_view (not terminated).
#define KV_FUNCTION_NAME (::Kv::Log::functionName(__PRETTY_FUNCTION__))

#endif
