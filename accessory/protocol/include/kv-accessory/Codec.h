// The codec of the accessory service's wire format: frames (a 4-byte
// big-endian length, then the payload) carrying Protocol Buffers messages.
// Everything here is pure: bytes in, messages out, no I/O. The daemon and the
// client library share it.
#ifndef KV_ACCESSORY_CODEC_H
#define KV_ACCESSORY_CODEC_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kv_accessory.pb.h"
#include "kvp-client-stub-api.h"

namespace Kv {
namespace Accessory {

// The generated messages of the wire format.
namespace wire = ::kv::accessory::wire;

// The version that both ends of every session announce in their hello.
inline constexpr std::uint32_t kProtocolVersion = 1;

// The largest payload one frame may carry. A peer that announces more is
// broken or hostile: its session is closed.
inline constexpr std::size_t kMaxFrameSize = std::size_t{4} * 1024 * 1024;

// The largest data one sendData may carry, the same bound that the client
// library announces to applications (the rest of a frame is headroom for the
// message around it).
inline constexpr std::size_t kMaxDataSize = KVP_MAX_DATA_SIZE;
static_assert(kMaxDataSize < kMaxFrameSize, "a frame holds the largest data with its message");

inline constexpr std::size_t kFrameHeaderSize = 4;

// A violation of the wire format: an oversized frame, a payload that does
// not parse, or a message without its required parts.
class ProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Splits a byte stream into frame payloads. Received bytes go into one
// buffer that is reused for every frame: a reader asks for room with
// prepare(), reads into it and says how much with commit() (feed() does both
// for bytes it already has), then takes the payloads with next(), which are
// views into the buffer, valid until the next prepare() or feed().
class FrameDecoder {
public:
    explicit FrameDecoder(std::size_t maxFrameSize = kMaxFrameSize);

    // Appends received bytes.
    void feed(const char* data, std::size_t size);

    // Room for at least `size` more bytes at the end of what was received.
    char* prepare(std::size_t size);
    // Takes `size` bytes written into the room that prepare() gave.
    void commit(std::size_t size);

    // How many more bytes the frame being received needs at least: the rest
    // of its header, or of its payload once the header is known.
    std::size_t missing() const;

    // The next complete payload, or nothing while the frame is incomplete.
    // Throws ProtocolError when the next frame announces more than the bound.
    std::optional<std::string_view> next();

    // Bytes received and not yet returned as a payload.
    std::size_t buffered() const { return m_end - m_begin; }

private:
    std::size_t announcedLength() const;

    std::size_t m_maxFrameSize;
    std::unique_ptr<char[]> m_data;
    std::size_t m_capacity = 0;
    std::size_t m_begin = 0;  // the first byte not yet returned
    std::size_t m_end = 0;    // one past the last byte received
};

// The frame of `message`. Throws ProtocolError when it would exceed the bound.
std::string encodeFrame(const google::protobuf::MessageLite& message);

// The frame of `message`, whose request is a send_data without its data,
// with `data` as that data: what encodeFrame makes of the whole message
// (the data field written last), with the data copied once, straight into
// the frame, instead of once into the message and once more into the frame.
// Throws ProtocolError when it would exceed the bound.
std::string encodeSendDataFrame(const wire::ClientMessage& message, std::string_view data);

// Parse one payload into a message and check that the parts every receiver
// relies on are there. Throw ProtocolError naming what is wrong.
wire::ClientMessage decodeClientMessage(std::string_view payload);
wire::ServiceMessage decodeServiceMessage(std::string_view payload);
wire::LinkMessage decodeLinkMessage(std::string_view payload);

}  // namespace Accessory
}  // namespace Kv

#endif
