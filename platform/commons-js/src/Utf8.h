// UTF-8 to and from the UTF-16 code units that script strings are made of,
// written straight into the target buffer. The engine's own UTF-8 calls zero
// a buffer of three bytes per character and measure the text twice; these
// write each character once, with a fast path for ASCII. Malformed input (an
// unpaired surrogate, a broken UTF-8 sequence) becomes U+FFFD.
#ifndef KV_PLATFORM_COMMONS_JS_UTF8_H
#define KV_PLATFORM_COMMONS_JS_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

std::string utf16ToUtf8(const char16_t* units, std::size_t length);

// Writes the UTF-16 form of `text` to `out`, which has room for
// `text.size()` units (never more are needed), and returns how many it wrote.
std::size_t utf8ToUtf16(std::string_view text, char16_t* out);

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
