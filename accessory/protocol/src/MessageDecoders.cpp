#include <kv-accessory/Codec.h>

#include <cstdint>

namespace Kv {
namespace Accessory {

namespace {

template <typename Message>
Message parse(std::string_view payload, const char* what) {
    Message message;
    if (payload.size() > static_cast<std::size_t>(INT32_MAX) ||
        !message.ParseFromArray(payload.data(), static_cast<int>(payload.size()))) {
        throw ProtocolError(std::string("malformed ") + what);
    }
    return message;
}

}  // namespace

wire::ClientMessage decodeClientMessage(std::string_view payload) {
    auto message = parse<wire::ClientMessage>(payload, "client message");
    if (!message.has_request() || message.request().body_case() == wire::Request::BODY_NOT_SET) {
        throw ProtocolError("client message without a request");
    }
    return message;
}

wire::ServiceMessage decodeServiceMessage(std::string_view payload) {
    auto message = parse<wire::ServiceMessage>(payload, "service message");
    if (message.body_case() == wire::ServiceMessage::BODY_NOT_SET) {
        throw ProtocolError("service message without a body");
    }
    if (message.has_event() && message.event().body_case() == wire::Event::BODY_NOT_SET) {
        throw ProtocolError("event without a body");
    }
    return message;
}

wire::LinkMessage decodeLinkMessage(std::string_view payload) {
    auto message = parse<wire::LinkMessage>(payload, "link message");
    if (message.body_case() == wire::LinkMessage::BODY_NOT_SET) {
        throw ProtocolError("link message without a body");
    }
    if (message.has_data() && message.data().data().size() > kMaxDataSize) {
        throw ProtocolError("link data above the data bound");
    }
    return message;
}

}  // namespace Accessory
}  // namespace Kv
