#include "KvFileTransfer.h"

#include "KvAgent.h"
#include "KvListenerRequest.h"
#include "KvProxy.h"
#include "KvUtils.h"

#include <Commons/Exception.h>
#include <Logger.h>
#include <kv-device/Paths.h>

#include <memory>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::EventRequestReceiver;
using WrtDeviceApis::Commons::ExceptionCodes;
using WrtDeviceApis::Commons::ThreadEnum;

namespace {

// The service's path of a URI, or "" after logging "Invalid file scheme".
std::string pathOfUri(const std::string& uri) {
    std::string path = isValidFileUri(uri) ? convertUriToPath(uri) : std::string();
    if (path.empty()) {
        LoggerW("Invalid file scheme");
    }
    return path;
}

}  // namespace

KvFileTransfer::KvFileTransfer(const KvAgentPtr& owner)
    : EventRequestReceiver<EventKvFileTransferSendFile>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvFileTransferReceiveFile>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvFileTransferRejectFile>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvFileTransferCancelFile>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvFileTransferSetFileSendListener>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvFileTransferSetFileReceiveListener>(ThreadEnum::NULL_THREAD),
      agent(owner),
      defaultFilePath(Kv::Device::kDownloadsRoot) {}

KvFileTransfer::~KvFileTransfer() = default;

void KvFileTransfer::OnRequestReceived(const DPL::SharedPtr<EventKvFileTransferSendFile>& event) {
    LoggerI("called");
    const std::string path = pathOfUri(event->fileUri);
    if (path.empty()) {
        event->setExceptionCode(ExceptionCodes::InvalidArgumentException);
        return;
    }
    const int transferId =
        KvProxySingleton::Instance().sendFile(shared_from_this(), event->peerAgent, path);
    // Not reached with our bridge: its sendFile always answers a non-negative
    // id (a refused push gets a random one and a later FILE_IO error through
    // the send listener). Kept for a bridge that answers a refusal at once.
    if (transferId < 0) {
        LoggerW("sendFile failed");
        event->setExceptionCode(ExceptionCodes::PlatformException);
        return;
    }
    event->transferId = transferId;
    event->setExceptionCode(ExceptionCodes::None);
}

std::string KvFileTransfer::destinationOf(const std::string& savePath,
                                          const std::string& fileName) const {
    if (!savePath.empty()) {
        return pathOfUri(savePath);
    }
    LoggerI("using defaultFilePath");
    return defaultFilePath + fileName;
}

template <class Event>
bool KvFileTransfer::takeOffer(const DPL::SharedPtr<Event>& event, std::string& fileName) {
    const auto offered = receiveFileNames.find(event->transferId);
    if (offered == receiveFileNames.end()) {
        LoggerE("no transfer Id");
        event->setExceptionCode(ExceptionCodes::NotFoundException);
        return false;
    }
    fileName = offered->second;
    receiveFileNames.erase(offered);
    return true;
}

// The bridge answers only whether the library refused, so a library answer
// of 2 (an id the service doesn't know) can't reach here as code 2: it is a
// refusal like any other. An id never offered is caught before, by takeOffer.
template <class Event>
void KvFileTransfer::answerOffer(const DPL::SharedPtr<Event>& event, const std::string& destination,
                                 bool accept, const char* failure) {
    const bool refused = KvProxySingleton::Instance().receiveFile(
        shared_from_this(), event->transferId, destination, accept);
    if (refused) {
        LoggerW(failure);
        event->setExceptionCode(ExceptionCodes::PlatformException);
        return;
    }
    event->setExceptionCode(ExceptionCodes::None);
}

void KvFileTransfer::OnRequestReceived(
    const DPL::SharedPtr<EventKvFileTransferReceiveFile>& event) {
    LoggerI("called");
    std::string fileName;
    if (!takeOffer(event, fileName)) {
        return;
    }
    const std::string destination = destinationOf(event->savePath, fileName);
    if (destination.empty()) {
        event->setExceptionCode(ExceptionCodes::InvalidArgumentException);
        return;
    }
    answerOffer(event, destination, true, "receiveFile failed");
}

void KvFileTransfer::OnRequestReceived(const DPL::SharedPtr<EventKvFileTransferRejectFile>& event) {
    LoggerI("called");
    std::string fileName;
    if (takeOffer(event, fileName)) {
        answerOffer(event, "", false, "rejectFile failed");
    }
}

void KvFileTransfer::OnRequestReceived(const DPL::SharedPtr<EventKvFileTransferCancelFile>& event) {
    LoggerI("called");
    const int result =
        KvProxySingleton::Instance().cancelFile(shared_from_this(), event->transferId);
    if (result == KvProxy::CANCEL_FILE_DONE) {
        event->setExceptionCode(ExceptionCodes::None);
    } else if (result == KvProxy::CANCEL_FILE_NO_TRANSFER) {
        LoggerW("No transferId");
        event->setExceptionCode(ExceptionCodes::NotFoundException);
    } else {
        LoggerW("cancelFile failed");
        event->setExceptionCode(ExceptionCodes::PlatformException);
    }
}

void KvFileTransfer::OnRequestReceived(
    const DPL::SharedPtr<EventKvFileTransferSetFileSendListener>& event) {
    LoggerI("called");
    takeListenerEmitter(event, fileSendEmitter, "Error during set file send callback : ");
}

void KvFileTransfer::OnRequestReceived(
    const DPL::SharedPtr<EventKvFileTransferSetFileReceiveListener>& event) {
    LoggerI("called");
    takeListenerEmitter(event, fileReceiveEmitter, "Error during set file receive callback : ");
}

void KvFileTransfer::emitSend(const DPL::SharedPtr<EventInfoFileSend>& info) {
    if (fileSendEmitter == nullptr) {
        return;
    }
    auto event = std::make_shared<EventKvFileTransferFileSendListener>();
    event->info = info;
    fileSendEmitter->emit(event);
}

void KvFileTransfer::emitReceive(const DPL::SharedPtr<EventInfoFileReceive>& info) {
    if (fileReceiveEmitter == nullptr) {
        return;
    }
    auto event = std::make_shared<EventKvFileTransferFileReceiveListener>();
    event->info = info;
    fileReceiveEmitter->emit(event);
}

void KvFileTransfer::onFileReceive(int transferId, const std::string& path) {
    LoggerI("called");
    if (fileReceiveEmitter == nullptr) {
        return;
    }
    const std::string fileName = getFileName(path);
    receiveFileNames[transferId] = fileName;
    emitReceive(std::make_shared<EventInfoFileReceiveReceive>(transferId, fileName));
}

void KvFileTransfer::onFileReceiveProgress(int transferId, int progress) {
    LoggerI("called");
    emitReceive(std::make_shared<EventInfoFileReceiveProgress>(transferId, progress));
}

void KvFileTransfer::onFileReceiveComplete(int transferId, const std::string& path) {
    LoggerI("called");
    receiveFileNames.erase(transferId);
    emitReceive(std::make_shared<EventInfoFileReceiveComplete>(transferId, convertPathToUri(path)));
}

void KvFileTransfer::onFileReceiveError(int errorCode, int transferId) {
    LoggerI("called");
    receiveFileNames.erase(transferId);
    emitReceive(std::make_shared<EventInfoFileReceiveError>(transferId, errorCode));
}

void KvFileTransfer::onFileSendProgress(int transferId, int progress) {
    LoggerI("called");
    emitSend(std::make_shared<EventInfoFileSendProgress>(transferId, progress));
}

void KvFileTransfer::onFileSendComplete(int transferId, const std::string& path) {
    LoggerI("called");
    emitSend(std::make_shared<EventInfoFileSendComplete>(transferId, convertPathToUri(path)));
}

void KvFileTransfer::onFileSendError(int errorCode, int transferId) {
    LoggerI("called");
    emitSend(std::make_shared<EventInfoFileSendError>(transferId, errorCode));
}

}  // namespace KVP
}  // namespace DeviceAPI
