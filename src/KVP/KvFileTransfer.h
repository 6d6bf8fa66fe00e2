// The file transfers of one agent: sends files to peer agents and receives,
// rejects or cancels files they offer. Files are named by URI on the script
// side and by absolute path on the service side.
#ifndef KVP_KV_FILE_TRANSFER_H
#define KVP_KV_FILE_TRANSFER_H

#include "KvFileTransferEvents.h"

#include <Commons/EventReceiver.h>
#include <dpl/enable_shared_from_this.h>
#include <dpl/shared_ptr.h>

#include <map>
#include <memory>
#include <string>

namespace DeviceAPI {
namespace KVP {

class KvAgent;
typedef DPL::SharedPtr<KvAgent> KvAgentPtr;

class KvFileTransfer
    : public WrtDeviceApis::Commons::EventRequestReceiver<EventKvFileTransferSendFile>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvFileTransferReceiveFile>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvFileTransferRejectFile>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvFileTransferCancelFile>,
      public WrtDeviceApis::Commons::EventRequestReceiver<EventKvFileTransferSetFileSendListener>,
      public WrtDeviceApis::Commons::EventRequestReceiver<
          EventKvFileTransferSetFileReceiveListener>,
      public DPL::EnableSharedFromThis<KvFileTransfer> {
public:
    // The agent is not owned: the agent owns its file transfer.
    explicit KvFileTransfer(const KvAgentPtr& agent);
    ~KvFileTransfer() override;

    // The agent, or null once it is gone.
    KvAgentPtr getKvAgent() const { return agent.lock(); }
    const std::string& getDefaultFilePath() const { return defaultFilePath; }

    // Notifications from the bridge.
    virtual void onFileReceive(int transferId, const std::string& path);
    virtual void onFileSendProgress(int transferId, int progress);
    virtual void onFileReceiveProgress(int transferId, int progress);
    virtual void onFileSendComplete(int transferId, const std::string& path);
    virtual void onFileSendError(int errorCode, int transferId);
    virtual void onFileReceiveComplete(int transferId, const std::string& path);
    virtual void onFileReceiveError(int errorCode, int transferId);

protected:
    void OnRequestReceived(const DPL::SharedPtr<EventKvFileTransferSendFile>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvFileTransferReceiveFile>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvFileTransferRejectFile>& event) override;
    void OnRequestReceived(const DPL::SharedPtr<EventKvFileTransferCancelFile>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvFileTransferSetFileSendListener>& event) override;
    void OnRequestReceived(
        const DPL::SharedPtr<EventKvFileTransferSetFileReceiveListener>& event) override;

private:
    // Takes the offer of the request's transfer id out of the offers; an id
    // never offered, or already answered, fails the request with code 18.
    template <class Event>
    bool takeOffer(const DPL::SharedPtr<Event>& event, std::string& fileName);
    // Hands the answer to an offer to the bridge; a refusal logs `failure`
    // and fails the request with code 5.
    template <class Event>
    void answerOffer(const DPL::SharedPtr<Event>& event, const std::string& destination,
                     bool accept, const char* failure);
    // The destination of an accepted file, or "" (logged) when `savePath` is not a usable URI.
    std::string destinationOf(const std::string& savePath, const std::string& fileName) const;
    void emitSend(const DPL::SharedPtr<EventInfoFileSend>& info);
    void emitReceive(const DPL::SharedPtr<EventInfoFileReceive>& info);

    std::weak_ptr<KvAgent> agent;
    std::string defaultFilePath;
    std::map<int, std::string> receiveFileNames;
    KvFileReceiveEmitterPtr fileReceiveEmitter;
    KvFileSendEmitterPtr fileSendEmitter;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
