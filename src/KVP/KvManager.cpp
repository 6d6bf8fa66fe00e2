#include "KvManager.h"

#include "KvAgent.h"
#include "KvListenerRequest.h"
#include "KvProxy.h"
#include "KvServiceProfileLoader.h"

#include <Logger.h>

#include <memory>

namespace DeviceAPI {
namespace KVP {

using WrtDeviceApis::Commons::EventRequestReceiver;
using WrtDeviceApis::Commons::ThreadEnum;

namespace {

const char* const NO_AGENT_MESSAGE = "Failed to register KvAgent.";

}  // namespace

KvManagerPtr KvManager::getInstance() {
    static KvManagerPtr instance = std::make_shared<KvManager>();
    return instance;
}

KvManager::KvManager()
    : EventRequestReceiver<EventKvManagerRequestKvAgent>(ThreadEnum::NULL_THREAD),
      EventRequestReceiver<EventKvManagerSetDeviceStatusListener>(ThreadEnum::NULL_THREAD),
      agents(std::make_shared<KvAgentList>()) {}

KvManager::~KvManager() = default;

// The bridge learns of the manager on its first request of either kind.
void KvManager::registerWithBridge() {
    KvProxy& proxy = KvProxySingleton::Instance();
    if (proxy.getManager() == nullptr) {
        proxy.setManager(shared_from_this());
    }
}

void KvManager::OnRequestReceived(const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event) {
    LoggerI("called");
    registerWithBridge();
    if (!initialized) {
        createAgents(event);
    } else {
        answerFromAgents(event);
    }
}

void KvManager::createAgents(const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event) {
    KvServiceProfileLoader loader;
    const KvAgentInitListPtr inits = loader.getKvAgentInits();
    if (inits->empty()) {
        error =
            std::make_shared<KvErrorObject>(KvErrorObject::SERVICE_NOT_AVAILABLE, NO_AGENT_MESSAGE);
        event->error = error;
        return;
    }
    for (const KvAgentInitPtr& init : *inits) {
        agents->push_back(std::make_shared<KvAgent>(init));
    }
    KvProxySingleton::Instance().setAgentList(agents);
    initialized = true;
    event->agents = agents;
}

void KvManager::answerFromAgents(const DPL::SharedPtr<EventKvManagerRequestKvAgent>& event) {
    if (!agents->empty()) {
        event->agents = agents;
        return;
    }
    event->error = error != nullptr ? error
                                    : std::make_shared<KvErrorObject>(
                                          KvErrorObject::SERVICE_NOT_AVAILABLE, NO_AGENT_MESSAGE);
}

void KvManager::OnRequestReceived(
    const DPL::SharedPtr<EventKvManagerSetDeviceStatusListener>& event) {
    LoggerI("called");
    registerWithBridge();
    takeListenerEmitter(event, deviceStatusEmitter, "Error during set ondevicestatus callback : ");
}

void KvManager::onDeviceStatus(int transportType, int deviceStatus) {
    LoggerI("called");
    if (deviceStatusEmitter == nullptr) {
        return;
    }
    auto event = std::make_shared<EventKvManagerDeviceStatusListener>();
    event->transportType = transportType;
    event->deviceStatus = deviceStatus;
    deviceStatusEmitter->emit(event);
}

// The device-status listener stays: nothing but a new listener replaces it.
void KvManager::onSoftReset() { LoggerI("called"); }

}  // namespace KVP
}  // namespace DeviceAPI
