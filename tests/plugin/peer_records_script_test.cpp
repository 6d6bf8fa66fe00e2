// The peer record script classes seen from script: their properties, in
// order and read-only; `equals`; getters that never throw; and objects that
// are released when the collector takes them.
#include "PluginTestSupport.h"
#include "ScriptTestContext.h"

#include <JSKvAuthenticationToken.h>
#include <JSKvPeerAccessory.h>
#include <JSKvPeerAgent.h>
#include <KvConverter.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace DeviceAPI::KVP;
using PluginTest::makeAccessory;
using PluginTest::makePeer;

namespace {

class PeerRecordsScriptTest : public ::testing::Test {
protected:
    // Evaluates `script` and answers its value as text, or "threw <name>:
    // <message>" when it throws.
    std::string run(const std::string& script) {
        JSValueRef exception = nullptr;
        JSValueRef value = context.evaluate(script, &exception);
        if (exception != nullptr) {
            context.setGlobal("thrown", exception);
            return "threw " + context.text(context.evaluate("thrown.name + ': ' + thrown.message"));
        }
        return context.text(value);
    }

    void expose(const std::string& name, const KvPeerAgentPtr& peer) {
        context.setGlobal(name, converter.toJSValueRef(peer));
    }

    ScriptTestContext context;
    KvConverter converter{context.get()};
};

TEST_F(PeerRecordsScriptTest, PeerAgentShowsItsRecord) {
    expose("peer", makePeer("peer-1", "Peer app", 4096));
    EXPECT_EQ(
        run("var names = []; for (var name in peer) names.push(name); names.sort().join(',')"),
        "appName,equals,maxAllowedDataSize,peerAccessory,peerId,profileVersion");
    EXPECT_EQ(run("peer.appName + '|' + peer.maxAllowedDataSize + '|' + peer.peerId + '|' + "
                  "peer.profileVersion"),
              "Peer app|4096|peer-1|2.0");
    EXPECT_EQ(run("typeof peer.maxAllowedDataSize"), "number");
}

TEST_F(PeerRecordsScriptTest, PeerAccessoryShowsItsRecord) {
    expose("peer", makePeer("peer-1"));
    EXPECT_EQ(run("var a = peer.peerAccessory; [a.deviceAddress, a.deviceName, a.productId, "
                  "a.transportType, a.vendorId].join('|')"),
              "00:11:22:33:44:55|Watch|product-7|TRANSPORT_BLE|vendor-9");
    EXPECT_EQ(run("var names = []; for (var name in peer.peerAccessory) names.push(name); "
                  "names.sort().join(',')"),
              "deviceAddress,deviceName,productId,transportType,vendorId");
}

TEST_F(PeerRecordsScriptTest, PropertiesAreReadOnlyAndNotDeletable) {
    expose("peer", makePeer("peer-1"));
    EXPECT_EQ(run("peer.peerId = 'other'; delete peer.appName; peer.peerId + '|' + peer.appName"),
              "peer-1|Peer app");
    EXPECT_EQ(run("'use strict'; delete peer.appName"),
              "threw TypeError: Unable to delete property.");
}

TEST_F(PeerRecordsScriptTest, TokenShowsKeyAndType) {
    context.setGlobal("token",
                      converter.toJSValueRef(std::make_shared<KvAuthenticationToken>("key-1", 1)));
    context.setGlobal("odd",
                      converter.toJSValueRef(std::make_shared<KvAuthenticationToken>("key-2", 2)));
    EXPECT_EQ(run("token.key + '|' + token.authenticationType + '|' + odd.authenticationType"),
              "key-1|AUTHENTICATION_TYPE_CERTIFICATE_X509|UNKNOWN_ERROR");
    EXPECT_EQ(
        run("var names = []; for (var name in token) names.push(name); names.sort().join(',')"),
        "authenticationType,key");
}

TEST_F(PeerRecordsScriptTest, EqualsComparesPeerIdsOnly) {
    expose("a", makePeer("peer-1", "One app", 100));
    expose("b", makePeer("peer-1", "Other app", 200));
    expose("c", makePeer("PEER-1"));
    expose("d", makePeer("peer-10"));
    EXPECT_EQ(run("a.equals(b) + ',' + b.equals(a) + ',' + a.equals(a)"), "true,true,true");
    EXPECT_EQ(run("a.equals(c) + ',' + a.equals(d)"), "false,false");
}

TEST_F(PeerRecordsScriptTest, EqualsWithoutAPeerAgentAnswersTypeMismatch) {
    expose("a", makePeer("peer-1"));
    context.setGlobal("accessory", converter.toJSValueRef(makeAccessory()));
    EXPECT_EQ(run("a.equals()"), "threw TypeMismatchError: Argument is needed.");
    EXPECT_EQ(run("a.equals(5)"),
              "threw TypeMismatchError: Arguments is not a KvPeerAgent object.");
    EXPECT_EQ(run("a.equals(null)"),
              "threw TypeMismatchError: Arguments is not a KvPeerAgent object.");
    EXPECT_EQ(run("a.equals({peerId: 'peer-1'})"),
              "threw TypeMismatchError: Arguments is not a KvPeerAgent object.");
    EXPECT_EQ(run("a.equals(accessory)"),
              "threw TypeMismatchError: Arguments is not a KvPeerAgent object.");
}

TEST_F(PeerRecordsScriptTest, EqualsOnAForeignObjectAnswersWrongObject) {
    expose("a", makePeer("peer-1"));
    context.setGlobal("accessory", converter.toJSValueRef(makeAccessory()));
    EXPECT_EQ(run("a.equals.call({}, a)"), "threw TypeMismatchError: Wrong object");
    EXPECT_EQ(run("a.equals.call(accessory, a)"), "threw TypeMismatchError: Wrong object");
}

TEST_F(PeerRecordsScriptTest, GetterOfAnEmptyRecordAnswersUndefinedAndLogs) {
    auto empty = std::make_shared<KvPeerAgent>(std::make_shared<PeerAgentWrapper>(nullptr, false),
                                               makeAccessory(), 1);
    expose("peer", empty);
    DlogCapture capture;
    EXPECT_EQ(run("typeof peer.peerId + ',' + typeof peer.appName"), "undefined,undefined");
    EXPECT_EQ(capture.count("trying to get incorrect value"), 2u);
    EXPECT_EQ(run("peer.maxAllowedDataSize"), "1");
}

TEST_F(PeerRecordsScriptTest, DroppedObjectsReleaseTheirRecords) {
    std::vector<std::weak_ptr<KvPeerAgent>> peers;
    std::vector<std::weak_ptr<KvAuthenticationToken>> tokens;
    for (int round = 0; round < 200; ++round) {
        const KvPeerAgentPtr peer = makePeer("peer-" + std::to_string(round));
        const auto token = std::make_shared<KvAuthenticationToken>("key", 0);
        peers.push_back(peer);
        tokens.push_back(token);
        context.setGlobal("peer", converter.toJSValueRef(peer));
        context.setGlobal("token", converter.toJSValueRef(token));
        run("peer.peerAccessory.deviceName; peer.equals(peer); token.key");
    }
    run("peer = null; token = null");
    context.collectGarbage();
    size_t alive = 0;
    for (const auto& peer : peers) {
        alive += peer.expired() ? 0 : 1;
    }
    for (const auto& token : tokens) {
        alive += token.expired() ? 0 : 1;
    }
    // A conservative collector may keep a few objects that a stale stack slot
    // still points at, never the lot.
    EXPECT_LT(alive, 10u);
}

}  // namespace
