#include "KvAgent.h"

#include "KvFileTransfer.h"
#include "KvIdleCallback.h"
#include "KvProxy.h"
#include "KvTypes.h"

#include <Logger.h>

#include <memory>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::EventRequestReceiver;
using WrtDeviceApis::Commons::ExceptionCodes;
using WrtDeviceApis::Commons::IEventController;
using WrtDeviceApis::Commons::ThreadEnum;

namespace {

const char* const FOREIGN_PEER_AGENT = "PeerAgent must be originated from other KvAgent.";

}  // namespace

KvAgent::KvAgent(const KvAgentInitPtr& init)
    : EventRequestReceiver<EventKvAgentRequestServiceConnection>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvAgentSetServiceConnectionListener>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvAgentAcceptServiceConnectionRequest>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvAgentRejectServiceConnectionRequest>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvAgentFindPeerAgents>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvAgentSetPeerAgentFindListener>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvAgentAuthenticatePeerAgent>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvAgentGetKvFileTransfer>(ThreadEnum::NULL_THREAD),
      agentInit(init) {}

KvAgent::~KvAgent() = default;

std::vector<uint16_t> KvAgent::getChannelIds() const {
    std::vector<uint16_t> ids;
    for (const KvChannel& channel : agentInit->channels) {
        ids.push_back(channel.id);
    }
    return ids;
}

bool KvAgent::isRegistered() const { return state == STATE_READY || state == STATE_SEARCHING; }

void KvAgent::registerAgent() {
    KvProxySingleton::Instance().registerServiceAgent(shared_from_this(), agentInit);
}

// The error reaches the search listener from an idle callback, never inside
// the request that caused it.
void KvAgent::reportSearchError(int errorCode) {
    KvIdleCallback<KvAgent>::post(shared_from_this(), [errorCode](KvAgent& agent) {
        agent.emitPeerAgentFind(std::make_shared<EventInfoPeerAgentFindError>(errorCode));
    });
}

void KvAgent::reportConnectionError(int errorCode) {
    KvIdleCallback<KvAgent>::post(shared_from_this(),
                                  [errorCode](KvAgent& agent) { agent.onError(errorCode); });
}

void KvAgent::emitPeerAgentFind(const DPL::SharedPtr<EventInfoPeerAgentFind>& info) {
    if (peerAgentFindEmitter == nullptr) {
        return;
    }
    auto event = std::make_shared<EventKvAgentPeerAgentFindListener>();
    event->info = info;
    peerAgentFindEmitter->emit(event);
}

void KvAgent::emitServiceConnection(const DPL::SharedPtr<EventInfoServiceConnection>& info) {
    if (serviceConnectionEmitter == nullptr) {
        return;
    }
    auto event = std::make_shared<EventKvAgentServiceConnectionListener>();
    event->info = info;
    serviceConnectionEmitter->emit(event);
}

void KvAgent::OnRequestReceived(const DPL::SharedPtr<EventKvAgentFindPeerAgents>& /*event*/) {
    LoggerI("called");
    switch (state) {
        case STATE_IDLE:
            LoggerI("Registering service agent");
            registerAgent();
            state = STATE_REGISTERING_FOR_SEARCH;
            break;
        case STATE_REGISTERING:
            LoggerI("Registering service agent (2)");
            state = STATE_REGISTERING_FOR_SEARCH;
            break;
        case STATE_REGISTERING_FOR_SEARCH:
            LoggerI("Already requested findPeerAgents");
            reportSearchError(KV_FIND_DUPLICATE_REQUEST);
            break;
        case STATE_READY:
            LoggerI("finding PeerAgents");
            KvProxySingleton::Instance().findPeerAgent(shared_from_this());
            state = STATE_SEARCHING;
            break;
        case STATE_SEARCHING:
            LoggerI("already finding PeerAgents");
            reportSearchError(KV_FIND_DUPLICATE_REQUEST);
            break;
        default:
            LoggerE("KvAgent have problem.");
            reportSearchError(KV_FIND_DEVICE_NOT_CONNECTED);
            break;
    }
}

void KvAgent::onRegisterServiceAgent(unsigned long id) {
    LoggerI("called");
    agentId = static_cast<uint32_t>(id);
    switch (state) {
        case STATE_REGISTERING:
            LoggerI("KvAgent initialize success");
            state = STATE_READY;
            break;
        case STATE_REGISTERING_FOR_SEARCH:
            LoggerI("KvAgent initialize success, now find PeerAgents");
            KvProxySingleton::Instance().findPeerAgent(shared_from_this());
            state = STATE_SEARCHING;
            break;
        case STATE_READY:
            LoggerI("State error already initialized.");
            break;
        case STATE_SEARCHING:
            LoggerI("State error already initialized. (2)");
            break;
        default:
            LoggerE("State error");
            state = STATE_READY;
            break;
    }
}

void KvAgent::onRegisterServiceFailed() {
    LoggerI("called");
    if (state == STATE_REGISTERING_FOR_SEARCH) {
        LoggerE("KvAgent have problem.");
        reportSearchError(KV_FIND_DEVICE_NOT_CONNECTED);
    }
    state = STATE_FAILED;
}

void KvAgent::onRequestRegisterServiceAgent() {
    LoggerI("called");
    if (state == STATE_IDLE) {
        registerAgent();
        state = STATE_REGISTERING;
    }
}

void KvAgent::onDeviceAttached() {
    LoggerI("called");
    registerAgent();
    state = STATE_REGISTERING;
}

void KvAgent::onDeviceDetached() {
    LoggerI("called");
    state = STATE_FAILED;
}

void KvAgent::onSoftReset() {
    LoggerI("called");
    agentId = 0;
    state = STATE_IDLE;
}

void KvAgent::onFindPeerAgentFound(const KvPeerAgentPtr& peerAgent) {
    LoggerI("called");
    state = STATE_READY;
    emitPeerAgentFind(std::make_shared<EventInfoPeerAgentFindFound>(peerAgent));
}

void KvAgent::onFindPeerAgentUpdated(const KvPeerAgentPtr& peerAgent, bool available) {
    LoggerI("called");
    emitPeerAgentFind(std::make_shared<EventInfoPeerAgentFindUpdated>(
        peerAgent, available ? KV_PEER_AGENT_AVAILABLE : KV_PEER_AGENT_UNAVAILABLE));
}

void KvAgent::onFindPeerAgentError(int errorCode) {
    LoggerI("called");
    state = STATE_READY;
    emitPeerAgentFind(std::make_shared<EventInfoPeerAgentFindError>(errorCode));
}

void KvAgent::onRequest(const KvPeerAgentPtr& peerAgent) {
    LoggerI("called");
    emitServiceConnection(std::make_shared<EventInfoServiceConnectionRequest>(peerAgent));
}

void KvAgent::onConnect(const KvSocketPtr& socket) {
    LoggerI("called");
    emitServiceConnection(std::make_shared<EventInfoServiceConnectionConnect>(socket));
}

void KvAgent::onError(int errorCode) {
    LoggerI("called");
    emitServiceConnection(std::make_shared<EventInfoServiceConnectionError>(errorCode));
}

void KvAgent::OnRequestReceived(
    const DPL::SharedPtr<EventKvAgentSetServiceConnectionListener>& event) {
    LoggerI("called");
    if (event->emitter == nullptr) {
        LoggerE("emitter was not set");
        return;
    }
    serviceConnectionEmitter = event->emitter;
    if (state == STATE_IDLE) {
        registerAgent();
        state = STATE_REGISTERING;
    }
}

void KvAgent::OnRequestReceived(const DPL::SharedPtr<EventKvAgentSetPeerAgentFindListener>& event) {
    LoggerI("called");
    if (event->emitter == nullptr) {
        event->setExceptionCode(ExceptionCodes::InvalidArgumentException);
        return;
    }
    peerAgentFindEmitter = event->emitter;
}

void KvAgent::OnRequestReceived(const DPL::SharedPtr<EventKvAgentRequestServiceConnection>& event) {
    LoggerI("called");
    if (state < STATE_READY) {
        LoggerE(FOREIGN_PEER_AGENT);
        reportConnectionError(KV_CONNECTION_INVALID_PEERAGENT);
        return;
    }
    if (event->peerAgent == nullptr || event->peerAgent->getProfileId() != agentInit->id) {
        LoggerE("ASP ID is not match");
        reportConnectionError(KV_CONNECTION_INVALID_PEERAGENT);
        return;
    }
    KvProxySingleton::Instance().requestServiceConnection(shared_from_this(), event->peerAgent);
}

void KvAgent::OnRequestReceived(
    const DPL::SharedPtr<EventKvAgentAcceptServiceConnectionRequest>& event) {
    LoggerI("called");
    if (!isRegistered()) {
        LoggerE(FOREIGN_PEER_AGENT);
        return;
    }
    KvProxySingleton::Instance().acceptServiceConnection(shared_from_this(), event->peerAgent);
}

void KvAgent::OnRequestReceived(
    const DPL::SharedPtr<EventKvAgentRejectServiceConnectionRequest>& event) {
    LoggerI("called");
    if (!isRegistered()) {
        LoggerE(FOREIGN_PEER_AGENT);
        return;
    }
    KvProxySingleton::Instance().rejectServiceConnection(shared_from_this(), event->peerAgent);
}

void KvAgent::OnRequestReceived(const DPL::SharedPtr<EventKvAgentAuthenticatePeerAgent>& event) {
    LoggerI("called");
    if (!isRegistered()) {
        LoggerE(FOREIGN_PEER_AGENT);
        event->error = std::make_shared<KvErrorObject>(1, "Invalid state");
        return;
    }
    event->setHandlingType(IEventController::HANDLING_ASYNCHRONOUS_MANUAL_ANSWER);
    pendingAuthentications.insert(event);
    KvProxySingleton::Instance().authenticatePeerAgent(shared_from_this(), event->peerAgent);
}

KvAgent::AuthenticationPtr KvAgent::takePendingAuthentication(const KvPeerAgentPtr& peerAgent) {
    for (const AuthenticationPtr& event : pendingAuthentications) {
        if (event->peerAgent != nullptr && peerAgent != nullptr &&
            event->peerAgent->isSamePeer(*peerAgent)) {
            AuthenticationPtr found = event;
            pendingAuthentications.erase(event);
            return found;
        }
    }
    LoggerE("peerAgent not exists");
    return nullptr;
}

void KvAgent::answerAuthentication(const AuthenticationPtr& event) {
    EventRequestReceiver<EventKvAgentAuthenticatePeerAgent>::ManualAnswer(event);
}

void KvAgent::onAuthenticateResponse(const KvPeerAgentPtr& peerAgent, const std::string& token) {
    LoggerI("called");
    const AuthenticationPtr event = takePendingAuthentication(peerAgent);
    if (event == nullptr) {
        return;
    }
    event->token =
        std::make_shared<KvAuthenticationToken>(token, KV_AUTHENTICATION_TYPE_CERTIFICATE_X509);
    answerAuthentication(event);
}

void KvAgent::onAuthenticateError(const KvPeerAgentPtr& peerAgent, int errorCode) {
    LoggerI("called");
    const AuthenticationPtr event = takePendingAuthentication(peerAgent);
    if (event == nullptr) {
        return;
    }
    if (errorCode == 0) {
        event->error = std::make_shared<KvErrorObject>(1, "Token is not generated");
    } else {
        LoggerE("errorCode is invalid : " << errorCode);
        event->error = std::make_shared<KvErrorObject>(5, "Unknown error");
    }
    answerAuthentication(event);
}

void KvAgent::OnRequestReceived(const DPL::SharedPtr<EventKvAgentGetKvFileTransfer>& event) {
    LoggerI("called");
    if (fileTransfer == nullptr) {
        LoggerI("creating KvFileTransfer");
        fileTransfer = std::make_shared<KvFileTransfer>(shared_from_this());
    }
    event->fileTransfer = fileTransfer;
}

}  // namespace KVP
}  // namespace DeviceAPI
