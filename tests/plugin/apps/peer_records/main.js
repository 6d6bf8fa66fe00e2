// The peer records seen from script: KvPeerAgent, KvPeerAccessory and
// KvAuthenticationToken objects made from what the service reports; their
// properties; equals with no argument, a number, a foreign object, equal ids
// with other fields different, and ids that differ only in letter case.
var kvdouble = webapis.kvdouble;
var AGENT_ID = 21;

function record(peerAgentId, peerId, appName, accessoryId) {
    return {
        peerAgentId: peerAgentId,
        accessoryId: accessoryId,
        peerId: peerId,
        appName: appName,
        profileId: "/kvtest/peers",
        profileVersion: "3.1",
        deviceName: "Watch " + accessoryId,
    };
}

var found = [];
var agent;

test.deadline(10000, "the peer record test");
test.steps([
    function searchForPeers(next) {
        kvdouble.setPeerAccessory(1, {
            transportType: 3,
            maxAllowedDataSize: 65536,
            deviceAddress: "02:00:00:aa:bb:cc",
            productId: "P-1",
            vendorId: "V-1",
        });
        webapis.kv.requestKvAgent(function (agents) {
            agent = agents[0];
            agent.setPeerAgentFindListener({
                onpeeragentfound: function (peer) {
                    found.push(peer);
                },
            });
            agent.findPeerAgents();
            setTimeout(next, 30);
        }, function (error) {
            test.fail("requestKvAgent: " + error.name + ": " + error.message);
        });
    },
    function deliverPeers(next) {
        kvdouble.deliver("onRegisterServiceAgentConfirm", 0, AGENT_ID);
        setTimeout(function () {
            kvdouble.deliver("onPeerAgent", AGENT_ID, record(11, "peer.one", "App A", 1), 0);
            kvdouble.deliver("onPeerAgent", AGENT_ID, record(12, "peer.one", "App B", 2), 0);
            kvdouble.deliver("onPeerAgent", AGENT_ID, record(13, "Peer.One", "App A", 1), 0);
            test.equal(found.length, 3, "three peers found");
            next();
        }, 30);
    },
    function properties(next) {
        var peer = found[0];
        test.ok(peer instanceof Object, "a peer is an object");
        test.equal(peer.peerId, "peer.one", "peerId");
        test.equal(peer.appName, "App A", "appName");
        test.equal(peer.profileVersion, "3.1", "profileVersion");
        test.equal(peer.maxAllowedDataSize, 65536, "maxAllowedDataSize");
        var accessory = peer.peerAccessory;
        test.equal(accessory.deviceName, "Watch 1", "deviceName");
        test.equal(accessory.deviceAddress, "02:00:00:aa:bb:cc", "deviceAddress");
        test.equal(accessory.productId, "P-1", "productId");
        test.equal(accessory.vendorId, "V-1", "vendorId");
        test.equal(accessory.transportType, "TRANSPORT_WIFI", "transportType");
        peer.peerId = "changed";
        test.equal(peer.peerId, "peer.one", "peerId is read-only");
        test.equal(delete peer.appName, false, "appName cannot be deleted");
        next();
    },
    function equalsComparesPeerIdsOnly(next) {
        test.equal(found[0].equals(found[1]), true, "equal ids, other fields different");
        test.equal(found[1].equals(found[0]), true, "equal ids, the other way round");
        test.equal(found[0].equals(found[2]), false, "ids that differ only in case");
        test.equal(found[0].equals(found[0]), true, "a peer equals itself");
        next();
    },
    function equalsRefusesWhatIsNotAPeer(next) {
        test.throwsError(function () {
            found[0].equals();
        }, "TypeMismatchError", undefined, "equals() without an argument");
        test.throwsError(function () {
            found[0].equals(5);
        }, "TypeMismatchError", "Arguments is not a KvPeerAgent object.", "equals(5)");
        test.throwsError(function () {
            found[0].equals(found[0].peerAccessory);
        }, "TypeMismatchError", "Arguments is not a KvPeerAgent object.", "equals(an accessory)");
        test.throwsError(function () {
            found[0].equals.call({}, found[1]);
        }, "TypeMismatchError", "Wrong object", "equals with a foreign this");
        next();
    },
    function tokensOfAnAuthentication(next) {
        agent.authenticatePeerAgent(found[0], function (peer, token) {
            test.ok(peer.equals(found[0]), "the authenticated peer");
            test.equal(token.key, "token-xyz", "token key");
            test.equal(token.authenticationType, "AUTHENTICATION_TYPE_CERTIFICATE_X509", "token type");
            token.key = "other";
            test.equal(token.key, "token-xyz", "key is read-only");
            next();
        }, function (error) {
            test.fail("authenticatePeerAgent: " + error.name + ": " + error.message);
        });
        kvdouble.deliver("onAuthenticateIndication", AGENT_ID, record(11, "peer.one", "App A", 1),
                         "token-xyz", 0);
    },
    function droppedRecordsAreCollected(next) {
        for (var i = 0; i < 200; ++i) {
            kvdouble.deliver("onPeerAgent", AGENT_ID, record(100 + i, "peer." + i, "App", 1), 0);
        }
        found = [];
        kvdouble.collectGarbage();
        kvdouble.deliver("onPeerAgent", AGENT_ID, record(11, "peer.one", "App A", 1), 0);
        test.equal(found.length, 1, "the listener still works after a collection");
        test.equal(found[0].peerId, "peer.one", "and gets whole records");
        next();
    },
]);
