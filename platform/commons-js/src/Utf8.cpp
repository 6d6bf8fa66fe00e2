#include "Utf8.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

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
    return isHighSurrogate(unit) || isLowSurrogate(unit) ? kReplacement : char32_t{unit};
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

// Sixteen bytes of ASCII at once: widened to units, or units narrowed to
// bytes, when every one of them is ASCII (false, writing nothing, when not).
#ifdef __SSE2__
bool widenAscii16(const char* bytes, char16_t* out) {
    const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    if (_mm_movemask_epi8(chunk) != 0) {
        return false;
    }
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(chunk, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(chunk, zero));
    return true;
}

bool allAscii8(__m128i units) {
    const __m128i high = _mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xFF80)));
    return _mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) == 0xFFFF;
}

bool narrowAscii16(const char16_t* units, char* out) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + 8));
    if (!allAscii8(low) || !allAscii8(high)) {
        return false;
    }
    if (out != nullptr) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(low, high));
    }
    return true;
}
#else
bool widenAscii16(const char* bytes, char16_t* out) {
    for (int i = 0; i < 16; ++i) {
        if (static_cast<unsigned char>(bytes[i]) >= 0x80) {
            return false;
        }
    }
    for (int i = 0; i < 16; ++i) {
        out[i] = static_cast<unsigned char>(bytes[i]);
    }
    return true;
}

bool narrowAscii16(const char16_t* units, char* out) {
    for (int i = 0; i < 16; ++i) {
        if (units[i] >= 0x80) {
            return false;
        }
    }
    for (int i = 0; out != nullptr && i < 16; ++i) {
        out[i] = static_cast<char>(units[i]);
    }
    return true;
}
#endif

// The UTF-8 length of the text from `units[at]`, and `at` moved past what
// was measured: sixteen ASCII units (tried only where ASCII starts), or one
// character.
std::size_t measureNext(const char16_t* units, std::size_t length, std::size_t& at) {
    const char16_t unit = units[at];
    if (unit < 0x80) {
        if (at + 16 <= length && narrowAscii16(units + at, nullptr)) {
            at += 16;
            return 16;
        }
        ++at;
        return 1;
    }
    if (unit < 0x800) {
        ++at;
        return 2;
    }
    return utf8Length(nextCodePoint(units, length, at));
}

// Writes the UTF-8 of the text from `units[at]` (as measureNext measures
// it) and returns the end of what it wrote.
char* encodeNext(const char16_t* units, std::size_t length, std::size_t& at, char* out) {
    const char16_t unit = units[at];
    if (unit < 0x80) {
        if (at + 16 <= length && narrowAscii16(units + at, out)) {
            at += 16;
            return out + 16;
        }
        *out = static_cast<char>(unit);
        ++at;
        return out + 1;
    }
    if (unit < 0x800) {
        ++at;
        out[0] = static_cast<char>(0xC0 | (unit >> 6));
        out[1] = static_cast<char>(0x80 | (unit & 0x3F));
        return out + 2;
    }
    return putUtf8(nextCodePoint(units, length, at), out);
}

// Writes the UTF-16 of the text from `text[at]` (sixteen ASCII bytes, tried
// only where ASCII starts, or one character) and returns the end of what it
// wrote.
char16_t* decodeNext(std::string_view text, std::size_t& at, char16_t* out) {
    const unsigned char lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) {
        if (at + 16 <= text.size() && widenAscii16(text.data() + at, out)) {
            at += 16;
            return out + 16;
        }
        *out = lead;
        ++at;
        return out + 1;
    }
    // Two bytes, the commonest other width, need no further checks once the
    // lead is not an overlong one.
    if (lead >= 0xC2 && lead < 0xE0 && at + 1 < text.size() &&
        (static_cast<unsigned char>(text[at + 1]) & 0xC0) == 0x80) {
        *out = static_cast<char16_t>(((lead & 0x1F) << 6) |
                                     (static_cast<unsigned char>(text[at + 1]) & 0x3F));
        at += 2;
        return out + 1;
    }
    return putUtf16(nextUtf8(text, at), out);
}

}  // namespace

// ASCII text, the common case, is narrowed in one pass into a string of
// its size; other text is measured first. Neither fills the string with
// zeros before writing it.
std::string utf16ToUtf8(const char16_t* units, std::size_t length) {
    std::string text;
    bool ascii = true;
    text.resize_and_overwrite(length, [&](char* out, std::size_t) {
        std::size_t at = 0;
        for (; at + 16 <= length; at += 16) {
            if (!narrowAscii16(units + at, out + at)) {
                ascii = false;
                return at;
            }
        }
        for (; at < length; ++at) {
            if (units[at] >= 0x80) {
                ascii = false;
                return at;
            }
            out[at] = static_cast<char>(units[at]);
        }
        return length;
    });
    if (ascii) {
        return text;
    }
    std::size_t size = 0;
    for (std::size_t at = 0; at < length;) {
        size += measureNext(units, length, at);
    }
    text.resize_and_overwrite(size, [&](char* out, std::size_t) {
        for (std::size_t at = 0; at < length;) {
            out = encodeNext(units, length, at, out);
        }
        return size;
    });
    return text;
}

std::size_t utf8ToUtf16(std::string_view text, char16_t* out) {
    char16_t* const start = out;
    for (std::size_t at = 0; at < text.size();) {
        out = decodeNext(text, at, out);
    }
    return static_cast<std::size_t>(out - start);
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
