// Reading an app's service-profile file: the XML file in which an app
// declares the accessory services it offers or uses. Both the plug-in, which
// makes one local agent of each profile, and the accessory daemon, which
// registers those agents, read the file through this one reader, so that
// they always agree on what the file says.
//
// The file is read with SAX callbacks for element start and element end only.
// Text, comments, processing instructions and every element or attribute not
// named below are ignored, and nesting is not verified. Element and attribute
// names are matched exactly and case-sensitively. Attribute values that are
// compared against a word are first lower-cased byte by byte, so "Provider"
// and "TRANSPORT_BT" match; the id, name and version of a profile are kept
// as written.
//
// Numbers are read as an unsigned 16-bit decimal by stream extraction:
// leading white space is skipped, reading stops at the first character that
// is not a digit, a text without digits gives 0 and a value above 65535 gives
// 65535.
//
// The elements:
// - "serviceProfile" opens a new profile. Its attributes are "id", "name",
//   "version", "role" ("provider"; any other value means consumer),
//   "serviceLimit" ("any", "one_accessory", "one_peeragent"; any other value
//   means any) and "serviceTimeout" (a number; present but without digits it
//   gives 0). A profile opened while another one is open replaces it, and
//   the replaced one is dropped. The closing tag of "serviceProfile" stores
//   the open profile.
// - "serviceChannel" adds one channel to the open profile. Its attributes are
//   "id" (a number), "dataRate" ("high", "low"), "priority" ("high",
//   "medium", "low") and "reliability" ("enable", "disable"); an unknown
//   word leaves the field as it was. A channel whose id is 0 (also a missing
//   id, or an element without attributes) is not stored.
// - "transport" adds, for each of its "type" attributes whose value is one of
//   "transport_bt", "transport_ble", "transport_usb" and "transport_wifi",
//   that transport to the open profile; duplicates are kept, other values
//   add nothing.
// - A "serviceChannel" or "transport" outside an open profile is ignored.
//
// The small integers of the records are numbered exactly as the plug-in's
// native enumerations and the accessory client library number them.
#ifndef KV_ACCESSORY_SERVICE_PROFILE_READER_H
#define KV_ACCESSORY_SERVICE_PROFILE_READER_H

#include <cstdint>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

// The part a local agent plays (ServiceProfileRecord::role).
namespace ProfileRole {
inline constexpr std::uint8_t kProvider = 0;
inline constexpr std::uint8_t kConsumer = 1;
}  // namespace ProfileRole

// How many connections a local agent accepts at once
// (ServiceProfileRecord::serviceLimit).
namespace ProfileServiceLimit {
inline constexpr std::uint8_t kAny = 0;
inline constexpr std::uint8_t kOneAccessory = 1;
inline constexpr std::uint8_t kOnePeerAgent = 2;
}  // namespace ProfileServiceLimit

// The link over which an accessory is reached
// (ServiceProfileRecord::transports).
namespace ProfileTransport {
inline constexpr std::uint8_t kBt = 0;
inline constexpr std::uint8_t kBle = 1;
inline constexpr std::uint8_t kUsb = 2;
inline constexpr std::uint8_t kWifi = 3;
}  // namespace ProfileTransport

// The data rate a channel asks for (ServiceChannelRecord::dataRate).
namespace ChannelDataRate {
inline constexpr std::uint8_t kHigh = 0;
inline constexpr std::uint8_t kLow = 1;
}  // namespace ChannelDataRate

// The priority of a channel's traffic (ServiceChannelRecord::priority).
namespace ChannelPriority {
inline constexpr std::uint8_t kHigh = 0;
inline constexpr std::uint8_t kMedium = 1;
inline constexpr std::uint8_t kLow = 2;
}  // namespace ChannelPriority

// Whether a channel's delivery is acknowledged
// (ServiceChannelRecord::reliability).
namespace ChannelReliability {
inline constexpr std::uint8_t kEnable = 0;
inline constexpr std::uint8_t kDisable = 1;
}  // namespace ChannelReliability

// One "serviceChannel" element. A new channel starts all zero: a high data
// rate, high priority and reliable delivery. The id is never 0 in a stored
// channel.
struct ServiceChannelRecord {
    std::uint16_t id = 0;
    std::uint8_t dataRate = ChannelDataRate::kHigh;
    std::uint8_t priority = ChannelPriority::kHigh;
    std::uint8_t reliability = ChannelReliability::kEnable;
};

// One "serviceProfile" element with its channels and transports, both in
// document order. The initial values are those a profile gets when the file
// leaves the attribute out.
struct ServiceProfileRecord {
    std::string id;
    std::string name;
    std::string version = "1.0";
    std::uint8_t role = ProfileRole::kConsumer;
    std::uint8_t serviceLimit = ProfileServiceLimit::kAny;
    std::uint16_t serviceTimeout = 30;
    std::vector<ServiceChannelRecord> channels;
    std::vector<std::uint8_t> transports;
};

// What one reading of a file gives.
struct ServiceProfileFile {
    // The profiles whose closing tag came before the end of the file or
    // before its first error, in the order of their closing tags.
    std::vector<ServiceProfileRecord> profiles;
    // True when the whole file was read and is well-formed XML. False when
    // the file can't be opened, is not well-formed, or ran the reader out of
    // memory; the profiles above are then those closed before the failure.
    bool complete = false;
};

// The largest service-profile file that is read; a larger one is refused
// unread (a profile is a few kilobytes; a huge one can only be an attack on
// whoever reads it).
inline constexpr std::uintmax_t kMaxServiceProfileFileSize = std::uintmax_t{256} * 1024;

// Reads the service-profile file at `path` with libxml2's SAX parser. A file
// larger than kMaxServiceProfileFileSize gives an incomplete, empty result.
//
// The reader neither logs nor initialises or cleans up libxml2's global
// state: whether to call xmlInitParser() and xmlCleanupParser() around it is
// the caller's business (libxml2 initialises itself when it has to). It
// never throws: a failure inside the reading, running out of memory
// included, ends the reading there and shows as an incomplete file.
// Concurrent reads are as safe as libxml2's parser is in the calling process.
// It is the one function that the library exports.
__attribute__((visibility("default"))) ServiceProfileFile readServiceProfileFile(
    const std::string& path) noexcept;

}  // namespace Accessory
}  // namespace Kv

#endif
