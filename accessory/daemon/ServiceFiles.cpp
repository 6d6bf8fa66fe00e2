// File transfer: a file offered to a peer agent, accepted or rejected by its
// app, sent in chunks behind the link's other traffic, and ended (done,
// cancelled, failed or cut by the link) on both devices. A received file is
// written under a temporary name and takes its final name only when whole.
#include <Logger.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/FileAccess.h>
#include <kv-device/Storage.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Service.h"

namespace Kv {
namespace Accessory {

namespace {

constexpr std::chrono::seconds kAnswerTimeout(30);
// An agent takes at most this many files at once; a further offer is
// refused as the agent's app would refuse it.
constexpr std::size_t kMaxIncomingTransfers = 4;

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

std::string folderName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// Files received into the default folder never replace one that is there.
bool keepsExistingFiles(const std::string& path) {
    return folderName(path) == Device::kDownloadsRoot;
}

// Whether the app of `package` may name `path`: the rule apps are held to
// everywhere, and where the links of the path really lead.
bool appMayUse(const std::string& path, const std::string& package) {
    return Device::appMayUseFile(path, package) && Device::resolvesInside(path, package, localPath);
}

// What a failed write on the receiving side means for both sides.
wire::FileStatus writeFailure(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG ? wire::FILE_NO_SPACE
                                                                : wire::FILE_IO;
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

std::string Service::packageOf(SessionId id) const {
    auto session = m_sessions.find(id);
    if (session == m_sessions.end() || session->second.appId.empty()) {
        return {};
    }
    const std::optional<Device::AppInfo> app = Device::findApp(session->second.appId);
    return app ? app->package : std::string();
}

std::size_t Service::incomingTransfers(std::uint32_t agentId) const {
    std::size_t count = 0;
    for (const auto& [id, transfer] : m_transfers) {
        count += !transfer.sending && transfer.agentId == agentId ? 1 : 0;
    }
    return count;
}

wire::Reply Service::pushFile(SessionId id, const wire::PushFile& request) {
    Agent* agent = ownAgent(id, request.agent_id());
    if (agent == nullptr || !request.has_peer() || request.path().empty()) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (!linked()) {
        return resultReply(wire::RESULT_NO_DEVICE);
    }
    if (request.peer().accessory_id() != m_linkSession) {
        return resultReply(wire::RESULT_NO_DEVICE);
    }
    if (!appMayUse(request.path(), packageOf(id))) {
        LoggerW("refused to send " << request.path() << ": outside the app's folders");
        return resultReply(wire::RESULT_INVALID);
    }
    auto source = std::make_shared<std::ifstream>(localPath(request.path()),
                                                  std::ios::binary | std::ios::ate);
    if (!source->is_open()) {
        LoggerW("cannot read " << request.path());
        return resultReply(wire::RESULT_GENERAL);
    }
    Transfer transfer;
    transfer.id = transfer.offerId = m_nextTransfer++;
    transfer.agentId = agent->id;
    transfer.sending = true;
    transfer.path = request.path();
    transfer.size = static_cast<std::uint64_t>(source->tellg());
    source->seekg(0);
    transfer.source = source;
    const int transactionId = transfer.id;
    transfer.timer = std::make_shared<asio::steady_timer>(m_io, kAnswerTimeout);
    transfer.timer->async_wait([this, transactionId](const asio::error_code& error) {
        auto found = m_transfers.find(transactionId);
        if (!error && found != m_transfers.end() && !found->second.flowing) {
            finishTransfer(transactionId, wire::FILE_NO_RESPONSE, wire::FILE_NO_RESPONSE);
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
    wire::Reply reply = resultReply(wire::RESULT_SUCCESS);
    reply.set_value(transactionId);
    return reply;
}

void Service::onFileOffer(const wire::FileOffer& offer) {
    auto agent = m_agents.find(offer.to_agent_id());
    const bool busy =
        agent != m_agents.end() && incomingTransfers(agent->first) >= kMaxIncomingTransfers;
    if (agent == m_agents.end() || busy) {
        LoggerI("file offer " << offer.transaction_id()
                              << " refused: " << (busy ? "the agent is busy" : "no such agent"));
        wire::LinkMessage end;
        end.mutable_file_end()->set_transaction_id(offer.transaction_id());
        end.mutable_file_end()->set_status(wire::FILE_REJECTED);
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
    if (transfer == nullptr || transfer->sending || transfer->flowing ||
        (request.accept() && request.path().empty())) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (request.accept() && !appMayUse(request.path(), packageOf(id))) {
        LoggerW("refused to receive into " << request.path() << ": outside the app's folders");
        return resultReply(wire::RESULT_INVALID);
    }
    if (!request.accept()) {
        wire::LinkMessage answer;
        answer.mutable_file_answer()->set_transaction_id(transfer->offerId);
        answer.mutable_file_answer()->set_accept(false);
        sendLink(answer);
        m_transfers.erase(transfer->id);
        return resultReply(wire::RESULT_SUCCESS);
    }
    acceptOffer(*transfer, request.path());
    return resultReply(wire::RESULT_SUCCESS);
}

// Opens the file the offer will be written to and lets the sender start;
// a file that can't be made, or has no room, ends the transfer on both sides.
void Service::acceptOffer(Transfer& transfer, const std::string& path) {
    transfer.path = path;
    const std::string local = localPath(path);
    const std::optional<std::uint64_t> room = Device::freeSpace(folderName(local));
    if (room && *room < transfer.size) {
        LoggerW("no room for " << path << ": " << transfer.size << " bytes, " << *room << " free");
        finishTransfer(transfer.id, wire::FILE_NO_SPACE, wire::FILE_NO_SPACE);
        return;
    }
    try {
        transfer.target = std::make_shared<PartialFile>(local, m_partialFilesDir, transfer.id);
    } catch (const std::system_error& error) {
        LoggerW(error.what());
        finishTransfer(transfer.id, writeFailure(error.code().value()), wire::FILE_CHANNEL_IO);
        return;
    }
    transfer.flowing = true;
    wire::LinkMessage answer;
    answer.mutable_file_answer()->set_transaction_id(transfer.offerId);
    answer.mutable_file_answer()->set_accept(true);
    sendLink(answer);
}

void Service::onFileAnswer(const wire::FileAnswer& answer) {
    Transfer* transfer = transferByOffer(answer.transaction_id(), true);
    if (transfer == nullptr || transfer->flowing) {
        return;
    }
    if (!answer.accept()) {
        finishTransfer(transfer->id, wire::FILE_REJECTED, std::nullopt);
        return;
    }
    if (transfer->cancelling) {
        return;  // the receiver answers the cancel that crossed its acceptance
    }
    transfer->timer->cancel();
    transfer->flowing = true;
    if (m_trace.active()) {
        traceTransfer(wire::TraceEvent::FILE_ACCEPTED, *transfer);
    }
    pumpFile(transfer->id);
}

void Service::pumpFile(int transactionId) {
    auto found = m_transfers.find(transactionId);
    if (found == m_transfers.end() || !found->second.flowing || found->second.cancelling ||
        !linked()) {
        return;
    }
    Transfer& transfer = found->second;
    // The sender stops feeding the link while a backlog is queued on it, and
    // goes on when the link has written it down to half.
    const std::size_t backlog = m_profile.fileBacklogBytes();
    while (transfer.done < transfer.size && m_link->queuedBytes() < backlog) {
        wire::LinkMessage message;
        message.mutable_file_chunk()->set_transaction_id(transfer.offerId);
        std::string* chunk = message.mutable_file_chunk()->mutable_data();
        chunk->resize(static_cast<std::size_t>(
            std::min<std::uint64_t>(m_profile.fileChunkBytes(), transfer.size - transfer.done)));
        transfer.source->read(chunk->data(), static_cast<std::streamsize>(chunk->size()));
        const auto count = static_cast<std::size_t>(transfer.source->gcount());
        if (count == 0) {
            finishTransfer(transactionId, wire::FILE_IO, wire::FILE_CHANNEL_IO);
            return;
        }
        chunk->resize(count);
        sendLink(message, kPriorityLow);
        transfer.done += count;
        reportProgress(transfer);
        if (countFileBytes(transactionId, count)) {
            break;  // a fault is due here
        }
    }
    if (transfer.done >= transfer.size) {
        // All of it is on its way. The transfer ends when the receiver has
        // the whole file under its name, or tells why not; until then the
        // sender's app is not told that it was sent.
        wire::LinkMessage end;
        end.mutable_file_end()->set_transaction_id(transfer.offerId);
        end.mutable_file_end()->set_status(wire::FILE_DONE);
        sendLink(end, kPriorityLow);
        return;
    }
    m_link->whenDrained(backlog / 2, [this, transactionId] { pumpFile(transactionId); });
}

void Service::reportProgress(Transfer& transfer) {
    const int progress = percentDone(transfer);
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
    const std::string& data = chunk.data();
    if (transfer->done + data.size() > transfer->size) {
        LoggerW("file transfer " << transfer->id << ": more data than offered");
        finishTransfer(transfer->id, wire::FILE_IO, wire::FILE_CHANNEL_IO);
        return;
    }
    if (!storageHasRoomFor(data.size())) {
        LoggerW("no room left for " << transfer->path << " after " << transfer->done << " of "
                                    << transfer->size << " bytes");
        finishTransfer(transfer->id, wire::FILE_NO_SPACE, wire::FILE_NO_SPACE);
        return;
    }
    if (!transfer->target->write(data.data(), data.size())) {
        const wire::FileStatus status = writeFailure(errno);
        LoggerW("cannot write " << transfer->path << ": " << std::strerror(errno));
        finishTransfer(transfer->id, status,
                       status == wire::FILE_NO_SPACE ? status : wire::FILE_CHANNEL_IO);
        return;
    }
    transfer->done += data.size();
    reportProgress(*transfer);
    countFileBytes(transfer->id, data.size());
}

// The emulated free storage is shared by every file being received; what
// they have written so far is taken from it.
bool Service::storageHasRoomFor(std::uint64_t bytes) const {
    const std::optional<std::uint64_t> free = Device::emulatedFreeSpace();
    if (!free) {
        return true;  // the file system itself tells, when a write fails
    }
    std::uint64_t written = 0;
    for (const auto& [id, transfer] : m_transfers) {
        written += transfer.sending ? 0 : transfer.done;
    }
    return written + bytes <= *free;
}

void Service::onFileEnd(const wire::FileEnd& end) {
    Transfer* transfer = transferByOffer(end.transaction_id(), end.to_sender());
    if (transfer == nullptr) {
        return;
    }
    if (end.status() == wire::FILE_DONE && !transfer->sending) {
        completeReceive(*transfer);
        return;
    }
    // The sender waits for the answer to its cancel: the receiver confirms it.
    const bool confirmsCancel = !transfer->sending && end.status() == wire::FILE_CANCELLED;
    finishTransfer(transfer->id, end.status(),
                   confirmsCancel ? std::optional(wire::FILE_CANCELLED) : std::nullopt);
}

// The sender sent everything: the file takes its final name, and the sender
// learns that it arrived.
void Service::completeReceive(Transfer& transfer) {
    if (!transfer.target || transfer.done != transfer.size) {
        finishTransfer(transfer.id, wire::FILE_IO, wire::FILE_CHANNEL_IO);
        return;
    }
    try {
        const std::string local = transfer.target->commit(keepsExistingFiles(transfer.path));
        Device::takeEmulatedSpace(transfer.size);
        const std::string path = folderName(transfer.path) + baseName(local);
        finishTransfer(transfer.id, wire::FILE_DONE, wire::FILE_DONE, path);
    } catch (const std::system_error& error) {
        LoggerW(error.what());
        finishTransfer(transfer.id, writeFailure(error.code().value()), wire::FILE_CHANNEL_IO);
    }
}

// A receiver's cancel ends its transfer at once and reaches the sender as a
// refusal of the rest of the file. A sender's cancel is the receiver's to
// settle: the whole file may be there already, under its name, with the
// receiver's report of it on the way back. So the sender stops sending, asks
// the receiver to cancel, and ends the transfer as the receiver answers:
// cancelled, or done when the file had arrived first. Both sides are told
// the same outcome; a link lost meanwhile ends it on both as lost.
wire::Reply Service::cancelFile(SessionId id, int transactionId) {
    Transfer* transfer = ownTransfer(id, transactionId);
    if (transfer == nullptr) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (!transfer->sending) {
        finishTransfer(transactionId, wire::FILE_CANCELLED, wire::FILE_REJECTED);
        return resultReply(wire::RESULT_SUCCESS);
    }
    if (!transfer->cancelling) {
        transfer->cancelling = true;
        LoggerI("file transfer " << transactionId << ": cancel asked of the receiver");
        wire::LinkMessage end;
        end.mutable_file_end()->set_transaction_id(transfer->offerId);
        end.mutable_file_end()->set_status(wire::FILE_CANCELLED);
        end.mutable_file_end()->set_to_sender(false);
        sendLink(end, kPriorityLow);
    }
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::finishTransfer(int transactionId, wire::FileStatus status,
                             std::optional<wire::FileStatus> peerStatus, const std::string& path) {
    auto found = m_transfers.find(transactionId);
    if (found == m_transfers.end()) {
        return;
    }
    Transfer transfer = std::move(found->second);
    m_transfers.erase(found);
    if (peerStatus) {
        wire::LinkMessage end;
        end.mutable_file_end()->set_transaction_id(transfer.offerId);
        end.mutable_file_end()->set_status(*peerStatus);
        end.mutable_file_end()->set_to_sender(!transfer.sending);
        sendLink(end, kPriorityLow);
    }
    if (transfer.timer) {
        transfer.timer->cancel();
    }
    transfer.target.reset();  // an unfinished file goes with it
    LoggerI("file transfer " << transactionId << " ended with status " << status);
    wire::Event event;
    auto* done = event.mutable_file_done();
    done->set_transaction_id(transactionId);
    done->set_path(path.empty() ? transfer.path : path);
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
        finishTransfer(transactionId, wire::FILE_CONNECTION_LOST, wire::FILE_CONNECTION_LOST);
    }
}

}  // namespace Accessory
}  // namespace Kv
