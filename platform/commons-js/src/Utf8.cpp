#include "Utf8.h"

namespace WrtDeviceApis {
namespace CommonsJavaScript {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The code point that starts at `units[at]`; `at` moves past it.
char32_t nextCodePoint(const char16_t* units, std::size_t length, std::size_t& at) {
    const char16_t unit = units[at++];
    if (isHighSurrogate(unit) && at < length && isLowSurrogate(units[at])) {
        return 0x10000 + ((char32_t(unit) - 0xD800) << 10) + (char32_t(units[at++]) - 0xDC00);
    }
    return isHighSurrogate(unit) || isLowSurrogate(unit) ? kReplacement : unit;
}

std::size_t utf8Length(char32_t point) {
    return point < 0x80 ? 1 : point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
}

char* putUtf8(char32_t point, char* out) {
    if (point < 0x80) {
        *out++ = static_cast<char>(point);
    } else if (point < 0x800) {
        *out++ = static_cast<char>(0xC0 | (point >> 6));
        *out++ = static_cast<char>(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (point >> 12));
        *out++ = static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (point & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (point >> 18));
        *out++ = static_cast<char>(0x80 | ((point >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (point & 0x3F));
    }
    return out;
}

// The code point of the UTF-8 sequence at `text[at]`; `at` moves past it
// (past one byte only when the sequence is broken).
char32_t nextUtf8(std::string_view text, std::size_t& at) {
    const unsigned char lead = static_cast<unsigned char>(text[at++]);
    if (lead < 0x80) {
        return lead;
    }
    const std::size_t extra = lead >= 0xF0 && lead <= 0xF4 ? 3
                              : lead >= 0xE0               ? 2
                              : lead >= 0xC2               ? 1
                                                           : 0;
    if (extra == 0 || lead > 0xF4 || at + extra > text.size()) {
        return kReplacement;
    }
    char32_t point = lead & (0x3F >> extra);
    for (std::size_t i = 0; i < extra; ++i) {
        const unsigned char next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) {
            return kReplacement;
        }
        point = (point << 6) | (next & 0x3F);
    }
    // Overlong forms, surrogates and points beyond U+10FFFF are not UTF-8.
    if (utf8Length(point) != extra + 1 || (point >= 0xD800 && point <= 0xDFFF) ||
        point > 0x10FFFF) {
        return kReplacement;
    }
    at += extra;
    return point;
}

char16_t* putUtf16(char32_t point, char16_t* out) {
    if (point >= 0x10000) {
        *out++ = static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
        *out++ = static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
    } else {
        *out++ = static_cast<char16_t>(point);
    }
    return out;
}

}  // namespace

std::string utf16ToUtf8(const char16_t* units, std::size_t length) {
    std::size_t ascii = 0;
    while (ascii < length && units[ascii] < 0x80) {
        ++ascii;
    }
    std::size_t size = ascii;
    for (std::size_t at = ascii; at < length;) {
        size += utf8Length(nextCodePoint(units, length, at));
    }
    std::string text;
    text.resize(size);
    char* out = text.data();
    for (std::size_t i = 0; i < ascii; ++i) {
        *out++ = static_cast<char>(units[i]);
    }
    for (std::size_t at = ascii; at < length;) {
        out = putUtf8(nextCodePoint(units, length, at), out);
    }
    return text;
}

std::size_t utf8ToUtf16(std::string_view text, char16_t* out) {
    char16_t* const start = out;
    const std::size_t size = text.size();
    for (std::size_t at = 0; at < size;) {
        const unsigned char byte = static_cast<unsigned char>(text[at]);
        if (byte < 0x80) {
            *out++ = byte;
            ++at;
        } else {
            out = putUtf16(nextUtf8(text, at), out);
        }
    }
    return static_cast<std::size_t>(out - start);
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
