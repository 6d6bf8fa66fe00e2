// The accessory service of one device: the sessions of the device's apps,
// the agents they register, the connections of those agents with agents of
// the linked device, and the state of the link itself.
//
// Everything runs on the daemon's one Asio thread. Requests are answered at
// once with a Reply; what a request causes reaches the apps later as events,
// posted to the loop so that a reply always goes out before the events of
// its request.
#ifndef KV_ACCESSORYD_SERVICE_H
#define KV_ACCESSORYD_SERVICE_H

#include <kv-accessory/LinkProfiles.h>

#include <asio.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "FramedChannel.h"
#include "Limits.h"
#include "PartialFile.h"
#include "PeerLink.h"
#include "ServiceProfile.h"
#include "TraceHub.h"

namespace Kv {
namespace Accessory {

using ClientChannel = FramedChannel<asio::local::stream_protocol::socket>;
using SessionId = std::uint64_t;

// A reply that carries only a result.
inline wire::Reply resultReply(wire::Result code) {
    wire::Reply reply;
    reply.set_result(code);
    return reply;
}

class Service {
public:
    // `profile` is the kind of link the device has (its transport, the
    // largest send); it outlives the service.
    Service(asio::io_context& io, std::string deviceName, const LinkProfile& profile);
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void setLink(PeerLink* link) { m_link = link; }
    const LinkProfile& linkProfile() const { return m_profile; }

    // A new app session; `appId` is empty for a process that runs no app.
    SessionId addSession(std::shared_ptr<ClientChannel> channel, const std::string& appId);
    // The session ended: its app is gone with its agents and connections.
    void removeSession(SessionId id);
    // The request's data may be moved out.
    void handleRequest(SessionId id, wire::Request& request);

    void onLinkUp(const std::string& peerName);
    void onLinkDown();
    // The message's data may be moved out.
    void onLinkMessage(wire::LinkMessage& message);
    // Data sent under `tag` (a channel of a connection) was written to the link.
    void onLinkWritten(std::uint64_t tag);
    // Nothing was heard from the other device for too long.
    void onLinkSilent();

    // Ends every session (the daemon stops).
    void closeAll();

private:
    struct Session {
        std::shared_ptr<ClientChannel> channel;
        std::string appId;
        bool greeted = false;
        bool paused = false;  // its data waits until the link has room
        // Decided at its first registration (maySessionRegister).
        std::optional<bool> mayRegister;
        std::string appName;
        // Its library confirms each detach once its app has heard of it.
        bool acknowledgesDetach = false;
    };
    struct Agent {
        std::uint32_t id = 0;
        SessionId session = 0;
        std::string appName;
        ServiceProfile profile;
    };
    enum class ConnectionState { Asking, Indicated, Open };
    struct Connection {
        std::uint32_t id = 0;
        std::uint32_t agentId = 0;
        std::uint32_t peerConnectionId = 0;
        wire::PeerAgent peer;
        ConnectionState state = ConnectionState::Asking;
        std::shared_ptr<asio::steady_timer> timer;
    };
    // What one channel of a connection has queued for the link: the sizes of
    // its sends not yet written, oldest first.
    struct ChannelQueue {
        SessionId session = 0;
        std::deque<std::size_t> sends;
        std::size_t bytes = 0;
        bool full = false;     // its app was told so
        bool refused = false;  // a send was refused while it was full
    };
    // A fault waiting for its trigger.
    struct PendingFault {
        wire::LinkFault fault;
        std::uint64_t remaining = 0;  // bytes or messages until it fires
        int transfer = 0;             // the file transfer it counts, once one started
    };
    struct Search {
        std::uint32_t agentId = 0;
        std::shared_ptr<asio::steady_timer> timer;
    };
    // A file on its way, on the sending or the receiving device.
    struct Transfer {
        int id = 0;       // this daemon's id, the one its app sees
        int offerId = 0;  // the sending daemon's id, which names it on the link
        std::uint32_t agentId = 0;
        bool sending = false;
        bool flowing = false;     // accepted: chunks are on their way
        bool cancelling = false;  // sender: cancelled, the receiver's answer awaited
        std::string path;         // as the app gave it
        std::uint64_t size = 0;
        std::uint64_t done = 0;
        int progress = -1;
        std::shared_ptr<std::ifstream> source;  // sending
        std::shared_ptr<PartialFile> target;    // receiving, once accepted
        std::shared_ptr<asio::steady_timer> timer;
    };

    // Requests (Service.cpp, ServiceDiscovery.cpp, ServiceConnections.cpp).
    wire::Reply dispatch(SessionId id, Session& session, wire::Request& request);
    wire::Reply hello(Session& session, const wire::Hello& hello);
    wire::Reply registerAgent(SessionId id, Session& session, const wire::RegisterAgent& request);
    bool maySessionRegister(Session& session);
    wire::Reply deregisterAgent(SessionId id, std::uint32_t agentId);
    wire::Reply findPeers(SessionId id, std::uint32_t agentId);
    wire::Reply createConnection(SessionId id, const wire::CreateConnection& request);
    wire::Reply answerConnection(SessionId id, const wire::ConnectionAnswer& answer, bool accept);
    wire::Reply terminateConnection(SessionId id, std::uint32_t connectionId);
    wire::Reply sendData(SessionId id, wire::SendData& request);
    wire::Reply authenticate(SessionId id, const wire::Authenticate& request);
    wire::Reply accessory(std::uint32_t accessoryId) const;
    wire::Reply pushFile(SessionId id, const wire::PushFile& request);
    wire::Reply receiveFile(SessionId id, const wire::ReceiveFile& request);
    wire::Reply cancelFile(SessionId id, int transactionId);
    wire::Reply status() const;
    wire::Reply linkFault(const wire::LinkFault& fault);
    wire::Reply startTrace(SessionId id);

    // What the tracers see (ServiceTrace.cpp): the requests of the apps and
    // the events they get, translated, and what happens on the link. Each
    // is called only while a tracer follows the service.
    void traceRequest(SessionId id, const wire::Request& request, const wire::Reply& reply,
                      std::size_t dataSize);
    void traceEvent(SessionId id, const wire::Event& event);
    void traceEventOfFile(wire::TraceEvent& trace, const wire::Event& event) const;
    void traceTransfer(wire::TraceEvent::Kind kind, const Transfer& transfer);
    void traceDelivery(const Connection& connection, const wire::LinkData& data);
    void traceLink(wire::TraceEvent::Kind kind, const std::string& text = {},
                   std::uint64_t size = 0);
    void traceAgent(wire::TraceEvent::Kind kind, const Agent& agent);
    wire::TraceEvent traceStarted() const;
    std::string appOfSession(SessionId id) const;
    std::string appOfAgent(std::uint32_t agentId) const;

    // The status report (ServiceStatus.cpp).
    wire::StatusReport statusReport() const;
    void reportLink(wire::LinkReport& report) const;
    void reportAgent(const Agent& agent, wire::AgentReport& report) const;
    static void reportConnection(const Connection& connection, wire::ConnectionReport& report);
    static void reportTransfer(const Transfer& transfer, wire::TransferReport& report);
    // How much of the transfer is done, in percent.
    static int percentDone(const Transfer& transfer);

    // Link messages.
    void onFindQuery(const wire::FindQuery& query);
    void onFindAnswer(const wire::FindAnswer& answer);
    void onAgentChanged(const wire::AgentChanged& change);
    void onConnectQuery(const wire::ConnectQuery& query);
    void onConnectReply(const wire::ConnectReply& reply);
    void onLinkData(wire::LinkData& data);
    void onLinkClose(const wire::LinkClose& close);
    void onFileOffer(const wire::FileOffer& offer);
    void onFileAnswer(const wire::FileAnswer& answer);
    void onFileChunk(const wire::FileChunk& chunk);
    void onFileEnd(const wire::FileEnd& end);

    // Channel queues (ServiceQueues.cpp).
    static std::uint64_t channelTag(std::uint32_t connectionId, std::uint32_t channelId);
    // Whether a send on the channel must be refused: its queue is full.
    bool channelFull(std::uint32_t connectionId, std::uint32_t channelId);
    void queuedOnChannel(SessionId id, std::uint64_t tag, std::size_t bytes);
    void forgetChannelQueues(std::uint32_t connectionId);
    // The reports for each app whose data was still queued when the link went
    // down (service_error DATA_LOST); the queues are forgotten.
    std::vector<std::pair<SessionId, wire::Event>> takeLostData();

    // The detach in the link key (ServiceDetach.cpp). The apps' plug-ins
    // forget their agents and connections when the key says the link is
    // down; so the key says it only once every app has been told of all
    // that the detach ended (failed searches, requests and transfers, lost
    // data) and of the detach itself, or after kDetachNoticeLimit.
    void writeDetachOnceHeard();
    void detachHeard(SessionId id);
    void stopWaitingForDetachConfirms();
    void finishDetachNotice();

    // Faults (ServiceFaults.cpp).
    void applyFault(const wire::LinkFault& fault);
    // Counts file bytes and channel messages towards pending faults; true
    // when a fault fired (it runs once the current handler returns).
    bool countFileBytes(int transactionId, std::uint64_t bytes);
    void countMessage(std::uint32_t channelId);
    void fireFault(std::size_t index);

    // Helpers.
    Agent* ownAgent(SessionId id, std::uint32_t agentId);
    Connection* ownConnection(SessionId id, std::uint32_t connectionId);
    Connection* connectionByPeerId(std::uint32_t peerConnectionId);
    wire::RemoteAgent describe(const Agent& agent) const;
    wire::PeerAgent peerRecord(const wire::RemoteAgent& agent) const;
    wire::ConnectionStatus limitStatus(const Agent& agent, std::uint32_t peerAgentId) const;
    void dropAgent(std::uint32_t agentId);
    void endConnection(std::uint32_t connectionId, wire::TerminationReason reason, bool tellPeer);
    // Forgets a connection without telling its app (the link went down: the
    // detach tells the app).
    void dropConnection(std::uint32_t connectionId);
    void giveUpAsking(std::uint32_t connectionId);
    void failAsking(Connection& connection, wire::ConnectionStatus status);
    void tellAgentChanged(const Agent& agent, bool available);
    Transfer* ownTransfer(SessionId id, int transactionId);
    Transfer* transferByOffer(int offerId, bool sending);
    void pumpFile(int transactionId);
    void reportProgress(Transfer& transfer);
    void acceptOffer(Transfer& transfer, const std::string& path);
    void completeReceive(Transfer& transfer);
    // Whether the device's emulated storage has room for `bytes` more of
    // the files being received.
    bool storageHasRoomFor(std::uint64_t bytes) const;
    std::size_t incomingTransfers(std::uint32_t agentId) const;
    // The package of the session's app; empty for a process that runs none.
    std::string packageOf(SessionId id) const;
    // Ends a transfer with `status` for its app (with `path` as the file's
    // final path, when given); `peerStatus`, when given, goes to the other
    // device.
    void finishTransfer(int transactionId, wire::FileStatus status,
                        std::optional<wire::FileStatus> peerStatus, const std::string& path = {});
    void dropTransfers(std::uint32_t agentId);
    void sendLink(const wire::LinkMessage& message, int priority = kPriorityControl);
    void notify(SessionId id, wire::Event event);
    void notifyAgent(std::uint32_t agentId, wire::Event event);
    void notifyAll(const wire::Event& event);
    void writeConnStatus(int value);
    // Back-pressure: a session that fills the link with data stops being
    // read until the link has room again.
    void pauseSender(SessionId id);
    void resumeSenders();
    void holdLinkFor(SessionId id);
    void channelsOf(std::uint32_t agentId,
                    google::protobuf::RepeatedField<std::uint32_t>* channels) const;
    // While no device is linked, a search, connection request, authentication
    // or file offer fails in its reply, never in a later event: the app may
    // not yet have heard of the detach that the service has already told it
    // of, and once it has, it forgets the request's agent and would drop an
    // answer that came after. A failed call it answers at once.
    bool linked() const { return m_link != nullptr && m_link->isUp(); }
    bool secureLink() const { return m_link != nullptr && m_link->secure(); }

    asio::io_context& m_io;
    std::string m_deviceName;
    const LinkProfile& m_profile;
    PeerLink* m_link = nullptr;
    std::uint32_t m_linkSession = 0;
    std::map<SessionId, Session> m_sessions;
    std::map<std::uint32_t, Agent> m_agents;
    std::multimap<std::string, std::uint32_t> m_agentsByProfile;  // profile id -> agent ids
    std::map<std::uint32_t, Connection> m_connections;
    TraceHub m_trace;
    // Each message sent gets a number, which the other device's trace shows
    // with its delivery.
    std::uint64_t m_nextMessage = 1;
    std::map<std::uint32_t, Search> m_searches;
    std::map<int, Transfer> m_transfers;
    std::map<std::uint64_t, ChannelQueue> m_channelQueues;  // by channelTag
    std::vector<PendingFault> m_pendingFaults;
    std::string m_partialFilesDir;  // notes of the files being received
    bool m_waitingForRoom = false;  // senders are paused until the link drains
    // The apps behind which the link is not read, each with its deadline.
    std::map<SessionId, std::shared_ptr<asio::steady_timer>> m_slowReaders;
    // The apps that have not confirmed the last detach yet, and the bound of
    // the wait (ServiceDetach.cpp).
    std::set<SessionId> m_detachUnheard;
    asio::steady_timer m_detachNoticeTimer{m_io};
    bool m_detachNoticePending = false;
    // Supervision gave the link up: the detach that follows says so.
    bool m_linkWentSilent = false;
    SessionId m_nextSession = 1;
    std::uint32_t m_nextAgent = 1;
    std::uint32_t m_nextConnection = 1;
    std::uint32_t m_nextSearch = 1;
    int m_nextTransfer = 1;
};

}  // namespace Accessory
}  // namespace Kv

#endif
