// The bridge's file transfers: sending, receiving and cancelling files, the
// four functions of the file-transfer notification table that the client
// library calls, and the routing of those notifications to the agents' file
// transfers.
#include "KvAgent.h"
#include "KvClientCall.h"
#include "KvFileTransfer.h"
#include "KvIdleCallback.h"
#include "KvProxy.h"
#include "KvUtils.h"

#include <Logger.h>

#include <cstdlib>
#include <cstring>

namespace DeviceAPI {
namespace KVP {

namespace {

// The library's file-transfer notifications run their handlers through the
// proxy's routing, as its service notifications do.
const auto route = &KvProxy::routeNotification;

// A path as the library takes it: a buffer of KVP_PATH_BUFFER_SIZE bytes
// holding at most 255 characters, always terminated.
struct PathBuffer {
    explicit PathBuffer(const std::string& path) {
        std::strncpy(text, path.c_str(), KVP_PATH_BUFFER_SIZE - 1);
        text[KVP_PATH_BUFFER_SIZE - 1] = '\0';
    }
    char text[KVP_PATH_BUFFER_SIZE];
};

// The file send error code of a failed transfer status. The two tables
// differ on purpose: sending and receiving have their own code lists.
int sendErrorOf(int status) {
    switch (status) {
        case KVP_FILE_CHANNEL_IO:
            return KV_FILE_SEND_PEER_CHANNEL_IO;
        case KVP_FILE_IO:
            return KV_FILE_SEND_FILE_IO;
        case KVP_FILE_CANCELLED:
            return KV_FILE_SEND_UNKNOWN_ERROR;
        case KVP_FILE_NO_RESPONSE:
            return KV_FILE_SEND_PEER_NO_RESPONSE;
        case KVP_FILE_CONNECTION_LOST:
            return KV_FILE_SEND_PEER_CONN_LOST;
        case KVP_FILE_REJECTED:
            return KV_FILE_SEND_PEER_REJECTED;
        case KVP_FILE_NO_SPACE:
            return KV_FILE_SEND_SPACE_NOT_AVAILABLE;
        default:
            LoggerW("File send failed with wrong status : " << status);
            return KV_FILE_SEND_UNKNOWN_ERROR;
    }
}

int receiveErrorOf(int status) {
    switch (status) {
        case KVP_FILE_CHANNEL_IO:
            return KV_FILE_RECEIVE_PEER_CHANNEL_IO;
        case KVP_FILE_IO:
            return KV_FILE_RECEIVE_FILE_IO;
        case KVP_FILE_CANCELLED:
            return KV_FILE_RECEIVE_UNKNOWN_ERROR;
        case KVP_FILE_NO_RESPONSE:
            return KV_FILE_RECEIVE_PEER_NO_RESPONSE;
        case KVP_FILE_CONNECTION_LOST:
            return KV_FILE_RECEIVE_PEER_CONN_LOST;
        case KVP_FILE_REJECTED:
            return KV_FILE_RECEIVE_PEER_REJECTED;
        case KVP_FILE_NO_SPACE:
            return KV_FILE_RECEIVE_SPACE_NOT_AVAILABLE;
        default:
            LoggerW("File receive failed with wrong status : " << status);
            return KV_FILE_RECEIVE_UNKNOWN_ERROR;
    }
}

}  // namespace

KvFileTransferPtr KvProxy::findFileTransfer(unsigned long agentId) const {
    const KvAgentPtr agent = findAgent(agentId);
    return agent != nullptr ? agent->getKvFileTransfer() : nullptr;
}

int KvProxy::sendFile(const KvFileTransferPtr& fileTransfer, const KvPeerAgentPtr& peerAgent,
                      const std::string& path) {
    LoggerI("called");
    const KvAgentPtr agent = fileTransfer->getKvAgent();
    const unsigned long agentId = agent != nullptr ? agent->getAgentId() : 0;
    PathBuffer buffer(path);
    LoggerI(">>>>>> ::pushFile()");
    int transactionId = pushFile(buffer.text, peerAgent->getRecord(), agentId);
    LoggerI(">>>>>> ::pushFile returns (transactionId : " << transactionId << ")");
    if (transactionId != KVP_ERROR_GENERAL) {
        sendTransactions[transactionId] = agentId;
        return transactionId;
    }
    LoggerE("sendFile failed.");
    transactionId = std::rand();
    KvIdleCallback<KvFileTransfer>::post(fileTransfer, [transactionId](KvFileTransfer& target) {
        target.onFileSendError(KV_FILE_SEND_FILE_IO, transactionId);
    });
    return transactionId;
}

bool KvProxy::receiveFile(const KvFileTransferPtr& fileTransfer, int transactionId,
                          const std::string& path, bool accept) {
    LoggerI("called");
    PathBuffer buffer(path);
    const int result = KvClientCall::call(
        "receiveFile", [&] { return ::receiveFile(transactionId, buffer.text, accept ? 1 : 0); });
    if (result == KVP_SUCCESS) {
        const KvAgentPtr agent = fileTransfer->getKvAgent();
        receiveTransactions[transactionId] = agent != nullptr ? agent->getAgentId() : 0;
        receivePaths[transactionId] = path;
    } else {
        KvClientCall::isKnownResult("receiveFile", result);
    }
    return result != KVP_SUCCESS;
}

int KvProxy::cancelFile(const KvFileTransferPtr& /*fileTransfer*/, int transactionId) {
    LoggerI("called");
    const bool receiving = receiveTransactions.count(transactionId) != 0;
    if (!receiving && sendTransactions.count(transactionId) == 0) {
        return CANCEL_FILE_NO_TRANSFER;
    }
    LoggerI((receiving ? "Canceling receiving file" : "Canceling sending file"));
    const int result =
        KvClientCall::call("cancelFile", [transactionId] { return ::cancelFile(transactionId); });
    if (result == KVP_SUCCESS) {
        return CANCEL_FILE_DONE;
    }
    KvClientCall::isKnownResult("cancelFile", result);
    return CANCEL_FILE_REFUSED;
}

void KvProxy::OnSendFile(int transactionId, const char* fileName, unsigned long agentId) {
    const KvAgentPtr agent = findAgent(agentId);
    if (agent == nullptr) {
        LoggerE("No related KvAgent object");
        return;
    }
    const KvFileTransferPtr fileTransfer = agent->getKvFileTransfer();
    if (fileTransfer == nullptr) {
        LoggerE("No KvFileTransfer object");
        return;
    }
    fileTransfer->onFileReceive(transactionId,
                                unescapeSlashes(fileName != nullptr ? fileName : ""));
}

void KvProxy::OnFileProgress(int transactionId, int progress) {
    const auto receive = receiveTransactions.find(transactionId);
    const auto send = sendTransactions.find(transactionId);
    if (receive == receiveTransactions.end() && send == sendTransactions.end()) {
        LoggerW("there is no transactionId:" << transactionId);
        return;
    }
    const bool receiving = receive != receiveTransactions.end();
    const KvFileTransferPtr fileTransfer =
        findFileTransfer(receiving ? receive->second : send->second);
    if (fileTransfer == nullptr) {
        LoggerW("there is no opened fileTransfer");
        return;
    }
    if (receiving) {
        fileTransfer->onFileReceiveProgress(transactionId, progress);
    } else {
        fileTransfer->onFileSendProgress(transactionId, progress);
    }
}

void KvProxy::OnSendComplete(int transactionId, const char* path, int status) {
    const auto found = sendTransactions.find(transactionId);
    if (found == sendTransactions.end()) {
        LoggerW("there is no transactionId:" << transactionId);
        return;
    }
    const unsigned long agentId = found->second;
    sendTransactions.erase(found);
    const KvFileTransferPtr fileTransfer = findFileTransfer(agentId);
    if (fileTransfer == nullptr) {
        LoggerW("there is no opened fileTransfer");
        return;
    }
    if (status == KVP_FILE_DONE) {
        fileTransfer->onFileSendComplete(transactionId, path != nullptr ? path : "");
    } else {
        fileTransfer->onFileSendError(sendErrorOf(status), transactionId);
    }
}

void KvProxy::OnReceiveComplete(int transactionId, const char* path, int status) {
    const auto found = receiveTransactions.find(transactionId);
    if (found == receiveTransactions.end()) {
        LoggerW("there is no transactionId:" << transactionId);
        return;
    }
    const unsigned long agentId = found->second;
    receiveTransactions.erase(found);
    std::string finalPath = path != nullptr ? path : "";
    const auto stored = receivePaths.find(transactionId);
    if (stored != receivePaths.end()) {
        if (path == nullptr) {
            finalPath = stored->second;
        }
        receivePaths.erase(stored);
    }
    const KvFileTransferPtr fileTransfer = findFileTransfer(agentId);
    if (fileTransfer == nullptr) {
        LoggerW("there is no opened fileTransfer");
        return;
    }
    if (status == KVP_FILE_DONE) {
        fileTransfer->onFileReceiveComplete(transactionId, finalPath);
    } else {
        fileTransfer->onFileReceiveError(receiveErrorOf(status), transactionId);
    }
}

void kvp_OnSendFile(int transactionId, const char* fileName, unsigned int agentId) {
    route("OnSendFile", [=](KvProxy& proxy) {
        char name[KVP_PATH_BUFFER_SIZE];
        std::strncpy(name, fileName != nullptr ? fileName : "", sizeof name - 1);
        name[sizeof name - 1] = '\0';
        proxy.OnSendFile(transactionId, name, agentId);
    });
}

void kvp_OnSendComplete(int transactionId, const char* path, int status) {
    route("OnSendComplete",
          [=](KvProxy& proxy) { proxy.OnSendComplete(transactionId, path, status); });
}

void kvp_OnReceiveComplete(int transactionId, const char* path, int status) {
    route("OnReceiveComplete",
          [=](KvProxy& proxy) { proxy.OnReceiveComplete(transactionId, path, status); });
}

void kvp_OnFileProgress(int transactionId, int progress) {
    route("OnFileProgress", [=](KvProxy& proxy) { proxy.OnFileProgress(transactionId, progress); });
}

}  // namespace KVP
}  // namespace DeviceAPI
