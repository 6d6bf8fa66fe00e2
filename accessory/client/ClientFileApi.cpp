// The client library's C interface: file transfer and the peer accessory
// record.
#include <kvp-client-stub-api.h>

#include <cstring>

#include "ClientCall.h"

using Kv::Accessory::callService;
using Kv::Accessory::toWirePeer;
namespace wire = kv::accessory::wire;

namespace {

// The text of a path buffer, which need not hold a terminator.
std::string pathText(const char* buffer) {
    return std::string(buffer, strnlen(buffer, KVP_PATH_BUFFER_SIZE));
}

void copyText(char (&target)[KVP_PATH_BUFFER_SIZE], const std::string& text) {
    const std::size_t length = std::min(text.size(), sizeof(target) - 1);
    std::memcpy(target, text.data(), length);
    target[length] = '\0';
}

}  // namespace

extern "C" {

int pushFile(char* path, const kvp_peer_agent_t* peer, unsigned int agentId) {
    if (path == nullptr || peer == nullptr) {
        return -1;
    }
    int transactionId = -1;
    const int result = callService(
        [&](wire::Request& request) {
            auto* push = request.mutable_push_file();
            push->set_agent_id(agentId);
            *push->mutable_peer() = toWirePeer(*peer);
            push->set_path(pathText(path));
        },
        [&](const wire::Reply& reply) { transactionId = reply.value(); });
    return result == KVP_SUCCESS ? transactionId : -1;
}

int receiveFile(int transactionId, char* path, int accept) {
    if (accept != 0 && path == nullptr) {
        return KVP_ERROR_INVALID;
    }
    return callService([&](wire::Request& request) {
        auto* receive = request.mutable_receive_file();
        receive->set_transaction_id(transactionId);
        receive->set_accept(accept != 0);
        if (accept != 0) {
            receive->set_path(pathText(path));
        }
    });
}

int cancelFile(int transactionId) {
    return callService([&](wire::Request& request) {
        request.mutable_cancel_file()->set_transaction_id(transactionId);
    });
}

int getPeerAccessory(unsigned int accessoryId, kvp_peer_accessory_t* accessory) {
    if (accessory == nullptr) {
        return KVP_ERROR_INVALID;
    }
    return callService(
        [&](wire::Request& request) {
            request.mutable_get_accessory()->set_accessory_id(accessoryId);
        },
        [&](const wire::Reply& reply) {
            if (reply.result() != wire::RESULT_SUCCESS) {
                return;
            }
            const wire::Accessory& record = reply.accessory();
            accessory->transportType = record.transport_type();
            accessory->maxAllowedDataSize = record.max_data_size();
            copyText(accessory->deviceAddress, record.device_address());
            copyText(accessory->productId, record.product_id());
            copyText(accessory->vendorId, record.vendor_id());
        });
}

}  // extern "C"
