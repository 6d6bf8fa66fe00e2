#include "ProfileWords.h"

#include <kv-accessory/ServiceProfileReader.h>

#include <cctype>
#include <sstream>
#include <string_view>

namespace Kv {
namespace Accessory {
namespace ProfileParsing {

namespace {

// One word of an attribute value and the number it stands for.
struct Word {
    std::string_view text;
    std::uint8_t value;
};

const Word kServiceLimits[] = {
    {"any", ProfileServiceLimit::kAny},
    {"one_accessory", ProfileServiceLimit::kOneAccessory},
    {"one_peeragent", ProfileServiceLimit::kOnePeerAgent},
};
const Word kDataRates[] = {{"high", ChannelDataRate::kHigh}, {"low", ChannelDataRate::kLow}};
const Word kPriorities[] = {{"high", ChannelPriority::kHigh},
                            {"medium", ChannelPriority::kMedium},
                            {"low", ChannelPriority::kLow}};
const Word kReliabilities[] = {{"enable", ChannelReliability::kEnable},
                               {"disable", ChannelReliability::kDisable}};
const Word kTransports[] = {
    {"transport_bt", ProfileTransport::kBt},
    {"transport_ble", ProfileTransport::kBle},
    {"transport_usb", ProfileTransport::kUsb},
    {"transport_wifi", ProfileTransport::kWifi},
};

// Sets `field` to the value of the lower-cased `text` when the table lists
// that word, and returns whether it did.
template <std::size_t N>
bool readWord(const Word (&words)[N], const char* text, std::uint8_t& field) {
    const std::string word = lowerCase(text);
    for (const Word& candidate : words) {
        if (candidate.text == word) {
            field = candidate.value;
            return true;
        }
    }
    return false;
}

}  // namespace

std::string lowerCase(const char* text) {
    std::string lowered(text);
    for (char& c : lowered) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return lowered;
}

std::uint16_t readNumber(const char* text) {
    // Extraction sets the number to 0 when no digit is read and to the
    // largest value when the digits overflow it.
    std::uint16_t number = 0;
    std::istringstream stream(text);
    stream >> number;
    return number;
}

std::uint8_t roleOf(const char* text) {
    return lowerCase(text) == "provider" ? ProfileRole::kProvider : ProfileRole::kConsumer;
}

std::uint8_t serviceLimitOf(const char* text) {
    std::uint8_t limit = ProfileServiceLimit::kAny;
    readWord(kServiceLimits, text, limit);
    return limit;
}

bool readDataRate(const char* text, std::uint8_t& field) {
    return readWord(kDataRates, text, field);
}

bool readPriority(const char* text, std::uint8_t& field) {
    return readWord(kPriorities, text, field);
}

bool readReliability(const char* text, std::uint8_t& field) {
    return readWord(kReliabilities, text, field);
}

bool readTransport(const char* text, std::uint8_t& field) {
    return readWord(kTransports, text, field);
}

}  // namespace ProfileParsing
}  // namespace Accessory
}  // namespace Kv
