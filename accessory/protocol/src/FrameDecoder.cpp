#include <kv-accessory/Codec.h>

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
    // Consumed bytes are dropped before the buffer grows, so it holds at most
    // one frame and a part of the next.
    if (m_offset > 0) {
        m_buffer.erase(0, m_offset);
        m_offset = 0;
    }
    m_buffer.append(data, size);
}

std::optional<std::string> FrameDecoder::next() {
    if (buffered() < kFrameHeaderSize) {
        return std::nullopt;
    }
    const std::uint32_t length = readLength(m_buffer.data() + m_offset);
    if (length > m_maxFrameSize) {
        throw ProtocolError("frame of " + std::to_string(length) + " bytes exceeds the bound of " +
                            std::to_string(m_maxFrameSize));
    }
    if (buffered() < kFrameHeaderSize + length) {
        return std::nullopt;
    }
    std::string payload = m_buffer.substr(m_offset + kFrameHeaderSize, length);
    m_offset += kFrameHeaderSize + length;
    return payload;
}

std::string encodeFrame(const google::protobuf::MessageLite& message) {
    const std::size_t length = message.ByteSizeLong();
    if (length > kMaxFrameSize) {
        throw ProtocolError("message of " + std::to_string(length) + " bytes exceeds the bound");
    }
    std::string frame(kFrameHeaderSize, '\0');
    for (std::size_t i = 0; i < kFrameHeaderSize; ++i) {
        frame[i] = static_cast<char>((length >> (8 * (kFrameHeaderSize - 1 - i))) & 0xff);
    }
    if (!message.AppendToString(&frame)) {
        throw ProtocolError("message could not be serialised");
    }
    return frame;
}

}  // namespace Accessory
}  // namespace Kv
