// Fuzz target: a byte stream split into frames and decoded as link
// messages. Every input must end in messages or a ProtocolError, nothing else.
#include <kv-accessory/Codec.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Kv::Accessory::FrameDecoder decoder(std::size_t{64} * 1024);
    decoder.feed(reinterpret_cast<const char*>(data), size);
    try {
        while (auto payload = decoder.next()) {
            try {
                Kv::Accessory::decodeLinkMessage(*payload);
            } catch (const Kv::Accessory::ProtocolError&) {
                continue;  // a malformed message: on to the next frame
            }
        }
    } catch (const Kv::Accessory::ProtocolError&) {
        return 0;  // a malformed frame ends the stream
    }
    return 0;
}
