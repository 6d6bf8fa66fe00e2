// The client library's C interface: notification tables, agents,
// discovery, connections and data.
#include <kv-accessory/TraceClock.h>
#include <kvp-client-stub-api.h>

#include "ClientCall.h"

using Kv::Accessory::callService;
using Kv::Accessory::ServiceClient;
using Kv::Accessory::toWirePeer;
using Kv::Accessory::traceClockMicros;
namespace wire = kv::accessory::wire;

extern "C" {

int isKvpConnected(void) {
    try {
        return ServiceClient::instance().attached() ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

int registerNotifications(kvp_notifications_t notifications) {
    try {
        ServiceClient::instance().dispatcher().setNotifications(notifications);
        return KVP_SUCCESS;
    } catch (...) {
        return KVP_ERROR_GENERAL;
    }
}

void registerFTNotifications(kvp_ft_notifications_t notifications) {
    try {
        ServiceClient::instance().dispatcher().setFileNotifications(notifications);
    } catch (...) {
        LoggerE("cannot keep the file-transfer notifications");
    }
}

int deregisterNotifications(void) {
    try {
        ServiceClient::instance().dispatcher().clear();
        return KVP_SUCCESS;
    } catch (...) {
        return KVP_ERROR_GENERAL;
    }
}

int getRegisteredServiceAgent(char* profileId, int isConsumer) {
    if (profileId == nullptr || profileId[0] == '\0') {
        return KVP_ERROR_INVALID;
    }
    return callService([&](wire::Request& request) {
        request.mutable_register_agent()->set_profile_id(profileId);
        request.mutable_register_agent()->set_consumer(isConsumer != 0);
    });
}

int deRegisterServiceAgent(unsigned int agentId) {
    return callService(
        [&](wire::Request& request) { request.mutable_deregister_agent()->set_agent_id(agentId); });
}

int findPeerAgent(unsigned int agentId) {
    return callService(
        [&](wire::Request& request) { request.mutable_find_peers()->set_agent_id(agentId); });
}

int createServiceConnection(unsigned int agentId, const kvp_peer_agent_t* peer) {
    if (peer == nullptr) {
        return KVP_ERROR_INVALID;
    }
    const int result = callService([&](wire::Request& request) {
        request.mutable_create_connection()->set_agent_id(agentId);
        *request.mutable_create_connection()->mutable_peer() = toWirePeer(*peer);
    });
    // Whatever kept the request from being taken, the app hears of it as a
    // request the service could not carry out.
    return result == KVP_SUCCESS ? KVP_SUCCESS : KVP_ERROR_GENERAL;
}

static int answerConnection(unsigned int agentId, unsigned int connectionId, bool accept) {
    const int result = callService([&](wire::Request& request) {
        auto* answer =
            accept ? request.mutable_accept_connection() : request.mutable_reject_connection();
        answer->set_agent_id(agentId);
        answer->set_connection_id(connectionId);
    });
    if (result == KVP_SUCCESS && accept) {
        ServiceClient::instance().connectionAccepted(connectionId);
        ServiceClient::instance().holdUntilIdleWorkRan();
    }
    return result;
}

int acceptServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* /*peer*/) {
    return answerConnection(agentId, connectionId, true);
}

int rejectServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* /*peer*/) {
    return answerConnection(agentId, connectionId, false);
}

int terminateServiceConnection(unsigned int connectionId) {
    // Ended for the app's sends from now on, whatever the service answers.
    ServiceClient::instance().connectionEnded(connectionId);
    return callService([&](wire::Request& request) {
        request.mutable_terminate_connection()->set_connection_id(connectionId);
    });
}

static int send(unsigned int connectionId, unsigned short channelId, unsigned int length,
                const char* data, bool secure) {
    // More than any link carries is a bad argument: it would not even fit a
    // request, and nothing of it is sent.
    if ((data == nullptr && length > 0) || length > KVP_MAX_DATA_SIZE) {
        return KVP_ERROR_INVALID;
    }
    const std::string_view bytes(data != nullptr ? data : "", length);
    const auto fill = [&](wire::Request& request) {
        auto* send = request.mutable_send_data();
        send->set_connection_id(connectionId);
        send->set_channel_id(channelId);
        send->set_secure(secure);
        send->set_sent_at_us(traceClockMicros());
    };
    // What will surely be taken goes without waiting for the service's
    // answer, its data copied straight into the frame; anything else waits
    // for it, to tell the app what went wrong.
    try {
        ServiceClient& client = ServiceClient::instance();
        client.takeArrived();
        if (client.canSendWithoutWaiting(connectionId, channelId, length, secure)) {
            wire::Request request;
            fill(request);
            request.mutable_send_data()->set_no_reply(true);
            return client.post(std::move(request), bytes) ? KVP_SUCCESS : KVP_ERROR_NO_DEVICE;
        }
    } catch (const std::exception& error) {
        LoggerE("send failed: " << error.what());
        return KVP_ERROR_GENERAL;
    }
    return callService([&](wire::Request& request) {
        fill(request);
        request.mutable_send_data()->set_data(std::string(bytes));
    });
}

int sendData(unsigned int connectionId, unsigned short channelId, unsigned int length,
             const char* data) {
    return send(connectionId, channelId, length, data, false);
}

int sendSecureData(unsigned int connectionId, unsigned short channelId, unsigned int length,
                   const char* data) {
    return send(connectionId, channelId, length, data, true);
}

int authenticatePeerAgent(unsigned int agentId, const kvp_peer_agent_t* peer) {
    if (peer == nullptr) {
        return KVP_ERROR_INVALID;
    }
    return callService([&](wire::Request& request) {
        request.mutable_authenticate()->set_agent_id(agentId);
        *request.mutable_authenticate()->mutable_peer() = toWirePeer(*peer);
    });
}

}  // extern "C"
