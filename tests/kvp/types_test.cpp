// Tests of the native enumerations and the profile records: the numbers are
// those the accessory service's client library uses, so they must not move.
#include <KvAgentInit.h>
#include <KvTypes.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

using namespace DeviceAPI::KVP;

namespace {

// The enumerators of one enumeration, in the order of their numbers.
template <typename Enum>
std::vector<int> numbers(std::initializer_list<Enum> values) {
    return std::vector<int>(values.begin(), values.end());
}

// 0, 1, ..., count - 1.
std::vector<int> upTo(int count) {
    std::vector<int> result(static_cast<size_t>(count));
    std::iota(result.begin(), result.end(), 0);
    return result;
}

}  // namespace

TEST(TypesTest, EveryEnumerationIsThirtyTwoBitsWide) {
    EXPECT_EQ(sizeof(KvTransportType), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvDeviceStatus), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvPeerAgentStatus), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvPeerAgentFindErrorCode), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvServiceConnectionErrorCode), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvFileSendErrorCode), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvFileReceiveErrorCode), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvSocketStatusErrorCode), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvAuthenticationTokenType), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvRole), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvDataRate), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvPriority), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvReliability), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KvServiceLimit), sizeof(std::int32_t));
}

TEST(TypesTest, TransportBluetoothComesBeforeLowEnergy) {
    EXPECT_EQ(numbers({KV_TRANSPORT_BT, KV_TRANSPORT_BLE, KV_TRANSPORT_USB, KV_TRANSPORT_WIFI}),
              upTo(4));
}

TEST(TypesTest, StatusEnumerationsCountFromZero) {
    EXPECT_EQ(numbers({KV_DEVICE_ATTACHED, KV_DEVICE_DETACHED}), upTo(2));
    EXPECT_EQ(numbers({KV_PEER_AGENT_AVAILABLE, KV_PEER_AGENT_UNAVAILABLE}), upTo(2));
    EXPECT_EQ(numbers({KV_AUTHENTICATION_TYPE_NONE, KV_AUTHENTICATION_TYPE_CERTIFICATE_X509}),
              upTo(2));
    EXPECT_EQ(numbers({KV_ROLE_PROVIDER, KV_ROLE_CONSUMER}), upTo(2));
}

TEST(TypesTest, SearchConnectionAndSocketCodes) {
    EXPECT_EQ(
        numbers({KV_FIND_PEER_NOT_FOUND, KV_FIND_DUPLICATE_REQUEST, KV_FIND_DEVICE_NOT_CONNECTED}),
        upTo(3));
    EXPECT_EQ(numbers({KV_CONNECTION_ALREADY_EXIST, KV_CONNECTION_NETWORK_ERROR,
                       KV_CONNECTION_DEVICE_UNREACHABLE, KV_CONNECTION_INVALID_PEERAGENT,
                       KV_CONNECTION_PEERAGENT_NO_RESPONSE, KV_CONNECTION_PEERAGENT_REJECTED,
                       KV_CONNECTION_ERROR_REFLECTION_EXCEPTION}),
              upTo(7));
    EXPECT_EQ(
        numbers({KV_SOCKET_PEER_DISCONNECTED, KV_SOCKET_DEVICE_DETACHED, KV_SOCKET_UNKNOWN_REASON}),
        upTo(3));
}

TEST(TypesTest, FileReceiveCodesAreNumberedApartFromFileSendCodes) {
    EXPECT_EQ(numbers({KV_FILE_SEND_FILE_IO, KV_FILE_SEND_PEER_BUSY, KV_FILE_SEND_PEER_CHANNEL_IO,
                       KV_FILE_SEND_PEER_CONN_LOST, KV_FILE_SEND_PEER_NO_RESPONSE,
                       KV_FILE_SEND_PEER_REJECTED, KV_FILE_SEND_REQUEST_NOT_QUEUED,
                       KV_FILE_SEND_SPACE_NOT_AVAILABLE, KV_FILE_SEND_UNKNOWN_ERROR}),
              upTo(9));
    EXPECT_EQ(numbers({KV_FILE_RECEIVE_FILE_IO, KV_FILE_RECEIVE_PEER_CHANNEL_IO,
                       KV_FILE_RECEIVE_PEER_CONN_LOST, KV_FILE_RECEIVE_PEER_NO_RESPONSE,
                       KV_FILE_RECEIVE_PEER_REJECTED, KV_FILE_RECEIVE_SPACE_NOT_AVAILABLE,
                       KV_FILE_RECEIVE_UNKNOWN_ERROR}),
              upTo(7));
    EXPECT_EQ(KV_FILE_SEND_PEER_BUSY, 1);
    EXPECT_EQ(KV_FILE_RECEIVE_PEER_CHANNEL_IO, 1);
}

TEST(TypesTest, ChannelAndServiceEnumerations) {
    EXPECT_EQ(numbers({KV_DATA_RATE_HIGH, KV_DATA_RATE_LOW}), upTo(2));
    EXPECT_EQ(numbers({KV_PRIORITY_HIGH, KV_PRIORITY_MEDIUM, KV_PRIORITY_LOW}), upTo(3));
    EXPECT_EQ(numbers({KV_RELIABILITY_ENABLE, KV_RELIABILITY_DISABLE}), upTo(2));
    EXPECT_EQ(numbers({KV_SERVICE_LIMIT_ANY, KV_SERVICE_LIMIT_ONE_ACCESSORY,
                       KV_SERVICE_LIMIT_ONE_PEERAGENT}),
              upTo(3));
}

TEST(TypesTest, NewChannelIsHighRateHighPriorityAndReliable) {
    const KvChannel channel;
    EXPECT_EQ(channel.id, 0);
    EXPECT_EQ(channel.dataRate, KV_DATA_RATE_HIGH);
    EXPECT_EQ(channel.priority, KV_PRIORITY_HIGH);
    EXPECT_EQ(channel.reliability, KV_RELIABILITY_ENABLE);
}

TEST(TypesTest, NewProfileIsAConsumerWithoutLimitAndThirtySecondTimeOut) {
    const KvAgentInit profile;
    EXPECT_TRUE(profile.id.empty());
    EXPECT_TRUE(profile.name.empty());
    EXPECT_EQ(profile.role, KV_ROLE_CONSUMER);
    EXPECT_EQ(profile.serviceLimit, KV_SERVICE_LIMIT_ANY);
    EXPECT_TRUE(profile.channels.empty());
    EXPECT_TRUE(profile.transportTypes.empty());
    EXPECT_EQ(profile.serviceTimeout, 30);
}

TEST(TypesTest, ChannelIdAndTimeOutAreUnsignedSixteenBits) {
    KvChannel channel;
    channel.id = 65535;
    KvAgentInit profile;
    profile.serviceTimeout = 65535;
    EXPECT_EQ(sizeof(channel.id), 2u);
    EXPECT_EQ(sizeof(profile.serviceTimeout), 2u);
    EXPECT_GT(channel.id, 0);
    EXPECT_GT(profile.serviceTimeout, 0);
}
