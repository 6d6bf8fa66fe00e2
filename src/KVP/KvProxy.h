// The one object of the process that talks to the accessory service's client
// library. Service objects ask it for actions; the library's notifications
// arrive at its On* handlers (through the kvp_On* functions it registers),
// which find the object concerned in its tables and call that object's
// handler.
//
// In this runtime the library delivers its notifications on the main loop, so
// every entry into the proxy runs there; the proxy takes no lock. Answers that
// must not arrive inside the request that caused them (a registration's
// success, failures found while a request is made, an accepted connection)
// are posted to the main loop as one-shot idle callbacks.
#ifndef KVP_KV_PROXY_H
#define KVP_KV_PROXY_H

#include "KvAgentInit.h"
#include "KvConnectionReceiver.h"
#include "KvPeerAgent.h"
#include "PeerAgentWrapper.h"

#include <dpl/shared_ptr.h>
#include <dpl/singleton.h>
#include <kvp-client-stub-api.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <queue>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace DeviceAPI {
namespace KVP {

class KvAgent;
class KvSocket;
class KvFileTransfer;
class KvManager;
typedef DPL::SharedPtr<KvAgent> KvAgentPtr;
typedef DPL::SharedPtr<KvSocket> KvSocketPtr;
typedef DPL::SharedPtr<KvFileTransfer> KvFileTransferPtr;
typedef DPL::SharedPtr<KvManager> KvManagerPtr;
typedef DPL::SharedPtr<std::vector<KvAgentPtr>> KvAgentListPtr;

class KvProxy : public KvConnectionReceiver {
public:
    // A connection closed by a soft reset whose termination is not confirmed
    // yet, with the connection request deferred until then, if any.
    struct SoftResetingService {
        unsigned long connectionId = 0;
        unsigned long peerAgentId = 0;
        KvAgentPtr agent;
        KvPeerAgentPtr peerAgent;

        bool operator<(const SoftResetingService& other) const {
            return connectionId < other.connectionId;
        }
    };

    // Orders peer-agent wrappers by the remote agent they hold, so that every
    // record of one remote agent finds the same entry. An empty wrapper sorts
    // first.
    struct PeerAgentWrapperLess {
        bool operator()(const PeerAgentWrapperPtr& left, const PeerAgentWrapperPtr& right) const;
    };

    KvProxy();
    ~KvProxy() override;
    KvProxy(const KvProxy&) = delete;
    KvProxy& operator=(const KvProxy&) = delete;

    // Registers the notification tables with the library; false when it refused.
    bool initialize();
    // Terminates every connection, deregisters every agent and the tables.
    void finalize();

    // Agent registration, one in flight at a time, in queue order.
    void registerServiceAgent(const KvAgentPtr& agent, const KvAgentInitPtr& init);
    void setManager(const KvManagerPtr& manager);
    KvManagerPtr getManager() const;
    void setAgentList(const KvAgentListPtr& list);
    // Closes every connection but keeps the agents registered.
    void softReset();
    void onConnected() override;
    void onDisconnected() override;

    // Requests of the service objects.
    void findPeerAgent(const KvAgentPtr& agent);
    void requestServiceConnection(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent);
    void acceptServiceConnection(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent);
    void rejectServiceConnection(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent);
    void authenticatePeerAgent(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent);
    // The library's result (0 success).
    int sendData(const KvSocketPtr& socket, uint16_t channelId, const std::string& data);
    int sendSecureData(const KvSocketPtr& socket, uint16_t channelId, const std::string& data);
    // False when the library refused to terminate the connection.
    bool terminateServiceConnection(const KvSocketPtr& socket);

    // File transfer. sendFile always gives a transaction id; a failure is
    // reported later through the file transfer's error handler.
    int sendFile(const KvFileTransferPtr& fileTransfer, const KvPeerAgentPtr& peerAgent,
                 const std::string& path);
    // True when the library refused.
    bool receiveFile(const KvFileTransferPtr& fileTransfer, int transactionId,
                     const std::string& path, bool accept);
    // What cancelFile answers.
    enum CancelFileResult : int {
        CANCEL_FILE_DONE = 0,
        CANCEL_FILE_REFUSED = 1,     // the library refused
        CANCEL_FILE_NO_TRANSFER = 2  // no transfer has the transaction id
    };
    int cancelFile(const KvFileTransferPtr& fileTransfer, int transactionId);

    // The library's notifications, reached through the kvp_On* functions.
    void OnRegisterServiceAgentConfirm(int result, unsigned long agentId);
    void OnDataIndication(unsigned long connectionId, unsigned short channelId, unsigned int length,
                          const char* text);
    void OnServiceConnectionIndication(unsigned long agentId, unsigned long connectionId,
                                       const kvp_peer_agent_t* peer);
    void OnServiceTerminationIndication(unsigned long connectionId, int reason);
    void OnServiceCreateConfirm(unsigned long agentId, unsigned long connectionId,
                                const kvp_peer_agent_t* peer, int status);
    void OnPeerAgent(unsigned long agentId, const kvp_peer_agent_t* peer, int status);
    void OnError(unsigned long value, int errorCode);
    void OnDeregisterServiceAgentConfirm();
    void OnDeviceStatus(int deviceType, int status);
    void OnPeerAgentIndication(unsigned long agentId, const kvp_peer_agent_t* peer, int status);
    void OnAuthenticateIndication(unsigned long agentId, const kvp_peer_agent_t* peer,
                                  const char* token, int status);
    void OnSendFile(int transactionId, const char* fileName, unsigned long agentId);
    void OnSendComplete(int transactionId, const char* path, int status);
    void OnReceiveComplete(int transactionId, const char* path, int status);
    void OnFileProgress(int transactionId, int progress);

    // Runs the proxy's handler `call` for a notification of the library, between
    // the log lines "<<<<<< <handler>" and "<<<<<< done"; an exception that
    // the handler lets out is logged and goes no further. Every kvp_On*
    // function goes through it.
    static void routeNotification(const char* handler, const std::function<void(KvProxy&)>& call);

private:
    bool registerServiceAgentPriv(const KvAgentInitPtr& init);
    void startNextRegistrations();
    void attachDevice();
    void clearConnection();
    void failFileTransfers();
    void loseSockets();
    void detachAgents();
    typedef int (*IndicationAnswer)(unsigned int, unsigned int, const kvp_peer_agent_t*);

    void requestServiceConnectionPriv(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent);
    bool answerIndication(const char* name, IndicationAnswer answer, const KvAgentPtr& agent,
                          const KvPeerAgentPtr& peerAgent, int& result);
    KvSocketPtr openSocket(const KvAgentPtr& agent, const KvPeerAgentPtr& peerAgent,
                           unsigned long connectionId);
    bool hasOpenConnectionTo(const KvPeerAgentPtr& peerAgent) const;
    void forgetPendingConnection(unsigned long connectionId);
    KvPeerAgentPtr getPeerAgent(const kvp_peer_agent_t* peer);
    KvPeerAgentPtr makePeerAgent(const PeerAgentWrapperPtr& wrapper);
    KvAgentPtr findAgent(unsigned long agentId) const;
    KvFileTransferPtr findFileTransfer(unsigned long agentId) const;
    int sendDataWith(const char* name, const KvSocketPtr& socket, uint16_t channelId,
                     const std::string& data,
                     int (*send)(unsigned int, unsigned short, unsigned int, const char*));

    bool connected = false;
    std::map<unsigned long, KvAgentPtr> agents;
    std::map<unsigned long, KvSocketPtr> sockets;
    std::map<PeerAgentWrapperPtr, KvPeerAgentPtr, PeerAgentWrapperLess> peerAgents;
    std::map<unsigned int, unsigned long> pendingConnections;
    KvManagerPtr manager;
    KvAgentListPtr agentList;
    std::map<int, unsigned long> sendTransactions;
    std::map<int, unsigned long> receiveTransactions;
    std::map<int, std::string> receivePaths;
    std::queue<std::pair<KvAgentPtr, KvAgentInitPtr>,
               std::deque<std::pair<KvAgentPtr, KvAgentInitPtr>>>
        registrationQueue;
    unsigned long indicatedConnectionId = 0;
    std::set<SoftResetingService> softResetingServices;
};

typedef DPL::Singleton<KvProxy> KvProxySingleton;

// The library's notification functions: each logs, forwards to the proxy's
// handler and never lets an exception out. Each is declared by the type of
// its slot in the library's tables, so that its signature is the one the
// library's header states and is written nowhere else.
template <typename Slot>
using NotificationFunction = std::remove_pointer_t<Slot>;
NotificationFunction<kvp_OnRegisterServiceAgentConfirm_cb> kvp_OnRegisterServiceAgentConfirm;
NotificationFunction<kvp_OnDataIndication_cb> kvp_OnDataIndication;
NotificationFunction<kvp_OnServiceConnectionIndication_cb> kvp_OnServiceConnectionIndication;
NotificationFunction<kvp_OnServiceTerminationIndication_cb> kvp_OnServiceTerminationIndication;
NotificationFunction<kvp_OnServiceCreateConfirm_cb> kvp_OnServiceCreateConfirm;
NotificationFunction<kvp_OnPeerAgent_cb> kvp_OnPeerAgent;
NotificationFunction<kvp_OnSpaceAvailable_cb> kvp_OnSpaceAvailable;
NotificationFunction<kvp_OnError_cb> kvp_OnError;
NotificationFunction<kvp_OnDeregisterServiceAgentConfirm_cb> kvp_OnDeregisterServiceAgentConfirm;
NotificationFunction<kvp_OnDeviceStatus_cb> kvp_OnDeviceStatus;
NotificationFunction<kvp_OnPeerAgentIndication_cb> kvp_OnPeerAgentIndication;
NotificationFunction<kvp_OnAuthenticateIndication_cb> kvp_OnAuthenticateIndication;
NotificationFunction<kvp_OnSendFile_cb> kvp_OnSendFile;
NotificationFunction<kvp_OnSendComplete_cb> kvp_OnSendComplete;
NotificationFunction<kvp_OnReceiveComplete_cb> kvp_OnReceiveComplete;
NotificationFunction<kvp_OnFileProgress_cb> kvp_OnFileProgress;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
