// The native enumerations of the accessory API. Each one is a plain 32-bit
// enumeration numbered as the accessory service's client library reports and
// expects it; the script spelling of each value belongs to the script layer.
#ifndef KVP_KV_TYPES_H
#define KVP_KV_TYPES_H

#include <cstdint>

namespace DeviceAPI {
namespace KVP {

// The link over which an accessory is reached. Bluetooth comes before
// Bluetooth Low Energy on purpose: these are the client library's numbers.
enum KvTransportType : std::int32_t {
    KV_TRANSPORT_BT = 0,
    KV_TRANSPORT_BLE = 1,
    KV_TRANSPORT_USB = 2,
    KV_TRANSPORT_WIFI = 3,
};

enum KvDeviceStatus : std::int32_t {
    KV_DEVICE_ATTACHED = 0,
    KV_DEVICE_DETACHED = 1,
};

enum KvPeerAgentStatus : std::int32_t {
    KV_PEER_AGENT_AVAILABLE = 0,
    KV_PEER_AGENT_UNAVAILABLE = 1,
};

// Why a search for peer agents failed.
enum KvPeerAgentFindErrorCode : std::int32_t {
    KV_FIND_PEER_NOT_FOUND = 0,
    KV_FIND_DUPLICATE_REQUEST = 1,
    KV_FIND_DEVICE_NOT_CONNECTED = 2,
};

// Why a service connection could not be made.
enum KvServiceConnectionErrorCode : std::int32_t {
    KV_CONNECTION_ALREADY_EXIST = 0,
    KV_CONNECTION_NETWORK_ERROR = 1,
    KV_CONNECTION_DEVICE_UNREACHABLE = 2,
    KV_CONNECTION_INVALID_PEERAGENT = 3,
    KV_CONNECTION_PEERAGENT_NO_RESPONSE = 4,
    KV_CONNECTION_PEERAGENT_REJECTED = 5,
    KV_CONNECTION_ERROR_REFLECTION_EXCEPTION = 6,
};

// Why sending a file failed.
enum KvFileSendErrorCode : std::int32_t {
    KV_FILE_SEND_FILE_IO = 0,
    KV_FILE_SEND_PEER_BUSY = 1,
    KV_FILE_SEND_PEER_CHANNEL_IO = 2,
    KV_FILE_SEND_PEER_CONN_LOST = 3,
    KV_FILE_SEND_PEER_NO_RESPONSE = 4,
    KV_FILE_SEND_PEER_REJECTED = 5,
    KV_FILE_SEND_REQUEST_NOT_QUEUED = 6,
    KV_FILE_SEND_SPACE_NOT_AVAILABLE = 7,
    KV_FILE_SEND_UNKNOWN_ERROR = 8,
};

// Why receiving a file failed. The codes are those of sending without the
// two that only a sender meets, numbered anew: the two sets do not mix.
enum KvFileReceiveErrorCode : std::int32_t {
    KV_FILE_RECEIVE_FILE_IO = 0,
    KV_FILE_RECEIVE_PEER_CHANNEL_IO = 1,
    KV_FILE_RECEIVE_PEER_CONN_LOST = 2,
    KV_FILE_RECEIVE_PEER_NO_RESPONSE = 3,
    KV_FILE_RECEIVE_PEER_REJECTED = 4,
    KV_FILE_RECEIVE_SPACE_NOT_AVAILABLE = 5,
    KV_FILE_RECEIVE_UNKNOWN_ERROR = 6,
};

// Why an open service connection ended.
enum KvSocketStatusErrorCode : std::int32_t {
    KV_SOCKET_PEER_DISCONNECTED = 0,
    KV_SOCKET_DEVICE_DETACHED = 1,
    KV_SOCKET_UNKNOWN_REASON = 2,
};

enum KvAuthenticationTokenType : std::int32_t {
    KV_AUTHENTICATION_TYPE_NONE = 0,
    KV_AUTHENTICATION_TYPE_CERTIFICATE_X509 = 1,
};

// The part a local agent plays; every value other than 0 counts as consumer.
enum KvRole : std::int32_t {
    KV_ROLE_PROVIDER = 0,
    KV_ROLE_CONSUMER = 1,
};

// The data rate a service channel asks for.
enum KvDataRate : std::int32_t {
    KV_DATA_RATE_HIGH = 0,
    KV_DATA_RATE_LOW = 1,
};

// The priority of a service channel's traffic.
enum KvPriority : std::int32_t {
    KV_PRIORITY_HIGH = 0,
    KV_PRIORITY_MEDIUM = 1,
    KV_PRIORITY_LOW = 2,
};

// Whether a service channel's delivery is acknowledged.
enum KvReliability : std::int32_t {
    KV_RELIABILITY_ENABLE = 0,
    KV_RELIABILITY_DISABLE = 1,
};

// How many connections a local agent accepts at once.
enum KvServiceLimit : std::int32_t {
    KV_SERVICE_LIMIT_ANY = 0,
    KV_SERVICE_LIMIT_ONE_ACCESSORY = 1,
    KV_SERVICE_LIMIT_ONE_PEERAGENT = 2,
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
