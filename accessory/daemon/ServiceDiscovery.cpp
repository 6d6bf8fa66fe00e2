// Discovery: finding the agents of the linked device that implement the same
// profile in the opposite role, and telling the linked device when local
// agents come and go.
#include <Logger.h>

#include "Service.h"

namespace Kv {
namespace Accessory {

namespace {

constexpr std::chrono::seconds kSearchTimeout(5);

}  // namespace

wire::Reply Service::findPeers(SessionId id, std::uint32_t agentId) {
    Agent* agent = ownAgent(id, agentId);
    if (agent == nullptr) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (!linked()) {
        return resultReply(wire::RESULT_NO_DEVICE);
    }
    const std::uint32_t searchId = m_nextSearch++;
    auto timer = std::make_shared<asio::steady_timer>(m_io, kSearchTimeout);
    timer->async_wait([this, searchId](const asio::error_code& error) {
        auto search = m_searches.find(searchId);
        if (error || search == m_searches.end()) {
            return;
        }
        wire::Event event;
        event.mutable_peer_found()->set_agent_id(search->second.agentId);
        event.mutable_peer_found()->set_status(wire::SEARCH_TIMED_OUT);
        notifyAgent(search->second.agentId, event);
        m_searches.erase(search);
    });
    m_searches[searchId] = Search{agentId, timer};
    wire::LinkMessage query;
    query.mutable_find_query()->set_query_id(searchId);
    query.mutable_find_query()->set_profile_id(agent->profile.id);
    query.mutable_find_query()->set_want_consumer(!agent->profile.consumer);
    sendLink(query);
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::onFindQuery(const wire::FindQuery& query) {
    wire::LinkMessage answer;
    answer.mutable_find_answer()->set_query_id(query.query_id());
    for (auto [at, end] = m_agentsByProfile.equal_range(query.profile_id()); at != end; ++at) {
        const Agent& agent = m_agents.at(at->second);
        if (agent.profile.consumer == query.want_consumer()) {
            *answer.mutable_find_answer()->add_agents() = describe(agent);
        }
    }
    sendLink(answer);
}

void Service::onFindAnswer(const wire::FindAnswer& answer) {
    auto search = m_searches.find(answer.query_id());
    if (search == m_searches.end()) {
        LoggerW("link: an answer to a search that ended already");
        return;
    }
    const std::uint32_t agentId = search->second.agentId;
    search->second.timer->cancel();
    m_searches.erase(search);
    for (const wire::RemoteAgent& remote : answer.agents()) {
        wire::Event event;
        event.mutable_peer_found()->set_agent_id(agentId);
        *event.mutable_peer_found()->mutable_peer() = peerRecord(remote);
        event.mutable_peer_found()->set_status(wire::SEARCH_FOUND);
        notifyAgent(agentId, event);
    }
    wire::Event end;
    end.mutable_peer_found()->set_agent_id(agentId);
    end.mutable_peer_found()->set_status(answer.agents().empty() ? wire::SEARCH_NONE_FOUND
                                                                 : wire::SEARCH_ENDED);
    notifyAgent(agentId, end);
}

void Service::tellAgentChanged(const Agent& agent, bool available) {
    if (!linked()) {
        return;
    }
    wire::LinkMessage message;
    *message.mutable_agent_changed()->mutable_agent() = describe(agent);
    message.mutable_agent_changed()->set_available(available);
    sendLink(message);
}

void Service::onAgentChanged(const wire::AgentChanged& change) {
    const wire::RemoteAgent& remote = change.agent();
    for (auto [at, end] = m_agentsByProfile.equal_range(remote.profile_id()); at != end; ++at) {
        const std::uint32_t agentId = at->second;
        const Agent& agent = m_agents.at(agentId);
        if (agent.profile.consumer == remote.consumer()) {
            continue;
        }
        wire::Event event;
        event.mutable_peer_changed()->set_agent_id(agentId);
        *event.mutable_peer_changed()->mutable_peer() = peerRecord(remote);
        event.mutable_peer_changed()->set_status(change.available() ? wire::PEER_AVAILABLE
                                                                    : wire::PEER_GONE);
        notify(agent.session, event);
    }
}

wire::Reply Service::authenticate(SessionId id, const wire::Authenticate& request) {
    if (ownAgent(id, request.agent_id()) == nullptr || !request.has_peer()) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (!linked()) {
        return resultReply(wire::RESULT_NO_DEVICE);
    }
    // A peer is authentic when it is reached over the current link and that
    // link's other end proved, in the TLS handshake, that it holds the pinned
    // certificate; the token is that certificate's fingerprint.
    wire::Event event;
    auto* answer = event.mutable_authenticated();
    answer->set_agent_id(request.agent_id());
    *answer->mutable_peer() = request.peer();
    if (secureLink() && request.peer().accessory_id() == m_linkSession) {
        answer->set_has_token(true);
        answer->set_token(m_link->peerFingerprint());
    } else {
        answer->set_status(wire::NOT_AUTHENTICATED);
    }
    notify(id, event);
    return resultReply(wire::RESULT_SUCCESS);
}

}  // namespace Accessory
}  // namespace Kv
