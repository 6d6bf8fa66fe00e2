// The values of a service-profile file's attributes: the words that some
// attributes take, compared without regard to case, and the numbers that
// others hold.
#ifndef KV_ACCESSORY_PROFILE_WORDS_H
#define KV_ACCESSORY_PROFILE_WORDS_H

#include <cstdint>
#include <string>

namespace Kv {
namespace Accessory {
namespace ProfileParsing {

// `text` lower-cased byte by byte, as the words are compared.
std::string lowerCase(const char* text);

// Reads an unsigned 16-bit decimal the way stream extraction does: leading
// white space is skipped, reading stops at the first character that is not a
// digit, a text without digits gives 0 and a value above 65535 gives 65535.
std::uint16_t readNumber(const char* text);

// The role that a "role" value names: provider for "provider" in any case,
// consumer for any other value.
std::uint8_t roleOf(const char* text);

// The limit that a "serviceLimit" value names; any for an unknown word.
std::uint8_t serviceLimitOf(const char* text);

// Each of these sets `field` to the value that the word `text` names and
// returns true; for an unknown word it leaves `field` as it was and returns
// false.
bool readDataRate(const char* text, std::uint8_t& field);
bool readPriority(const char* text, std::uint8_t& field);
bool readReliability(const char* text, std::uint8_t& field);
bool readTransport(const char* text, std::uint8_t& field);

}  // namespace ProfileParsing
}  // namespace Accessory
}  // namespace Kv

#endif
