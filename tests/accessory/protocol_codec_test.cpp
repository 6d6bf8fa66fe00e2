// The wire codec: frames, their bound, and the three message decoders.
#include <gtest/gtest.h>

#include <kv-accessory/Codec.h>
#include <algorithm>
#include <cstring>
#include <vector>

namespace {

using namespace Kv::Accessory;

wire::ClientMessage sampleRequest() {
    wire::ClientMessage message;
    auto* request = message.mutable_request();
    request->set_serial(42);
    auto* send = request->mutable_send_data();
    send->set_connection_id(7);
    send->set_channel_id(101);
    send->set_data(std::string("ab\0cd", 5));
    return message;
}

TEST(ProtocolCodecTest, AClientMessageSurvivesTheRoundTrip) {
    const std::string frame = encodeFrame(sampleRequest());
    FrameDecoder decoder;
    decoder.feed(frame.data(), frame.size());
    const std::optional<std::string_view> payload = decoder.next();
    ASSERT_TRUE(payload.has_value());
    const wire::ClientMessage decoded = decodeClientMessage(*payload);
    EXPECT_EQ(decoded.request().serial(), 42u);
    EXPECT_EQ(decoded.request().send_data().data(), std::string("ab\0cd", 5));
    EXPECT_FALSE(decoder.next().has_value());
}

// A send's frame with its data written straight in decodes to the same
// message as the message with its data set, whatever the sizes (one- to
// three-byte lengths) and the other fields.
TEST(ProtocolCodecTest, ASendsFrameWithItsDataWrittenInDecodesAsTheWholeMessage) {
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{127}, std::size_t{128}, std::size_t{16383},
          std::size_t{16384}, kMaxDataSize}) {
        std::string data(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            data[i] = static_cast<char>(i * 31 % 251);
        }
        wire::ClientMessage message = sampleRequest();
        auto* send = message.mutable_request()->mutable_send_data();
        send->clear_data();
        send->set_secure(size % 2 == 0);
        send->set_no_reply(true);
        send->set_sent_at_us(1'800'000'000'123'456 + size);
        const std::string frame = encodeSendDataFrame(message, data);
        send->set_data(data);
        FrameDecoder decoder;
        decoder.feed(frame.data(), frame.size());
        const std::optional<std::string_view> payload = decoder.next();
        ASSERT_TRUE(payload.has_value()) << size;
        EXPECT_EQ(decodeClientMessage(*payload).SerializeAsString(), message.SerializeAsString())
            << size;
        EXPECT_EQ(frame.size(), encodeFrame(message).size()) << size;
    }
}

TEST(ProtocolCodecTest, ASendsFrameBeyondTheBoundIsAProtocolError) {
    EXPECT_THROW(encodeSendDataFrame(sampleRequest(), std::string(kMaxFrameSize, 'x')),
                 ProtocolError);
}

TEST(ProtocolCodecTest, FramesArriveWholeWhateverTheChunking) {
    wire::ServiceMessage event;
    event.mutable_event()->mutable_data()->set_data(std::string(100000, 'z'));
    const std::string stream = encodeFrame(event) + encodeFrame(event);
    FrameDecoder decoder;
    int payloads = 0;
    for (std::size_t i = 0; i < stream.size(); i += 977) {
        decoder.feed(stream.data() + i, std::min<std::size_t>(977, stream.size() - i));
        while (auto payload = decoder.next()) {
            EXPECT_EQ(decodeServiceMessage(*payload).event().data().data().size(), 100000u);
            ++payloads;
        }
    }
    EXPECT_EQ(payloads, 2);
    EXPECT_EQ(decoder.buffered(), 0u);
}

TEST(ProtocolCodecTest, AMegabyteOfDataFitsInOneFrame) {
    wire::LinkMessage message;
    message.mutable_data()->set_data(std::string(std::size_t{1024} * 1024, '\0'));
    const std::string frame = encodeFrame(message);
    FrameDecoder decoder;
    decoder.feed(frame.data(), frame.size());
    EXPECT_EQ(decodeLinkMessage(*decoder.next()).data().data().size(), 1024u * 1024u);
}

TEST(ProtocolCodecTest, ATruncatedFrameWaitsForTheRest) {
    const std::string frame = encodeFrame(sampleRequest());
    FrameDecoder decoder;
    decoder.feed(frame.data(), frame.size() - 1);
    EXPECT_FALSE(decoder.next().has_value());
    decoder.feed(frame.data() + frame.size() - 1, 1);
    EXPECT_TRUE(decoder.next().has_value());
}

// A reader asks how much the frame being received still needs, reads into
// the room the decoder gives, and takes views of the payloads; the buffer is
// reused from frame to frame.
TEST(ProtocolCodecTest, BytesReadIntoTheDecodersRoomGiveTheFramesInOrder) {
    FrameDecoder decoder;
    EXPECT_EQ(decoder.missing(), kFrameHeaderSize);
    std::string stream;
    for (int i = 0; i < 3; ++i) {
        wire::LinkMessage message;
        message.mutable_data()->set_data(std::string(300000 + i, static_cast<char>('a' + i)));
        stream += encodeFrame(message);
    }
    std::vector<std::size_t> sizes;
    const char* at = stream.data();
    const char* const end = stream.data() + stream.size();
    while (at < end) {
        // Never more than the reader asked room for, as a socket read would.
        const std::size_t room = std::max<std::size_t>(1000, decoder.missing());
        const std::size_t count = std::min<std::size_t>(room, static_cast<std::size_t>(end - at));
        std::memcpy(decoder.prepare(room), at, count);
        decoder.commit(count);
        at += count;
        while (std::optional<std::string_view> payload = decoder.next()) {
            const wire::LinkMessage message = decodeLinkMessage(*payload);
            sizes.push_back(message.data().data().size());
            EXPECT_EQ(message.data().data()[0], static_cast<char>('a' + sizes.size() - 1));
        }
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{300000, 300001, 300002}));
    EXPECT_EQ(decoder.buffered(), 0u);
    EXPECT_EQ(decoder.missing(), kFrameHeaderSize);
}

TEST(ProtocolCodecTest, TheMissingPartOfAFrameIsTheRestOfItsPayload) {
    wire::LinkMessage message;
    message.mutable_data()->set_data(std::string(5000, 'x'));
    const std::string frame = encodeFrame(message);
    FrameDecoder decoder;
    decoder.feed(frame.data(), 10);
    EXPECT_EQ(decoder.missing(), frame.size() - 10);
    EXPECT_FALSE(decoder.next().has_value());
}

TEST(ProtocolCodecTest, AnOversizedFrameIsAProtocolError) {
    FrameDecoder decoder;
    const char header[] = {0x00, 0x40, 0x00, 0x01};  // one byte above 4 MiB
    decoder.feed(header, sizeof(header));
    EXPECT_THROW(decoder.next(), ProtocolError);
    wire::LinkMessage huge;
    huge.mutable_data()->set_data(std::string(kMaxFrameSize + 1, 'x'));
    EXPECT_THROW(encodeFrame(huge), ProtocolError);
}

TEST(ProtocolCodecTest, MalformedPayloadsAreProtocolErrors) {
    EXPECT_THROW(decodeClientMessage(std::string("\xff\xff\xff", 3)), ProtocolError);
    EXPECT_THROW(decodeServiceMessage(std::string("\x0a\x05\x01", 3)), ProtocolError);
    EXPECT_THROW(decodeLinkMessage(std::string("\x12", 1)), ProtocolError);
}

TEST(ProtocolCodecTest, MessagesWithoutABodyAreProtocolErrors) {
    EXPECT_THROW(decodeClientMessage(""), ProtocolError);
    wire::ClientMessage empty;
    empty.mutable_request()->set_serial(1);
    EXPECT_THROW(decodeClientMessage(empty.SerializeAsString()), ProtocolError);
    EXPECT_THROW(decodeServiceMessage(""), ProtocolError);
    EXPECT_THROW(decodeLinkMessage(""), ProtocolError);
}

TEST(ProtocolCodecTest, LinkDataAboveTheDataBoundIsRefused) {
    wire::LinkMessage message;
    message.mutable_data()->set_data(std::string(kMaxDataSize + 1, 'x'));
    EXPECT_THROW(decodeLinkMessage(message.SerializeAsString()), ProtocolError);
}

}  // namespace
