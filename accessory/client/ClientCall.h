// The edge between the C interface and the C++ client: a request is filled,
// sent, and its reply turned into a result code. Nothing is thrown across.
#ifndef KVP_CLIENT_CLIENT_CALL_H
#define KVP_CLIENT_CLIENT_CALL_H

#include <Logger.h>
#include <kvp-client-stub-api.h>

#include <exception>
#include <functional>

#include "ServiceClient.h"

namespace Kv {
namespace Accessory {

// Sends the request that `fill` prepares; gives the reply to `onReply` (when
// given) and returns the reply's result, KVP_ERROR_NO_DEVICE when the service
// can't be reached, or KVP_ERROR_GENERAL on any other failure.
inline int callService(const std::function<void(wire::Request&)>& fill,
                       const std::function<void(const wire::Reply&)>& onReply = nullptr) {
    try {
        wire::Request request;
        fill(request);
        std::optional<wire::Reply> reply = ServiceClient::instance().call(std::move(request));
        if (!reply) {
            return KVP_ERROR_NO_DEVICE;
        }
        if (onReply) {
            onReply(*reply);
        }
        return reply->result();
    } catch (const std::exception& error) {
        LoggerE("request failed: " << error.what());
    } catch (...) {
        LoggerE("request failed");
    }
    return KVP_ERROR_GENERAL;
}

}  // namespace Accessory
}  // namespace Kv

#endif
