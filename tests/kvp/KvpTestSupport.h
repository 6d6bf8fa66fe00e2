// Shared pieces of the plug-in's native tests: a fixture that starts every
// test from a fresh bridge and client library double, agents and file
// transfers that record the bridge's calls, and listeners that record events.
#ifndef KV_TESTS_KVP_TEST_SUPPORT_H
#define KV_TESTS_KVP_TEST_SUPPORT_H

#include "KvpClientDouble.h"
#include "MainLoopRunner.h"

#include <KvAgent.h>
#include <KvAgentInit.h>
#include <KvFileTransfer.h>
#include <KvProxy.h>
#include <KvSocket.h>
#include <dlog-capture.h>

#include <Commons/EventListener.h>
#include <dpl/main_loop.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace KvpTest {

using namespace DeviceAPI::KVP;

// A profile entry with the given id, role and channels.
inline KvAgentInitPtr makeInit(const std::string& id, KvRole role = KV_ROLE_PROVIDER,
                               const std::vector<uint16_t>& channels = {104}) {
    auto init = std::make_shared<KvAgentInit>();
    init->id = id;
    init->name = id + " name";
    init->role = role;
    for (uint16_t channel : channels) {
        KvChannel entry;
        entry.id = channel;
        init->channels.push_back(entry);
    }
    return init;
}

// The sockets an agent was given, held weakly: a socket holds its agent, so a
// strong reference back would keep both alive for ever. The bridge's table
// keeps them alive while a test looks at them.
class WeakSockets {
public:
    void push_back(const KvSocketPtr& socket) { m_sockets.push_back(socket); }
    size_t size() const { return m_sockets.size(); }
    bool empty() const { return m_sockets.empty(); }
    KvSocketPtr operator[](size_t index) const { return m_sockets[index].lock(); }
    KvSocketPtr at(size_t index) const { return m_sockets.at(index).lock(); }
    KvSocketPtr back() const { return m_sockets.back().lock(); }

private:
    std::vector<std::weak_ptr<KvSocket>> m_sockets;
};

// An agent that records which bridge handlers reached it, then behaves as
// an agent does.
class RecordingAgent : public KvAgent {
public:
    explicit RecordingAgent(const KvAgentInitPtr& init) : KvAgent(init) {}

    std::vector<std::string> calls;
    std::vector<int> codes;
    std::vector<KvPeerAgentPtr> peers;
    WeakSockets sockets;

    void onRegisterServiceAgent(unsigned long id) override {
        record("onRegisterServiceAgent:" + std::to_string(id));
        KvAgent::onRegisterServiceAgent(id);
    }
    void onRegisterServiceFailed() override {
        record("onRegisterServiceFailed");
        KvAgent::onRegisterServiceFailed();
    }
    void onDeviceAttached() override {
        calls.push_back("onDeviceAttached");
        KvAgent::onDeviceAttached();
    }
    void onDeviceDetached() override {
        calls.push_back("onDeviceDetached");
        KvAgent::onDeviceDetached();
    }
    void onSoftReset() override {
        calls.push_back("onSoftReset");
        KvAgent::onSoftReset();
    }
    void onFindPeerAgentFound(const KvPeerAgentPtr& peer) override {
        calls.push_back("onFindPeerAgentFound");
        peers.push_back(peer);
        KvAgent::onFindPeerAgentFound(peer);
    }
    void onFindPeerAgentUpdated(const KvPeerAgentPtr& peer, bool available) override {
        calls.push_back(std::string("onFindPeerAgentUpdated:") + (available ? "1" : "0"));
        peers.push_back(peer);
        KvAgent::onFindPeerAgentUpdated(peer, available);
    }
    void onFindPeerAgentError(int code) override {
        calls.push_back("onFindPeerAgentError");
        codes.push_back(code);
        KvAgent::onFindPeerAgentError(code);
    }
    void onRequest(const KvPeerAgentPtr& peer) override {
        calls.push_back("onRequest");
        peers.push_back(peer);
        if (acceptInRequest) {
            KvProxySingleton::Instance().acceptServiceConnection(shared_from_this(), peer);
        }
        if (rejectInRequest) {
            KvProxySingleton::Instance().rejectServiceConnection(shared_from_this(), peer);
        }
        KvAgent::onRequest(peer);
    }
    void onConnect(const KvSocketPtr& socket) override {
        calls.push_back("onConnect");
        sockets.push_back(socket);
        KvAgent::onConnect(socket);
    }
    void onError(int code) override {
        calls.push_back("onError");
        codes.push_back(code);
        KvAgent::onError(code);
    }
    void onAuthenticateResponse(const KvPeerAgentPtr& peer, const std::string& token) override {
        calls.push_back("onAuthenticateResponse:" + token);
        KvAgent::onAuthenticateResponse(peer, token);
    }
    void onAuthenticateError(const KvPeerAgentPtr& peer, int code) override {
        calls.push_back("onAuthenticateError");
        codes.push_back(code);
        KvAgent::onAuthenticateError(peer, code);
    }

    KvFileTransferPtr getKvFileTransfer() const override {
        return recordingTransfer != nullptr ? recordingTransfer : KvAgent::getKvFileTransfer();
    }

    bool acceptInRequest = false;
    bool rejectInRequest = false;
    KvFileTransferPtr recordingTransfer;
    // When set, registration outcomes of several agents are also written
    // here as "<profile id> <call>", in the order they arrive.
    std::vector<std::string>* journal = nullptr;

private:
    void record(const std::string& call) {
        calls.push_back(call);
        if (journal != nullptr) {
            journal->push_back(getId() + " " + call);
        }
    }
};

// A file transfer that records the bridge's notifications.
class RecordingFileTransfer : public KvFileTransfer {
public:
    explicit RecordingFileTransfer(const KvAgentPtr& agent) : KvFileTransfer(agent) {}

    std::vector<std::string> calls;

    void onFileReceive(int id, const std::string& path) override {
        calls.push_back("onFileReceive:" + std::to_string(id) + ":" + path);
        KvFileTransfer::onFileReceive(id, path);
    }
    void onFileSendProgress(int id, int progress) override {
        calls.push_back("onFileSendProgress:" + std::to_string(id) + ":" +
                        std::to_string(progress));
    }
    void onFileReceiveProgress(int id, int progress) override {
        calls.push_back("onFileReceiveProgress:" + std::to_string(id) + ":" +
                        std::to_string(progress));
    }
    void onFileSendComplete(int id, const std::string& path) override {
        calls.push_back("onFileSendComplete:" + std::to_string(id) + ":" + path);
        KvFileTransfer::onFileSendComplete(id, path);
    }
    void onFileSendError(int code, int id) override {
        calls.push_back("onFileSendError:" + std::to_string(code) + ":" + std::to_string(id));
        KvFileTransfer::onFileSendError(code, id);
    }
    void onFileReceiveComplete(int id, const std::string& path) override {
        calls.push_back("onFileReceiveComplete:" + std::to_string(id) + ":" + path);
        KvFileTransfer::onFileReceiveComplete(id, path);
    }
    void onFileReceiveError(int code, int id) override {
        calls.push_back("onFileReceiveError:" + std::to_string(code) + ":" + std::to_string(id));
        KvFileTransfer::onFileReceiveError(code, id);
    }
};

// A socket that records its loss.
class RecordingSocket : public KvSocket {
public:
    std::vector<int> lost;
    std::vector<std::pair<unsigned long, std::string>> received;

    void onConnectionLost(int reason) override {
        lost.push_back(reason);
        KvSocket::onConnectionLost(reason);
    }
    void onReceive(unsigned long channelId, std::string data) override {
        received.emplace_back(channelId, data);
        KvSocket::onReceive(channelId, data);
    }
};

// Records every listener event it receives, in order.
template <class Event>
class RecordingListener : public WrtDeviceApis::Commons::EventListener<Event> {
public:
    RecordingListener()
        : WrtDeviceApis::Commons::EventListener<Event>(
              WrtDeviceApis::Commons::ThreadEnum::NULL_THREAD) {}

    std::vector<DPL::SharedPtr<Event>> events;

    void onAnswerReceived(const DPL::SharedPtr<Event>& event) override { events.push_back(event); }
};

// Makes a direct emitter whose listener is `listener`.
template <class Event>
DPL::SharedPtr<ListenerEventDirectEmitter<Event>> emitterFor(RecordingListener<Event>& listener) {
    auto emitter = std::make_shared<ListenerEventDirectEmitter<Event>>();
    emitter->setListener(&listener);
    return emitter;
}

// Posts `event` to the receiver base of `object` that serves it.
template <class Event, class Object>
void postRequest(Object& object, const DPL::SharedPtr<Event>& event) {
    static_cast<WrtDeviceApis::Commons::EventRequestReceiver<Event>&>(object).PostRequest(event);
}

// Posts `event` for a synchronous answer and returns it once answered.
template <class Event, class Object>
DPL::SharedPtr<Event> request(Object& object, const DPL::SharedPtr<Event>& event) {
    event->setForSynchronousCall();
    postRequest(object, event);
    return event;
}

// Every test starts from a fresh double and bridge.
class KvpFixture : public ::testing::Test {
protected:
    void SetUp() override {
        DPL::MainLoop::Instance();
        KvpDouble::reset();
        KvProxySingleton::RenewForTests();
    }

    void TearDown() override {
        drainLoop();
        KvProxySingleton::RenewForTests();
        KvpDouble::reset();
    }

    static KvProxy& proxy() { return KvProxySingleton::Instance(); }

    // Runs the main loop until idle callbacks and posted work have run.
    static void drainLoop() { KvTest::runMainLoopFor(std::chrono::milliseconds(20)); }

    // Registers `agent` with the bridge as agent id `agentId`, confirmations
    // delivered and the main loop drained.
    static void registerAgent(const DPL::SharedPtr<RecordingAgent>& agent, unsigned int agentId) {
        agent->onRequestRegisterServiceAgent();
        KvpDouble::notifications().onRegisterServiceAgentConfirm(0, agentId);
        drainLoop();
    }
};

}  // namespace KvpTest

#endif
