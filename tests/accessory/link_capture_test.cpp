// The device link in a packet analyser, as a developer debugging a pair sees
// it: a linked pair started with --keylog, its link captured on loopback
// while apps exchange known messages, and tshark reading the capture with the
// key log and the link's dissector (tools/kv-link.lua). The messages show by
// field name: the hellos' device names, data with its channel and bytes, a
// frame far longer than a TLS record, a file's offer and chunks. Without the
// key log nothing of the link can be read.
#include <gtest/gtest.h>
#include <kv-accessory/Pairing.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <set>
#include <tuple>

#include "AccessoryTestSupport.h"
#include "LinkDissection.h"
#include "PacketCapture.h"

namespace KvTest {
namespace {

constexpr std::uint32_t kLowChannel = 101;
constexpr std::uint32_t kHighChannel = 102;

// A text of `size` bytes in which each position of a frame counts.
std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>('a' + (i * 7 + i / 26) % 26);
    }
    return text;
}

// All occurrences in the rows of the column `column`.
std::vector<std::string> column(const std::vector<std::vector<std::vector<std::string>>>& rows,
                                std::size_t column) {
    std::vector<std::string> values;
    for (const auto& row : rows) {
        if (column < row.size()) {
            values.insert(values.end(), row[column].begin(), row[column].end());
        }
    }
    return values;
}

bool has(const std::vector<std::string>& values, const std::string& value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

// Alpha (the consumer's device) listens, beta connects; both write the
// link's secrets to one key log, and the link is captured from before the
// connection on. A test has its apps exchange messages, then reads the
// capture.
class CapturedLinkTest : public testing::Test {
protected:
    void SetUp() override {
        Kv::Accessory::pairFolders(devices.alpha(), devices.beta());
        devices.startAlpha({"--keylog", keyLog});
        capture.emplace(devices.alphaPort(), devices.folder() + "/link.pcapng");
        if (capture->notPermitted()) {
            GTEST_SKIP() << "no right to capture on the loopback interface here: "
                         << capture->failure();
        }
        ASSERT_EQ(capture->failure(), "");
        devices.startBeta(0, {"--keylog", keyLog});
        ASSERT_TRUE(devices.waitLinked(devices.alpha()));
        ASSERT_TRUE(devices.waitLinked(devices.beta()));
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
        provider = std::make_unique<WireClient>(devices.beta(), kProviderApp);
    }

    // Opens a connection from the consumer to the provider.
    void connect() {
        std::tie(consumerConnection, providerConnection) =
            openConnection(*consumer, *provider, "/test/echo");
        ASSERT_NE(consumerConnection, 0u);
    }

    // The consumer sends `data` on `channel`; the provider gets it whole.
    void send(std::uint32_t channel, const std::string& data) {
        ASSERT_EQ(consumer->sendData(consumerConnection, channel, data), 0);
        const auto arrived = provider->waitEvent(isData(providerConnection));
        ASSERT_TRUE(arrived.has_value());
        EXPECT_EQ(arrived->data().data().size(), data.size());
    }

    // Stops the capture and reads it, with the key log or without.
    LinkDissection read(bool withKeyLog = true) {
        EXPECT_TRUE(capture->stop());
        return LinkDissection(capture->file(), devices.alphaPort(), withKeyLog ? keyLog : "");
    }

    DevicePair devices;
    const std::string keyLog = devices.folder() + "/link-keys.log";
    std::optional<PacketCapture> capture;
    std::unique_ptr<WireClient> consumer;
    std::unique_ptr<WireClient> provider;
    std::uint32_t consumerConnection = 0;
    std::uint32_t providerConnection = 0;
};

TEST_F(CapturedLinkTest, TheHellosNameBothDevicesAndTheirLinkProfile) {
    const auto rows =
        read().rows({wireField("LinkHello", "device_name"), wireField("LinkHello", "version"),
                     wireField("LinkHello", "link_profile"), "kvlink.body"});
    const std::vector<std::string> names = column(rows, 0);
    EXPECT_EQ(std::multiset<std::string>(names.begin(), names.end()),
              (std::multiset<std::string>{"alpha", "beta"}));
    EXPECT_EQ(column(rows, 1), (std::vector<std::string>{"1", "1"}));
    EXPECT_EQ(column(rows, 2), (std::vector<std::string>{"unlimited", "unlimited"}));
    EXPECT_TRUE(has(column(rows, 3), "hello"));
}

TEST_F(CapturedLinkTest, DataShowsItsConnectionChannelAndBytes) {
    connect();
    const std::string greeting = "hello over the captured link";
    send(kLowChannel, greeting);
    const auto rows =
        read().rows({wireField("LinkData", "data"), wireField("LinkData", "channel_id"),
                     wireField("LinkData", "connection_id")});
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0], std::vector<std::string>{hex(greeting)});
    EXPECT_EQ(rows[0][1], std::vector<std::string>{std::to_string(kLowChannel)});
    // The receiving daemon's id of the connection.
    EXPECT_EQ(rows[0][2], std::vector<std::string>{std::to_string(providerConnection)});
}

TEST_F(CapturedLinkTest, AFrameOfManyTlsRecordsIsReassembled) {
    connect();
    const std::string large = pattern(150000);  // ten TLS records and more
    send(kHighChannel, large);
    const auto rows = read().rows(
        {wireField("LinkData", "data"), wireField("LinkData", "channel_id"), "kvlink.length"});
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0], std::vector<std::string>{hex(large)});
    EXPECT_EQ(rows[0][1], std::vector<std::string>{std::to_string(kHighChannel)});
    ASSERT_EQ(rows[0][2].size(), 1u);
    EXPECT_GT(std::stoul(rows[0][2][0]), large.size());
}

TEST_F(CapturedLinkTest, AFileShowsItsOfferAndChunksUnderItsTransactionId) {
    const std::size_t size = 600000;  // three chunks
    std::ofstream(devices.alpha() + "/fs/opt/usr/media/Documents/captured.bin") << pattern(size);
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    provider->registerAgent("/test/echo");
    const std::vector<wire::PeerAgent> peers = consumer->findPeers(agent);
    ASSERT_EQ(peers.size(), 1u);
    wire::Request push;
    push.mutable_push_file()->set_agent_id(agent);
    *push.mutable_push_file()->mutable_peer() = peers[0];
    push.mutable_push_file()->set_path("/opt/usr/media/Documents/captured.bin");
    const wire::Reply pushed = consumer->call(push);
    ASSERT_EQ(pushed.result(), 0);
    const std::string transaction = std::to_string(pushed.value());
    const auto offered =
        provider->waitEvent([](const wire::Event& e) { return e.has_file_offered(); });
    ASSERT_TRUE(offered.has_value());
    wire::Request accept;
    accept.mutable_receive_file()->set_transaction_id(offered->file_offered().transaction_id());
    accept.mutable_receive_file()->set_path("/opt/usr/media/Downloads/captured.bin");
    accept.mutable_receive_file()->set_accept(true);
    ASSERT_EQ(provider->call(accept).result(), 0);
    ASSERT_TRUE(consumer->waitEvent([](const wire::Event& e) { return e.has_file_done(); }));

    const LinkDissection link = read();
    const auto offers =
        link.rows({wireField("FileOffer", "transaction_id"), wireField("FileOffer", "file_name"),
                   wireField("FileOffer", "size")});
    ASSERT_EQ(offers.size(), 1u);
    EXPECT_EQ(offers[0][0], std::vector<std::string>{transaction});
    EXPECT_EQ(offers[0][1], std::vector<std::string>{"captured.bin"});
    EXPECT_EQ(offers[0][2], std::vector<std::string>{std::to_string(size)});
    const auto chunks =
        link.rows({wireField("FileChunk", "transaction_id"), wireField("FileChunk", "data")});
    std::size_t bytes = 0;
    for (const std::string& id : column(chunks, 0)) {
        EXPECT_EQ(id, transaction);
    }
    for (const std::string& data : column(chunks, 1)) {
        bytes += data.size() / 2;
    }
    EXPECT_EQ(bytes, size);
    EXPECT_TRUE(has(link.values(wireField("FileEnd", "transaction_id")), transaction));
}

TEST_F(CapturedLinkTest, WithoutTheKeyLogNothingOfTheLinkCanBeRead) {
    connect();
    send(kLowChannel, "not for strangers");
    const LinkDissection link = read(false);
    EXPECT_EQ(link.values("kvlink.body"), std::vector<std::string>{});
    EXPECT_EQ(link.values(wireField("LinkData", "data")), std::vector<std::string>{});
    EXPECT_FALSE(link.values("tls.app_data").empty());
}

}  // namespace
}  // namespace KvTest
