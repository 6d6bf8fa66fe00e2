// Every request an app has pending when the link goes ends with its failure,
// told to the app before the link key says the link is down: the app's
// plug-in forgets its agents when it sees the key, and would drop the failure
// of a request whose agent it no longer knows. For each kind of request (a
// search, a connection request, an authentication, a file offer) and each way
// the link can go (detached, dropped, silent past supervision, the other
// device's service killed), this process (the provider app of beta, with the
// real client library) watches the key as a plug-in does and notes it in
// the same record as the library's notifications. The failure also comes
// before any service error of the loss (a silent link, lost data), on which a
// plug-in forgets its agents as well.
#include <MainLoopRunner.h>
#include <gtest/gtest.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/FileUtil.h>
#include <kvp-client-stub-api.h>
#include <vconf.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "AccessoryTestSupport.h"
#include "Limits.h"

namespace KvTest {
namespace {

const char kLinkKey[] = "memory/private/kvp/conn_status";

// A peer record the library handed over, kept.
struct KeptPeer {
    unsigned int peerAgentId = 0;
    unsigned int accessoryId = 0;
    std::vector<std::string> texts;  // peerId, appName, profileId, profileVersion, deviceName
    kvp_peer_agent_t record() {
        return kvp_peer_agent_t{peerAgentId,     accessoryId,     texts[0].data(), texts[1].data(),
                                texts[2].data(), texts[3].data(), texts[4].data()};
    }
};

// What the app heard, in order: the library's notifications and the link
// key's changes.
struct Heard {
    std::vector<std::string> log;
    unsigned int agentId = 0;
    std::vector<KeptPeer> peers;
};

Heard heard;

void note(const std::string& what) { heard.log.push_back(what); }

void onRegister(int result, unsigned int agentId) {
    if (result == 0) {
        heard.agentId = agentId;
    }
}

void onPeerAgent(unsigned int, const kvp_peer_agent_t* peer, int status) {
    note("search " + std::to_string(status));
    if (status == KVP_SEARCH_FOUND && peer != nullptr) {
        heard.peers.push_back({peer->peerAgentId,
                               peer->accessoryId,
                               {peer->peerId, peer->appName, peer->profileId, peer->profileVersion,
                                peer->deviceName}});
    }
}

void onCreateConfirm(unsigned int, unsigned int, const kvp_peer_agent_t*, int status) {
    note("connection " + std::to_string(status));
}

void onAuthenticated(unsigned int, const kvp_peer_agent_t*, const char*, int status) {
    note("authenticated " + std::to_string(status));
}

void onSendComplete(int, const char*, int status) { note("file " + std::to_string(status)); }

void onDeviceStatus(int, int status) { note("device " + std::to_string(status)); }

void onServiceError(unsigned int, int code) { note("service error " + std::to_string(code)); }

void onLinkKey(keynode_t* node, void*) {
    note("link key " + std::to_string(vconf_keynode_get_int(node)));
}

class PendingRequestsAtLinkLoss
    : public testing::TestWithParam<std::tuple<std::string, std::string>> {
protected:
    void SetUp() override {
        heard = Heard();
        devices.start();
        setenv("KV_DEVICE", devices.beta().c_str(), 1);
        Kv::Device::registerRunningApp(getpid(), kProviderApp);
        kvp_notifications_t table;
        std::memset(&table, 0, sizeof table);
        table.onRegisterServiceAgentConfirm = onRegister;
        table.onPeerAgent = onPeerAgent;
        table.onServiceCreateConfirm = onCreateConfirm;
        table.onAuthenticateIndication = onAuthenticated;
        table.onDeviceStatus = onDeviceStatus;
        table.onError = onServiceError;
        ASSERT_EQ(registerNotifications(table), KVP_SUCCESS);
        kvp_ft_notifications_t files;
        std::memset(&files, 0, sizeof files);
        files.onSendComplete = onSendComplete;
        registerFTNotifications(files);
        ASSERT_TRUE(runMainLoopUntil([] { return isKvpConnected() == 1; }));
        ASSERT_EQ(vconf_notify_key_changed(kLinkKey, onLinkKey, nullptr), VCONF_OK);
        char profile[] = "/test/echo";
        ASSERT_EQ(getRegisteredServiceAgent(profile, 0), KVP_SUCCESS);
        ASSERT_TRUE(runMainLoopUntil([] { return heard.agentId != 0; }));
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
        consumerAgent = consumer->registerAgent("/test/echo");
        ASSERT_NE(consumerAgent, 0u);
        ASSERT_EQ(findPeerAgent(heard.agentId), KVP_SUCCESS);
        ASSERT_TRUE(runMainLoopUntil([] { return !heard.peers.empty(); }));
        ASSERT_TRUE(runMainLoopUntil([] {
            return std::find(heard.log.begin(), heard.log.end(), "search 4") != heard.log.end();
        }));
        heard.log.clear();
    }

    void TearDown() override {
        vconf_ignore_key_changed(kLinkKey, onLinkKey);
        deregisterNotifications();
        unsetenv("KV_DEVICE");
    }

    void fault(wire::LinkFault::Action action, int stallMs = 0) {
        WireClient tool(devices.beta(), "");
        wire::Request request;
        request.mutable_fault()->set_action(action);
        request.mutable_fault()->set_stall_ms(stallMs);
        ASSERT_EQ(tool.call(request).result(), 0);
    }

    // The link stops carrying anything for `ms`: what goes out meanwhile
    // waits for an answer that does not come.
    void stall(int ms) { fault(wire::LinkFault::STALL, ms); }

    void makePending(const std::string& request) {
        kvp_peer_agent_t peer = heard.peers.front().record();
        if (request == "search") {
            ASSERT_EQ(findPeerAgent(heard.agentId), KVP_SUCCESS);
        } else if (request == "connection") {
            // The consumer hears the request and never answers it.
            ASSERT_EQ(createServiceConnection(heard.agentId, &peer), KVP_SUCCESS);
            ASSERT_TRUE(
                consumer
                    ->waitEvent([](const wire::Event& e) { return e.has_connection_requested(); })
                    .has_value());
        } else if (request == "authentication") {
            ASSERT_EQ(authenticatePeerAgent(heard.agentId, &peer), KVP_SUCCESS);
        } else {
            const std::string file = devices.beta() + "/fs/opt/usr/media/Documents/offer.txt";
            Kv::Device::writeFileAtomically(file, "a file the consumer never answers for\n");
            char path[] = "/opt/usr/media/Documents/offer.txt";
            ASSERT_GT(pushFile(path, &peer, heard.agentId), 0);
            ASSERT_TRUE(
                consumer->waitEvent([](const wire::Event& e) { return e.has_file_offered(); })
                    .has_value());
        }
    }

    void loseLink(const std::string& way) {
        if (way == "detach") {
            devices.setLink(devices.beta(), false);
        } else if (way == "drop") {
            fault(wire::LinkFault::DROP);
        } else if (way == "silence") {
            stall(static_cast<int>(Kv::Accessory::kLinkSilenceLimit.count() * 1000 + 3000));
        } else {
            devices.killAlpha();
        }
    }

    // The request's failure as the app hears it: for a search, that the
    // device went (or, when a silent link outlasts the search's own time,
    // that it timed out first).
    static std::string failureOf(const std::string& request) {
        if (request == "search") {
            const auto failed = heardFirst("search " + std::to_string(KVP_SEARCH_NO_DEVICE));
            return failed != heard.log.end() ? *failed
                                             : "search " + std::to_string(KVP_SEARCH_TIMED_OUT);
        }
        if (request == "connection") {
            return "connection " + std::to_string(KVP_CONNECTION_NETWORK_ERROR);
        }
        if (request == "authentication") {
            return "authenticated";  // answered, whichever way
        }
        return "file " + std::to_string(KVP_FILE_CONNECTION_LOST);
    }

    static std::vector<std::string>::iterator heardFirst(const std::string& prefix) {
        return std::find_if(heard.log.begin(), heard.log.end(),
                            [&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
    }

    DevicePair devices;
    std::unique_ptr<WireClient> consumer;  // alpha's consumer app, scripted
    std::uint32_t consumerAgent = 0;
};

TEST_P(PendingRequestsAtLinkLoss, EndBeforeTheLinkKeySaysDown) {
    const auto& [request, way] = GetParam();
    if (request == "search") {
        // A search is answered at once on a working link: it waits on a
        // stalled one.
        stall(way == "silence" ? 0 : 4000);
    }
    if (request == "search" && way == "silence") {
        loseLink(way);
        makePending(request);
    } else {
        makePending(request);
        loseLink(way);
    }
    const auto limit = Kv::Accessory::kLinkSilenceLimit + std::chrono::seconds(8);
    ASSERT_TRUE(runMainLoopUntil([] { return heardFirst("link key 0") != heard.log.end(); }, limit))
        << testing::PrintToString(heard.log);
    const auto failure = heardFirst(failureOf(request));
    ASSERT_NE(failure, heard.log.end()) << testing::PrintToString(heard.log);
    EXPECT_LT(failure, heardFirst("link key 0")) << testing::PrintToString(heard.log);
    // A plug-in forgets its agents on a service error too.
    EXPECT_LT(failure, heardFirst("service error")) << testing::PrintToString(heard.log);
    EXPECT_LT(heardFirst("device 0"), heardFirst("link key 0"))
        << testing::PrintToString(heard.log);
}

// A request made after the service has told of the link's loss, but before
// the app has heard of it, fails in its reply: an answer that came in a later
// notification would reach the app after the loss, when it has forgotten the
// request's agent.
class RequestsBeforeTheLossIsHeard : public PendingRequestsAtLinkLoss {
protected:
    // Makes `request` and returns what the call itself answered.
    int requestNow(const std::string& request) {
        kvp_peer_agent_t peer = heard.peers.front().record();
        if (request == "search") {
            return findPeerAgent(heard.agentId);
        }
        if (request == "connection") {
            return createServiceConnection(heard.agentId, &peer);
        }
        if (request == "authentication") {
            return authenticatePeerAgent(heard.agentId, &peer);
        }
        const std::string file = devices.beta() + "/fs/opt/usr/media/Documents/offer.txt";
        Kv::Device::writeFileAtomically(file, "a file offered too late\n");
        char path[] = "/opt/usr/media/Documents/offer.txt";
        return pushFile(path, &peer, heard.agentId);
    }

    // Each call's own failure, as the library's header states it.
    static int callFailure(const std::string& request) {
        return request == "search" || request == "authentication" ? KVP_ERROR_NO_DEVICE
                                                                  : KVP_ERROR_GENERAL;
    }

    // The notification that would have answered the request.
    static std::string answerOf(const std::string& request) {
        if (request == "search") {
            return "search";
        }
        if (request == "connection") {
            return "connection";
        }
        return request == "authentication" ? "authenticated" : "file";
    }
};

TEST_P(RequestsBeforeTheLossIsHeard, FailInTheirReplyAndAreNotAnsweredLater) {
    const auto& [request, way] = GetParam();
    loseLink(way);
    // The service knows; the app, whose main loop has not run, does not.
    ASSERT_TRUE(devices.waitLinked(devices.beta(), false));
    EXPECT_EQ(requestNow(request), callFailure(request));
    const auto limit = Kv::Accessory::kLinkSilenceLimit + std::chrono::seconds(8);
    ASSERT_TRUE(runMainLoopUntil([] { return heardFirst("link key 0") != heard.log.end(); }, limit))
        << testing::PrintToString(heard.log);
    runMainLoopFor(std::chrono::milliseconds(300));
    EXPECT_TRUE(heardFirst(answerOf(request)) == heard.log.end())
        << "answered after the loss: " << testing::PrintToString(heard.log);
    EXPECT_TRUE(heardFirst("device 0") != heard.log.end()) << testing::PrintToString(heard.log);
}

INSTANTIATE_TEST_SUITE_P(
    EveryRequest, RequestsBeforeTheLossIsHeard,
    testing::Combine(testing::Values("search", "connection", "authentication", "file"),
                     testing::Values("detach", "peer-killed")),
    [](const testing::TestParamInfo<std::tuple<std::string, std::string>>& info) {
        std::string name = std::get<0>(info.param) + "_" + std::get<1>(info.param);
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

INSTANTIATE_TEST_SUITE_P(
    EveryRequestEveryWay, PendingRequestsAtLinkLoss,
    testing::Combine(testing::Values("search", "connection", "authentication", "file"),
                     testing::Values("detach", "drop", "silence", "peer-killed")),
    [](const testing::TestParamInfo<std::tuple<std::string, std::string>>& info) {
        std::string name = std::get<0>(info.param) + "_" + std::get<1>(info.param);
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

}  // namespace
}  // namespace KvTest
