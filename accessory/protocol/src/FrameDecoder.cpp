#include <google/protobuf/io/coded_stream.h>
#include <kv-accessory/Codec.h>

#include <algorithm>
#include <cstring>

namespace Kv {
namespace Accessory {

namespace {

std::uint32_t readLength(const char* bytes) {
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < kFrameHeaderSize; ++i) {
        length = (length << 8) | static_cast<unsigned char>(bytes[i]);
    }
    return length;
}

}  // namespace

FrameDecoder::FrameDecoder(std::size_t maxFrameSize) : m_maxFrameSize(maxFrameSize) {}

void FrameDecoder::feed(const char* data, std::size_t size) {
    std::memcpy(prepare(size), data, size);
    commit(size);
}

char* FrameDecoder::prepare(std::size_t size) {
    if (m_begin == m_end) {
        m_begin = m_end = 0;
    }
    if (m_capacity - m_end >= size) {
        return m_data.get() + m_end;
    }
    // What was returned already goes first; the buffer grows only when the
    // frame being received needs it, so it holds at most one frame and a
    // part of the next.
    const std::size_t held = m_end - m_begin;
    if (m_capacity - held >= size) {
        std::memmove(m_data.get(), m_data.get() + m_begin, held);
    } else {
        const std::size_t capacity = std::max(m_capacity * 2, held + size);
        std::unique_ptr<char[]> grown(new char[capacity]);
        if (held > 0) {
            std::memcpy(grown.get(), m_data.get() + m_begin, held);
        }
        m_data = std::move(grown);
        m_capacity = capacity;
    }
    m_begin = 0;
    m_end = held;
    return m_data.get() + m_end;
}

void FrameDecoder::commit(std::size_t size) { m_end = std::min(m_end + size, m_capacity); }

std::size_t FrameDecoder::announcedLength() const {
    const std::uint32_t length = readLength(m_data.get() + m_begin);
    if (length > m_maxFrameSize) {
        throw ProtocolError("frame of " + std::to_string(length) + " bytes exceeds the bound of " +
                            std::to_string(m_maxFrameSize));
    }
    return length;
}

std::size_t FrameDecoder::missing() const {
    if (buffered() < kFrameHeaderSize) {
        return kFrameHeaderSize - buffered();
    }
    // An oversized frame is next()'s to refuse; here it needs nothing more.
    const std::size_t length = readLength(m_data.get() + m_begin);
    const std::size_t frame = kFrameHeaderSize + std::min(length, m_maxFrameSize);
    return frame > buffered() ? frame - buffered() : 0;
}

std::optional<std::string_view> FrameDecoder::next() {
    if (buffered() < kFrameHeaderSize) {
        return std::nullopt;
    }
    const std::size_t length = announcedLength();
    if (buffered() < kFrameHeaderSize + length) {
        return std::nullopt;
    }
    const std::string_view payload(m_data.get() + m_begin + kFrameHeaderSize, length);
    m_begin += kFrameHeaderSize + length;
    return payload;
}

namespace {

// A frame of a payload of `length` bytes, its header written and its payload
// written by `writePayload(out)`, in place, without zero-filling the frame
// first. (The operation returns the size itself: GCC 12 hands it the
// capacity, not the size.) Throws ProtocolError when it would exceed the
// bound.
template <typename WritePayload>
std::string makeFrame(std::size_t length, const WritePayload& writePayload) {
    if (length > kMaxFrameSize) {
        throw ProtocolError("message of " + std::to_string(length) + " bytes exceeds the bound");
    }
    std::string frame;
    frame.resize_and_overwrite(kFrameHeaderSize + length, [&](char* out, std::size_t) {
        for (std::size_t i = 0; i < kFrameHeaderSize; ++i) {
            out[i] = static_cast<char>((length >> (8 * (kFrameHeaderSize - 1 - i))) & 0xff);
        }
        writePayload(reinterpret_cast<std::uint8_t*>(out) + kFrameHeaderSize);
        return kFrameHeaderSize + length;
    });
    return frame;
}

}  // namespace

std::string encodeFrame(const google::protobuf::MessageLite& message) {
    return makeFrame(message.ByteSizeLong(),
                     [&](std::uint8_t* out) { message.SerializeWithCachedSizesToArray(out); });
}

namespace {

using google::protobuf::io::CodedOutputStream;

// The tag of a length-delimited field.
constexpr std::uint8_t lengthDelimited(int field) {
    return static_cast<std::uint8_t>(field << 3 | 2);
}

// Appends a length-delimited field's tag and length.
std::uint8_t* putField(std::uint8_t* out, int field, std::size_t length) {
    *out++ = lengthDelimited(field);
    return CodedOutputStream::WriteVarint32ToArray(static_cast<std::uint32_t>(length), out);
}

std::size_t fieldSize(std::size_t length) {
    return 1 + CodedOutputStream::VarintSize32(static_cast<std::uint32_t>(length)) + length;
}

}  // namespace

std::string encodeSendDataFrame(const wire::ClientMessage& message, std::string_view data) {
    static_assert(wire::ClientMessage::kRequestFieldNumber < 16 &&
                      wire::Request::kSendDataFieldNumber < 16 &&
                      wire::SendData::kDataFieldNumber < 16,
                  "one-byte tags");
    if (data.empty()) {
        return encodeFrame(message);  // an empty field is left out, as protobuf does
    }
    wire::Request outer = message.request();
    const wire::SendData send = outer.send_data();
    outer.clear_send_data();
    const std::size_t sendSize = send.ByteSizeLong() + fieldSize(data.size());
    const std::size_t requestSize = outer.ByteSizeLong() + fieldSize(sendSize);
    return makeFrame(fieldSize(requestSize), [&](std::uint8_t* out) {
        out = putField(out, wire::ClientMessage::kRequestFieldNumber, requestSize);
        out = outer.SerializeWithCachedSizesToArray(out);
        out = putField(out, wire::Request::kSendDataFieldNumber, sendSize);
        out = send.SerializeWithCachedSizesToArray(out);
        out = putField(out, wire::SendData::kDataFieldNumber, data.size());
        std::memcpy(out, data.data(), data.size());
    });
}

}  // namespace Accessory
}  // namespace Kv
