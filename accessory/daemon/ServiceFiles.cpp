// File transfer: a file offered to a peer agent, accepted or rejected by its
// app, sent in chunks behind the link's other traffic, and ended (done,
// cancelled, failed or cut by the link) on both devices.
#include <Logger.h>
#include <kv-device/Device.h>
#include <kvp-client-stub-api.h>

#include <cerrno>
#include <cstdio>

#include "Service.h"

namespace Kv {
namespace Accessory {

namespace {

// File transfer statuses of the client library.
constexpr int kDone = 0;
constexpr int kFileIo = 1;
constexpr int kChannelIo = 3;
constexpr int kNoResponse = 4;
constexpr int kConnectionLost = 5;
constexpr int kRejected = 9;
constexpr int kNoSpace = 11;

constexpr std::size_t kChunkSize = 64 * 1024;
// The sender stops feeding the link while this much is queued on it.
constexpr std::size_t kLinkBacklog = 1024 * 1024;
constexpr std::chrono::milliseconds kPumpPause(5);
constexpr std::chrono::seconds kAnswerTimeout(30);

wire::Reply result(int code) {
    wire::Reply reply;
    reply.set_result(code);
    return reply;
}

// Where a device path is for this process: itself inside the device, the
// device folder's copy when the daemon could not enter it.
std::string localPath(const std::string& path) {
    if (path.rfind("/opt/", 0) == 0 && !Device::entered()) {
        return Device::hostPath(path);
    }
    return path;
}

std::string baseName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

Service::Transfer* Service::ownTransfer(SessionId id, int transactionId) {
    auto found = m_transfers.find(transactionId);
    if (found == m_transfers.end() || ownAgent(id, found->second.agentId) == nullptr) {
        return nullptr;
    }
    return &found->second;
}

Service::Transfer* Service::transferByOffer(int offerId, bool sending) {
    for (auto& [id, transfer] : m_transfers) {
        if (transfer.offerId == offerId && transfer.sending == sending) {
            return &transfer;
        }
    }
    return nullptr;
}

wire::Reply Service::pushFile(SessionId id, const wire::PushFile& request) {
    Agent* agent = ownAgent(id, request.agent_id());
    if (agent == nullptr || !request.has_peer() || request.path().empty()) {
        return result(KVP_ERROR_INVALID);
    }
    if (!linked() || request.peer().accessory_id() != m_linkSession) {
        return result(KVP_ERROR_NO_DEVICE);
    }
    auto file = std::make_shared<std::fstream>(localPath(request.path()),
                                               std::ios::in | std::ios::binary | std::ios::ate);
    if (!file->is_open()) {
        LoggerW("cannot read " << request.path());
        return result(KVP_ERROR_GENERAL);
    }
    Transfer transfer;
    transfer.id = transfer.offerId = m_nextTransfer++;
    transfer.agentId = agent->id;
    transfer.sending = true;
    transfer.path = request.path();
    transfer.size = static_cast<std::uint64_t>(file->tellg());
    file->seekg(0);
    transfer.file = file;
    const int transactionId = transfer.id;
    transfer.timer = std::make_shared<asio::steady_timer>(m_io, kAnswerTimeout);
    transfer.timer->async_wait([this, transactionId](const asio::error_code& error) {
        auto found = m_transfers.find(transactionId);
        if (!error && found != m_transfers.end() && !found->second.flowing) {
            finishTransfer(transactionId, kNoResponse, kNoResponse);
        }
    });
    m_transfers[transactionId] = transfer;
    wire::LinkMessage offer;
    auto* body = offer.mutable_file_offer();
    body->set_transaction_id(transactionId);
    body->set_from_agent_id(agent->id);
    body->set_to_agent_id(request.peer().peer_agent_id());
    body->set_file_name(baseName(request.path()));
    body->set_size(transfer.size);
    sendLink(offer);
    wire::Reply reply = result(KVP_SUCCESS);
    reply.set_value(transactionId);
    return reply;
}

void Service::onFileOffer(const wire::FileOffer& offer) {
    auto agent = m_agents.find(offer.to_agent_id());
    if (agent == m_agents.end()) {
        wire::LinkMessage end;
        end.mutable_file_end()->set_transaction_id(offer.transaction_id());
        end.mutable_file_end()->set_status(kRejected);
        end.mutable_file_end()->set_to_sender(true);
        sendLink(end);
        return;
    }
    Transfer transfer;
    transfer.id = m_nextTransfer++;
    transfer.offerId = offer.transaction_id();
    transfer.agentId = agent->first;
    transfer.size = offer.size();
    m_transfers[transfer.id] = transfer;
    wire::Event event;
    event.mutable_file_offered()->set_transaction_id(transfer.id);
    event.mutable_file_offered()->set_file_name(offer.file_name());
    event.mutable_file_offered()->set_agent_id(agent->first);
    notify(agent->second.session, event);
}

wire::Reply Service::receiveFile(SessionId id, const wire::ReceiveFile& request) {
    Transfer* transfer = ownTransfer(id, request.transaction_id());
    if (transfer == nullptr || transfer->sending || transfer->flowing) {
        return result(KVP_ERROR_INVALID);
    }
    wire::LinkMessage answer;
    answer.mutable_file_answer()->set_transaction_id(transfer->offerId);
    answer.mutable_file_answer()->set_accept(request.accept());
    if (!request.accept()) {
        sendLink(answer);
        m_transfers.erase(transfer->id);
        return result(KVP_SUCCESS);
    }
    auto file = std::make_shared<std::fstream>(localPath(request.path()),
                                               std::ios::out | std::ios::binary | std::ios::trunc);
    if (request.path().empty() || !file->is_open()) {
        LoggerW("cannot write " << request.path());
        return result(KVP_ERROR_GENERAL);
    }
    transfer->path = request.path();
    transfer->file = file;
    transfer->flowing = true;
    sendLink(answer);
    return result(KVP_SUCCESS);
}

void Service::onFileAnswer(const wire::FileAnswer& answer) {
    Transfer* transfer = transferByOffer(answer.transaction_id(), true);
    if (transfer == nullptr || transfer->flowing) {
        return;
    }
    if (!answer.accept()) {
        finishTransfer(transfer->id, kRejected, -1);
        return;
    }
    transfer->timer->cancel();
    transfer->flowing = true;
    pumpFile(transfer->id);
}

void Service::pumpFile(int transactionId) {
    auto found = m_transfers.find(transactionId);
    if (found == m_transfers.end() || !found->second.flowing || !linked()) {
        return;
    }
    Transfer& transfer = found->second;
    std::string chunk(kChunkSize, '\0');
    while (transfer.done < transfer.size && m_link->queuedBytes() < kLinkBacklog) {
        transfer.file->read(chunk.data(), static_cast<std::streamsize>(kChunkSize));
        const auto count = static_cast<std::size_t>(transfer.file->gcount());
        if (count == 0) {
            finishTransfer(transactionId, kFileIo, kChannelIo);
            return;
        }
        wire::LinkMessage message;
        message.mutable_file_chunk()->set_transaction_id(transfer.offerId);
        message.mutable_file_chunk()->set_data(chunk.data(), count);
        sendLink(message, kPriorityLow);
        transfer.done += count;
        reportProgress(transfer);
    }
    if (transfer.done >= transfer.size) {
        wire::LinkMessage end;
        end.mutable_file_end()->set_transaction_id(transfer.offerId);
        end.mutable_file_end()->set_status(kDone);
        sendLink(end, kPriorityLow);
        finishTransfer(transactionId, kDone, -1);
        return;
    }
    transfer.timer->expires_after(kPumpPause);
    transfer.timer->async_wait([this, transactionId](const asio::error_code& error) {
        if (!error) {
            pumpFile(transactionId);
        }
    });
}

void Service::reportProgress(Transfer& transfer) {
    const int progress =
        transfer.size == 0 ? 100 : static_cast<int>(transfer.done * 100 / transfer.size);
    if (progress == transfer.progress) {
        return;
    }
    transfer.progress = progress;
    wire::Event event;
    event.mutable_file_progress()->set_transaction_id(transfer.id);
    event.mutable_file_progress()->set_progress(progress);
    notifyAgent(transfer.agentId, event);
}

void Service::onFileChunk(const wire::FileChunk& chunk) {
    Transfer* transfer = transferByOffer(chunk.transaction_id(), false);
    if (transfer == nullptr || !transfer->flowing) {
        return;
    }
    errno = 0;
    transfer->file->write(chunk.data().data(), static_cast<std::streamsize>(chunk.data().size()));
    if (!*transfer->file) {
        finishTransfer(transfer->id, errno == ENOSPC ? kNoSpace : kFileIo, kChannelIo);
        return;
    }
    transfer->done += chunk.data().size();
    reportProgress(*transfer);
}

void Service::onFileEnd(const wire::FileEnd& end) {
    Transfer* transfer = transferByOffer(end.transaction_id(), end.to_sender());
    if (transfer == nullptr) {
        return;
    }
    int status = end.status();
    if (status == kDone && !transfer->sending) {
        transfer->file->flush();
        status = *transfer->file && transfer->done == transfer->size ? kDone : kFileIo;
    }
    finishTransfer(transfer->id, status, -1);
}

wire::Reply Service::cancelFile(SessionId id, int transactionId) {
    Transfer* transfer = ownTransfer(id, transactionId);
    if (transfer == nullptr) {
        return result(KVP_ERROR_INVALID);
    }
    // The other side sees a sender's cancel as a lost transfer, a
    // receiver's as a rejection.
    finishTransfer(transactionId, kConnectionLost, transfer->sending ? kConnectionLost : kRejected);
    return result(KVP_SUCCESS);
}

void Service::finishTransfer(int transactionId, int status, int peerStatus) {
    auto found = m_transfers.find(transactionId);
    if (found == m_transfers.end()) {
        return;
    }
    Transfer transfer = found->second;
    m_transfers.erase(found);
    if (peerStatus >= 0) {
        wire::LinkMessage end;
        end.mutable_file_end()->set_transaction_id(transfer.offerId);
        end.mutable_file_end()->set_status(peerStatus);
        end.mutable_file_end()->set_to_sender(!transfer.sending);
        sendLink(end, kPriorityLow);
    }
    if (transfer.timer) {
        transfer.timer->cancel();
    }
    if (transfer.file) {
        transfer.file->close();
        if (!transfer.sending && status != kDone) {
            std::remove(localPath(transfer.path).c_str());
        }
    }
    LoggerI("file transfer " << transactionId << " ended with status " << status);
    wire::Event event;
    auto* done = event.mutable_file_done();
    done->set_transaction_id(transactionId);
    done->set_path(transfer.path);
    done->set_status(status);
    done->set_sending(transfer.sending);
    notifyAgent(transfer.agentId, event);
}

void Service::dropTransfers(std::uint32_t agentId) {
    std::vector<int> transfers;
    for (const auto& [transactionId, transfer] : m_transfers) {
        if (transfer.agentId == agentId) {
            transfers.push_back(transactionId);
        }
    }
    for (int transactionId : transfers) {
        finishTransfer(transactionId, kConnectionLost, kConnectionLost);
    }
}

}  // namespace Accessory
}  // namespace Kv
