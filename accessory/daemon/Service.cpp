#include "Service.h"

#include <Commons/WrtAccess/Privileges.h>
#include <Commons/WrtAccess/WrtAccess.h>
#include <Logger.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <vconf.h>

#include <random>

namespace Kv {
namespace Accessory {

namespace {

const char* const kConnStatusKey = "memory/private/kvp/conn_status";

// Where this run's ids start: somewhere else than an earlier run's, so that
// an id an app kept from before a restart of the service names nothing now.
std::uint32_t firstIdOfThisRun() { return 1 + std::random_device()() % 100000 * 10000; }

}  // namespace

Service::Service(asio::io_context& io, std::string deviceName, const LinkProfile& profile)
    : m_io(io),
      m_deviceName(std::move(deviceName)),
      m_profile(profile),
      m_trace(m_deviceName),
      m_partialFilesDir(Device::root() + "/" + Device::kPartialFilesDir) {
    m_nextAgent = m_nextConnection = m_nextSearch = firstIdOfThisRun();
    m_nextTransfer = static_cast<int>(firstIdOfThisRun());
    writeConnStatus(0);
    // What an earlier run left of files it was receiving is no use to anyone.
    PartialFile::removeLeftovers(m_partialFilesDir);
}

SessionId Service::addSession(std::shared_ptr<ClientChannel> channel, const std::string& appId) {
    const SessionId id = m_nextSession++;
    Session session;
    session.channel = std::move(channel);
    session.appId = appId;
    m_sessions[id] = std::move(session);
    if (m_trace.active() && !appId.empty()) {
        wire::TraceEvent event;
        event.set_kind(wire::TraceEvent::SESSION_OPENED);
        event.set_app(appId);
        m_trace.emit(event);
    }
    return id;
}

void Service::removeSession(SessionId id) {
    detachHeard(id);
    std::vector<std::uint32_t> agents;
    for (const auto& [agentId, agent] : m_agents) {
        if (agent.session == id) {
            agents.push_back(agentId);
        }
    }
    for (std::uint32_t agentId : agents) {
        dropAgent(agentId);
    }
    m_trace.remove(id);
    if (m_trace.active() && !appOfSession(id).empty()) {
        wire::TraceEvent event;
        event.set_kind(wire::TraceEvent::SESSION_CLOSED);
        event.set_app(appOfSession(id));
        m_trace.emit(event);
    }
    m_sessions.erase(id);
}

void Service::closeAll() {
    std::vector<std::shared_ptr<ClientChannel>> channels;
    channels.reserve(m_sessions.size());
    for (auto& [id, session] : m_sessions) {
        channels.push_back(session.channel);
    }
    for (auto& channel : channels) {
        channel->close("the service stops");
    }
}

void Service::handleRequest(SessionId id, wire::Request& request) {
    auto found = m_sessions.find(id);
    if (found == m_sessions.end()) {
        return;
    }
    std::shared_ptr<ClientChannel> channel = found->second.channel;
    if (!found->second.greeted && !request.has_hello()) {
        channel->close("the first request is not a hello");
        return;
    }
    if (request.has_detach_seen()) {
        detachHeard(id);  // no reply
        return;
    }
    const std::size_t dataSize = request.has_send_data() ? request.send_data().data().size() : 0;
    wire::ServiceMessage message;
    *message.mutable_reply() = dispatch(id, found->second, request);
    if (m_trace.active()) {
        traceRequest(id, request, message.reply(), dataSize);
    }
    if (request.has_send_data() && request.send_data().no_reply()) {
        if (message.reply().result() != wire::RESULT_SUCCESS) {
            LoggerW("data that " << found->second.appId << " sent without waiting was refused ("
                                 << message.reply().result() << ")");
        }
        return;
    }
    message.mutable_reply()->set_serial(request.serial());
    if (!channel->sendMessage(message)) {
        channel->close("the app does not read its replies");
    }
}

wire::Reply Service::dispatch(SessionId id, Session& session, wire::Request& request) {
    using Body = wire::Request;
    switch (request.body_case()) {
        case Body::kHello:
            return hello(session, request.hello());
        case Body::kRegisterAgent:
            return registerAgent(id, session, request.register_agent());
        case Body::kDeregisterAgent:
            return deregisterAgent(id, request.deregister_agent().agent_id());
        case Body::kFindPeers:
            return findPeers(id, request.find_peers().agent_id());
        case Body::kCreateConnection:
            return createConnection(id, request.create_connection());
        case Body::kAcceptConnection:
            return answerConnection(id, request.accept_connection(), true);
        case Body::kRejectConnection:
            return answerConnection(id, request.reject_connection(), false);
        case Body::kTerminateConnection:
            return terminateConnection(id, request.terminate_connection().connection_id());
        case Body::kSendData:
            return sendData(id, *request.mutable_send_data());
        case Body::kAuthenticate:
            return authenticate(id, request.authenticate());
        case Body::kPushFile:
            return pushFile(id, request.push_file());
        case Body::kReceiveFile:
            return receiveFile(id, request.receive_file());
        case Body::kCancelFile:
            return cancelFile(id, request.cancel_file().transaction_id());
        case Body::kGetAccessory:
            return accessory(request.get_accessory().accessory_id());
        case Body::kSetLink:
            if (m_link != nullptr) {
                m_link->setEnabled(request.set_link().enabled());
            }
            return resultReply(wire::RESULT_SUCCESS);
        case Body::kStatus:
            return status();
        case Body::kFault:
            return linkFault(request.fault());
        case Body::kTrace:
            return startTrace(id);
        default:
            return resultReply(wire::RESULT_INVALID);
    }
}

wire::Reply Service::hello(Session& session, const wire::Hello& hello) {
    if (hello.version() != kProtocolVersion) {
        // The reply still goes out, then the session ends.
        std::shared_ptr<ClientChannel> channel = session.channel;
        asio::post(m_io, [channel] { channel->close("the client speaks another version"); });
        return resultReply(wire::RESULT_GENERAL);
    }
    session.greeted = true;
    session.acknowledgesDetach = hello.acknowledges_detach();
    wire::Reply reply = resultReply(wire::RESULT_SUCCESS);
    reply.set_value(static_cast<std::int32_t>(kProtocolVersion));
    reply.set_attached(linked());
    reply.set_device_type(m_profile.deviceType);
    reply.set_secure(secureLink());
    reply.set_max_data_size(m_profile.maxDataSize);
    return reply;
}

// The daemon decides for itself whether the app may use the service: its
// installed config.xml must declare the privilege, and the user must not
// have blocked it. Decided at the session's first registration, for the
// session (a change of the user's policy applies from the app's next run).
bool Service::maySessionRegister(Session& session) {
    if (!session.mayRegister) {
        using WrtDeviceApis::Commons::WrtAccess;
        session.mayRegister = WrtAccess::checkAppPrivilege(
                                  session.appId, WrtDeviceApis::Commons::Privileges::ACCESSORY) ==
                              WrtAccess::CHECK_ACCESS_GRANTED;
        if (const auto app = Device::findApp(session.appId)) {
            session.appName = app->name;
        }
    }
    return *session.mayRegister;
}

wire::Reply Service::registerAgent(SessionId id, Session& session,
                                   const wire::RegisterAgent& request) {
    if (request.profile_id().empty()) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (session.appId.empty()) {
        LoggerW("registration refused: the process runs no app of this device");
        return resultReply(wire::RESULT_GENERAL);
    }
    if (!maySessionRegister(session)) {
        LoggerW("registration refused: " << session.appId << " may not use the accessory service");
        return resultReply(wire::RESULT_GENERAL);
    }
    wire::Event event;
    auto* confirm = event.mutable_register_confirm();
    for (auto [at, end] = m_agentsByProfile.equal_range(request.profile_id()); at != end; ++at) {
        if (m_agents.at(at->second).session == id) {
            confirm->set_agent_id(at->second);
            notify(id, event);
            return resultReply(wire::RESULT_SUCCESS);
        }
    }
    std::optional<ServiceProfile> profile = findAppProfile(session.appId, request.profile_id());
    if (!profile) {
        confirm->set_result(wire::RESULT_INVALID);
        notify(id, event);
        return resultReply(wire::RESULT_SUCCESS);
    }
    if (profile->consumer != request.consumer()) {
        LoggerW("agent " << profile->id << ": the installed profile's role wins over the request");
    }
    Agent agent{m_nextAgent++, id, session.appId, *profile};
    if (!session.appName.empty()) {
        agent.appName = session.appName;
    }
    m_agents[agent.id] = agent;
    m_agentsByProfile.emplace(agent.profile.id, agent.id);
    LoggerI("agent " << agent.id << " registered: " << session.appId << " " << profile->id);
    confirm->set_agent_id(agent.id);
    notify(id, event);
    tellAgentChanged(agent, true);
    return resultReply(wire::RESULT_SUCCESS);
}

wire::Reply Service::deregisterAgent(SessionId id, std::uint32_t agentId) {
    if (ownAgent(id, agentId) == nullptr) {
        return resultReply(wire::RESULT_INVALID);
    }
    dropAgent(agentId);
    wire::Event event;
    event.mutable_deregister_confirm()->set_agent_id(agentId);
    notify(id, event);
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::dropAgent(std::uint32_t agentId) {
    std::vector<std::uint32_t> connections;
    for (const auto& [connectionId, connection] : m_connections) {
        if (connection.agentId == agentId) {
            connections.push_back(connectionId);
        }
    }
    for (std::uint32_t connectionId : connections) {
        endConnection(connectionId, wire::TERMINATION_CLOSED, true);
    }
    dropTransfers(agentId);
    for (auto search = m_searches.begin(); search != m_searches.end();) {
        search = search->second.agentId == agentId ? m_searches.erase(search) : std::next(search);
    }
    auto agent = m_agents.find(agentId);
    if (agent != m_agents.end()) {
        tellAgentChanged(agent->second, false);
        for (auto [at, end] = m_agentsByProfile.equal_range(agent->second.profile.id); at != end;
             ++at) {
            if (at->second == agentId) {
                m_agentsByProfile.erase(at);
                break;
            }
        }
        if (m_trace.active()) {
            traceAgent(wire::TraceEvent::AGENT_REMOVED, agent->second);
        }
        m_agents.erase(agent);
        LoggerI("agent " << agentId << " gone");
    }
}

wire::Reply Service::accessory(std::uint32_t accessoryId) const {
    if (!linked() || accessoryId != m_linkSession) {
        return resultReply(wire::RESULT_INVALID);
    }
    wire::Reply reply = resultReply(wire::RESULT_SUCCESS);
    auto* record = reply.mutable_accessory();
    record->set_transport_type(m_profile.transport);
    record->set_max_data_size(m_profile.maxDataSize);
    record->set_device_address(m_link->describe());
    record->set_product_id(m_link->peerName());
    record->set_vendor_id("kv");
    return reply;
}

void Service::onLinkUp(const std::string& peerName) {
    finishDetachNotice();  // the key says down before it says up again
    ++m_linkSession;
    LoggerI("device attached: " << peerName);
    if (m_trace.active()) {
        traceLink(wire::TraceEvent::LINK_UP, peerName);
    }
    writeConnStatus(1);
    wire::Event event;
    event.mutable_device_status()->set_device_type(m_profile.deviceType);
    event.mutable_device_status()->set_status(wire::DEVICE_ATTACHED);
    event.mutable_device_status()->set_secure(secureLink());
    notifyAll(event);
}

// Told with the detach that follows at once (onLinkDown).
void Service::onLinkSilent() { m_linkWentSilent = true; }

// The apps hear what the link's loss ended in this order: the failures of
// their pending searches, connection requests and file transfers first (an
// app's plug-in forgets its agents on a service error or a detach, and would
// drop a failure that came after either), then the service errors (data
// that never left, a silent link), then the detach; the link key follows
// once they have heard it (ServiceDetach.cpp).
void Service::onLinkDown() {
    LoggerI("device detached");
    if (m_trace.active()) {
        traceLink(wire::TraceEvent::LINK_DOWN);
    }
    const std::vector<std::pair<SessionId, wire::Event>> lostData = takeLostData();
    std::vector<std::uint32_t> connections;
    connections.reserve(m_connections.size());
    for (const auto& [connectionId, connection] : m_connections) {
        connections.push_back(connectionId);
    }
    for (std::uint32_t connectionId : connections) {
        auto found = m_connections.find(connectionId);
        if (found != m_connections.end() && found->second.state == ConnectionState::Asking) {
            failAsking(found->second, wire::CONNECTION_NETWORK_ERROR);
        } else {
            dropConnection(connectionId);
        }
    }
    for (auto& [searchId, search] : m_searches) {
        wire::Event event;
        event.mutable_peer_found()->set_agent_id(search.agentId);
        event.mutable_peer_found()->set_status(wire::SEARCH_NO_DEVICE);
        notifyAgent(search.agentId, event);
    }
    m_searches.clear();
    std::vector<int> transfers;
    transfers.reserve(m_transfers.size());
    for (const auto& [transactionId, transfer] : m_transfers) {
        transfers.push_back(transactionId);
    }
    for (int transactionId : transfers) {
        finishTransfer(transactionId, wire::FILE_CONNECTION_LOST, std::nullopt);
    }
    for (const auto& [session, report] : lostData) {
        notify(session, report);
    }
    if (m_linkWentSilent) {
        m_linkWentSilent = false;
        wire::Event silent;
        silent.mutable_service_error()->set_value(static_cast<std::uint32_t>(m_profile.deviceType));
        silent.mutable_service_error()->set_code(wire::SERVICE_ERROR_LINK_SILENT);
        notifyAll(silent);
    }
    wire::Event event;
    event.mutable_device_status()->set_device_type(m_profile.deviceType);
    event.mutable_device_status()->set_status(wire::DEVICE_DETACHED);
    notifyAll(event);
    writeDetachOnceHeard();
}

void Service::onLinkMessage(wire::LinkMessage& message) {
    using Body = wire::LinkMessage;
    switch (message.body_case()) {
        case Body::kFindQuery:
            return onFindQuery(message.find_query());
        case Body::kFindAnswer:
            return onFindAnswer(message.find_answer());
        case Body::kAgentChanged:
            return onAgentChanged(message.agent_changed());
        case Body::kConnectQuery:
            return onConnectQuery(message.connect_query());
        case Body::kConnectReply:
            return onConnectReply(message.connect_reply());
        case Body::kData:
            return onLinkData(*message.mutable_data());
        case Body::kClose:
            return onLinkClose(message.close());
        case Body::kFileOffer:
            return onFileOffer(message.file_offer());
        case Body::kFileAnswer:
            return onFileAnswer(message.file_answer());
        case Body::kFileChunk:
            return onFileChunk(message.file_chunk());
        case Body::kFileEnd:
            return onFileEnd(message.file_end());
        default:
            LoggerW("link: ignored a message of kind " << message.body_case());
    }
}

void Service::notify(SessionId id, wire::Event event) {
    if (m_trace.active()) {
        traceEvent(id, event);
    }
    // Posted, so that the reply of the request being handled goes out first
    // and events keep the order in which they were made.
    asio::post(m_io, [this, id, event = std::move(event)]() mutable {
        auto found = m_sessions.find(id);
        if (found == m_sessions.end()) {
            return;
        }
        wire::ServiceMessage message;
        *message.mutable_event() = std::move(event);
        std::shared_ptr<ClientChannel> channel = found->second.channel;
        if (!channel->sendMessage(message)) {
            channel->close("the app does not read its events");
            return;
        }
        if (channel->queuedBytes() > kPauseSendersAbove) {
            holdLinkFor(id);
        }
    });
}

// An app that reads its events slower than the link brings them: the link is
// not read until the app has caught up, so the other device's daemon, and
// behind it the sending app, wait instead of this daemon's memory growing.
// An app that does not catch up in time has stopped reading: its session
// ends, so that it holds up nobody else for longer.
void Service::holdLinkFor(SessionId id) {
    if (m_link == nullptr || m_slowReaders.count(id) != 0) {
        return;
    }
    auto deadline = std::make_shared<asio::steady_timer>(m_io, kSlowReaderGrace);
    m_slowReaders[id] = deadline;
    m_link->pauseReading();
    std::shared_ptr<ClientChannel> channel = m_sessions.at(id).channel;
    deadline->async_wait([channel](const asio::error_code& error) {
        if (!error) {
            channel->close("the app does not read its events");
        }
    });
    channel->whenDrained(kResumeSendersBelow, [this, id] {
        auto found = m_slowReaders.find(id);
        if (found != m_slowReaders.end()) {
            found->second->cancel();
            m_slowReaders.erase(found);
        }
        if (m_slowReaders.empty() && m_link != nullptr) {
            m_link->resumeReading();
        }
    });
}

void Service::notifyAgent(std::uint32_t agentId, wire::Event event) {
    auto agent = m_agents.find(agentId);
    if (agent != m_agents.end()) {
        notify(agent->second.session, std::move(event));
    }
}

void Service::notifyAll(const wire::Event& event) {
    for (const auto& [id, session] : m_sessions) {
        if (session.greeted) {
            notify(id, event);
        }
    }
}

void Service::sendLink(const wire::LinkMessage& message, int priority) {
    if (m_link != nullptr) {
        m_link->send(message, priority);
    }
}

void Service::pauseSender(SessionId id) {
    auto found = m_sessions.find(id);
    if (found == m_sessions.end() || found->second.paused) {
        return;
    }
    found->second.paused = true;
    found->second.channel->pauseReading();
    if (!m_waitingForRoom && m_link != nullptr) {
        m_waitingForRoom = true;
        m_link->whenDrained(kResumeSendersBelow, [this] {
            m_waitingForRoom = false;
            resumeSenders();
        });
    }
}

void Service::resumeSenders() {
    for (auto& [id, session] : m_sessions) {
        if (session.paused) {
            session.paused = false;
            session.channel->resumeReading();
        }
    }
}

void Service::channelsOf(std::uint32_t agentId,
                         google::protobuf::RepeatedField<std::uint32_t>* channels) const {
    auto agent = m_agents.find(agentId);
    if (agent != m_agents.end()) {
        for (const ProfileChannel& channel : agent->second.profile.channels) {
            channels->Add(channel.id);
        }
    }
}

void Service::writeConnStatus(int value) {
    if (vconf_set_int(kConnStatusKey, value) != VCONF_OK) {
        LoggerE("cannot write " << kConnStatusKey);
    }
}

Service::Agent* Service::ownAgent(SessionId id, std::uint32_t agentId) {
    auto found = m_agents.find(agentId);
    return found != m_agents.end() && found->second.session == id ? &found->second : nullptr;
}

wire::RemoteAgent Service::describe(const Agent& agent) const {
    wire::RemoteAgent remote;
    remote.set_agent_id(agent.id);
    remote.set_app_name(agent.appName);
    remote.set_profile_id(agent.profile.id);
    remote.set_profile_version(agent.profile.version);
    remote.set_consumer(agent.profile.consumer);
    return remote;
}

wire::PeerAgent Service::peerRecord(const wire::RemoteAgent& agent) const {
    wire::PeerAgent peer;
    peer.set_peer_agent_id(agent.agent_id());
    peer.set_accessory_id(m_linkSession);
    peer.set_peer_id(std::to_string(agent.agent_id()));
    peer.set_app_name(agent.app_name());
    peer.set_profile_id(agent.profile_id());
    peer.set_profile_version(agent.profile_version());
    peer.set_device_name(m_link != nullptr ? m_link->peerName() : std::string());
    return peer;
}

}  // namespace Accessory
}  // namespace Kv
