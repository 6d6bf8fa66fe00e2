// The KvAgent script object: its properties; the checks of `this` and of the
// arguments of its methods, which answer before anything reaches the
// accessory service; the peer agent search with its registration; the
// service connection listener; authentication; the file transfer it hands
// out; a search after the device went away.
var kvdouble = webapis.kvdouble;
var AGENT_ID = 7;
var PEER = {
    peerAgentId: 11,
    accessoryId: 1,
    peerId: "peer-1",
    appName: "Peer app",
    profileId: "/kvtest/hello",
    profileVersion: "2.0",
    deviceName: "Watch",
};
var METHODS = [
    "requestServiceConnection",
    "setServiceConnectionListener",
    "acceptServiceConnectionRequest",
    "rejectServiceConnectionRequest",
    "findPeerAgents",
    "setPeerAgentFindListener",
    "authenticatePeerAgent",
    "getKvFileTransfer",
];

var agent, unregistered, peer;

// Runs `step` once the main loop has had time for idle callbacks.
function later(step) {
    setTimeout(step, 30);
}

// A listener object whose callbacks record their calls in `log` as
// {name, args, self}.
function recorder(names) {
    var log = [];
    var listener = {};
    names.forEach(function (name) {
        listener[name] = function () {
            log.push({ name: name, args: Array.prototype.slice.call(arguments), self: this });
        };
    });
    return { listener: listener, log: log };
}

function namesOf(log) {
    return log
        .map(function (entry) {
            return entry.name;
        })
        .join(",");
}

// The calls of the client library double other than those the bridge makes
// by itself while it starts.
function serviceCalls() {
    return kvdouble.calls().filter(function (call) {
        return ["isKvpConnected", "registerNotifications", "registerFTNotifications",
            "getPeerAccessory"].indexOf(call.function) < 0;
    }).length;
}

var find = recorder(["onpeeragentfound", "onpeeragentupdated", "onerror"]);
var connection = recorder(["onrequest", "onconnect", "onerror"]);
var otherConnection = recorder(["onrequest", "onconnect", "onerror"]);

test.deadline(15000, "the agent test");
test.steps([
    function requestAgents(next) {
        webapis.kv.requestKvAgent(
            function (agents) {
                test.equal(agents.length, 2, "number of agents");
                agent = agents[0];
                unregistered = agents[1];
                next();
            },
            function (error) {
                test.fail("requestKvAgent: " + error.name + ": " + error.message);
            }
        );
    },

    function properties(next) {
        test.equal(Object.prototype.toString.call(agent), "[object KvAgent]", "class name");
        test.equal(agent.id, "/kvtest/hello", "id");
        test.equal(agent.name, "HelloAccessory", "name");
        test.equal(agent.role, "PROVIDER", "role");
        test.equal(JSON.stringify(agent.channelIds), "[104,105]", "channelIds");
        test.equal(unregistered.id, null, "an agent without id reads null");
        test.equal(unregistered.role, "CONSUMER", "role of the consumer");
        agent.id = "changed";
        test.equal(agent.id, "/kvtest/hello", "id is read-only");
        test.equal(delete agent.name, false, "name cannot be deleted");
        next();
    },

    function foreignThis(next) {
        var before = serviceCalls();
        var fileTransfer = agent.getKvFileTransfer();
        [{}, webapis.kv, fileTransfer, null].forEach(function (self) {
            METHODS.forEach(function (method) {
                test.throwsError(
                    function () {
                        agent[method].call(self, agent, function () {}, function () {});
                    },
                    "TypeMismatchError",
                    "Wrong object",
                    method + " on a foreign object"
                );
            });
        });
        test.equal(serviceCalls(), before, "no call reached the service");
        next();
    },

    function peerAgentArguments(next) {
        var before = serviceCalls();
        ["requestServiceConnection", "acceptServiceConnectionRequest",
            "rejectServiceConnectionRequest", "authenticatePeerAgent"].forEach(function (method) {
            test.throwsError(
                function () {
                    agent[method]();
                },
                "TypeMismatchError",
                "Argument is needed.",
                method + "()"
            );
            [5, "peer", {}, null, agent].forEach(function (value) {
                test.throwsError(
                    function () {
                        agent[method](value, function () {});
                    },
                    "TypeMismatchError",
                    "1st argument is not a KvPeerAgent object.",
                    method + "(" + String(value) + ")"
                );
            });
        });
        test.equal(serviceCalls(), before, "no call reached the service");
        next();
    },

    function listenerArguments(next) {
        var before = serviceCalls();
        var cases = [
            ["setPeerAgentFindListener", undefined, "1st argument is not an object"],
            ["setPeerAgentFindListener", 5, "1st argument is not an object"],
            ["setPeerAgentFindListener", { onpeeragentfound: 5 },
                "'onpeeragentfound' attribute is not a function"],
            ["setPeerAgentFindListener", { onpeeragentupdated: "x" },
                "'onpeeragentupdated' attribute is not a function"],
            ["setPeerAgentFindListener", { onpeeragentfound: function () {}, onerror: {} },
                "'onerror' attribute is not a function"],
            ["setServiceConnectionListener", "listener", "1st argument is not an object"],
            ["setServiceConnectionListener", { onrequest: 1 },
                "'onrequest' attribute is not a function"],
            ["setServiceConnectionListener", { onconnect: true },
                "'onconnect' attribute is not a function"],
            ["setServiceConnectionListener", { onerror: [] }, "'onerror' attribute is not a function"],
        ];
        cases.forEach(function (entry) {
            test.throwsError(
                function () {
                    agent[entry[0]](entry[1]);
                },
                "TypeMismatchError",
                entry[2],
                entry[0] + " with " + JSON.stringify(entry[1])
            );
        });
        test.equal(serviceCalls(), before, "a refused listener starts no registration");
        test.equal(unregistered.setPeerAgentFindListener({}), undefined,
            "a listener object without attributes is accepted");
        test.equal(unregistered.setPeerAgentFindListener({ onerror: undefined }), undefined,
            "an undefined attribute counts as missing");
        test.equal(serviceCalls(), before, "a find listener starts no registration");
        next();
    },

    function searchRegistersTheAgent(next) {
        agent.setPeerAgentFindListener(find.listener);
        test.equal(test.callsTo("getRegisteredServiceAgent").length, 0,
            "setting the find listener does not register");
        var returned = false;
        agent.findPeerAgents();
        agent.findPeerAgents();
        returned = true;
        var registrations = test.callsTo("getRegisteredServiceAgent");
        test.equal(registrations.length, 1, "one registration for two searches");
        test.equal(registrations[0].args[0], "/kvtest/hello", "registered profile");
        test.equal(find.log.length, 0, "no callback inside findPeerAgents");
        later(function () {
            test.ok(returned, "the duplicate search was answered after the call returned");
            test.equal(namesOf(find.log), "onerror", "the second search fails");
            test.equal(JSON.stringify(find.log[0].args), '["DUPLICATE_REQUEST"]', "error code");
            test.ok(find.log[0].self === agent, "the agent is `this` of its listener");
            test.equal(test.callsTo("findPeerAgent").length, 0, "no search before registration");
            next();
        });
    },

    function registrationStartsTheSearch(next) {
        find.log.length = 0;
        kvdouble.deliver("onRegisterServiceAgentConfirm", 0, AGENT_ID);
        later(function () {
            var searches = test.callsTo("findPeerAgent");
            test.equal(searches.length, 1, "the waiting search starts by itself");
            test.equal(searches[0].args[0], String(AGENT_ID), "search of the registered agent");
            test.equal(find.log.length, 0, "nothing is reported before a peer is found");
            next();
        });
    },

    function peerFoundAndUpdated(next) {
        kvdouble.deliver("onPeerAgent", AGENT_ID, PEER, 0);
        test.equal(namesOf(find.log), "onpeeragentfound", "a peer was found");
        test.equal(find.log[0].args.length, 1, "onpeeragentfound gets one argument");
        peer = find.log[0].args[0];
        test.equal(Object.prototype.toString.call(peer), "[object KvPeerAgent]", "a KvPeerAgent");
        test.equal(peer.peerId, "peer-1", "peer id");
        kvdouble.deliver("onPeerAgentIndication", AGENT_ID, PEER, 1);
        kvdouble.deliver("onPeerAgentIndication", AGENT_ID, PEER, 0);
        test.equal(namesOf(find.log), "onpeeragentfound,onpeeragentupdated,onpeeragentupdated",
            "updates");
        test.equal(find.log[1].args[1], "UNAVAILABLE", "a peer that went");
        test.equal(find.log[2].args[1], "AVAILABLE", "a peer that came back");
        test.ok(find.log[1].args[0].equals(peer), "the updated peer is the found one");
        next();
    },

    function authenticationInAnUnregisteredAgent(next) {
        var outcome = [];
        var returned = false;
        unregistered.authenticatePeerAgent(
            peer,
            function () {
                outcome.push("success");
            },
            function (error) {
                outcome.push(error.name + ": " + error.message);
            }
        );
        returned = true;
        test.equal(outcome.length, 0, "nothing is called inside the request");
        test.equal(test.callsTo("authenticatePeerAgent").length, 0, "the service is not asked");
        later(function () {
            test.ok(returned, "answered after the call");
            test.equal(JSON.stringify(outcome), '["TokenNotGeneratedError: Invalid state"]',
                "the error callback");
            next();
        });
    },

    function authenticationArguments(next) {
        test.throwsError(
            function () {
                agent.authenticatePeerAgent(peer);
            },
            "TypeMismatchError",
            undefined,
            "authenticatePeerAgent without a success callback"
        );
        test.throwsError(
            function () {
                agent.authenticatePeerAgent(peer, function () {}, 5);
            },
            "TypeMismatchError",
            undefined,
            "authenticatePeerAgent with a number as error callback"
        );
        test.equal(test.callsTo("authenticatePeerAgent").length, 0, "the service is not asked");
        next();
    },

    function authenticationSucceeds(next) {
        agent.authenticatePeerAgent(
            peer,
            function (authenticated, token) {
                test.equal(arguments.length, 2, "success arguments");
                test.ok(authenticated.equals(peer), "the authenticated peer");
                test.equal(Object.prototype.toString.call(token), "[object KvAuthenticationToken]",
                    "a token");
                test.equal(token.key, "token-1", "token key");
                test.equal(token.authenticationType, "AUTHENTICATION_TYPE_CERTIFICATE_X509",
                    "token type");
                next();
            },
            function (error) {
                test.fail("authentication failed: " + error.name);
            }
        );
        test.equal(test.callsTo("authenticatePeerAgent").length, 1, "the service is asked");
        kvdouble.deliver("onAuthenticateIndication", AGENT_ID, PEER, "token-1", 0);
    },

    function authenticationFails(next) {
        agent.authenticatePeerAgent(
            peer,
            function () {
                test.fail("an authentication without token succeeded");
            },
            function (error) {
                test.equal(error.name, "TokenNotGeneratedError", "error name");
                test.equal(error.message, "Token is not generated", "error message");
                next();
            }
        );
        kvdouble.deliver("onAuthenticateIndication", AGENT_ID, PEER, null, 1);
    },

    function connectionFromAnUnregisteredAgent(next) {
        unregistered.setServiceConnectionListener(otherConnection.listener);
        test.equal(test.callsTo("getRegisteredServiceAgent").length, 2,
            "a connection listener registers an idle agent");
        unregistered.requestServiceConnection(peer);
        test.equal(otherConnection.log.length, 0, "nothing is called inside the request");
        later(function () {
            test.equal(namesOf(otherConnection.log), "onerror", "the connection fails");
            test.equal(otherConnection.log[0].args[0], "INVALID_PEERAGENT", "error code");
            test.equal(test.callsTo("createServiceConnection").length, 0, "the service is not asked");
            next();
        });
    },

    function connectionRequestedByThePeer(next) {
        agent.setServiceConnectionListener({
            onrequest: function (requester) {
                connection.listener.onrequest(requester);
                agent.acceptServiceConnectionRequest(requester);
            },
            onconnect: connection.listener.onconnect,
            onerror: connection.listener.onerror,
        });
        kvdouble.deliver("onServiceConnectionIndication", AGENT_ID, 21, PEER);
        test.equal(namesOf(connection.log), "onrequest", "the peer asks");
        test.ok(connection.log[0].args[0].equals(peer), "onrequest gets the peer");
        var accepts = test.callsTo("acceptServiceConnection");
        test.equal(accepts.length, 1, "accepted during onrequest");
        test.equal(accepts[0].args[1], "21", "the connection asked for");
        later(function () {
            test.equal(namesOf(connection.log), "onrequest,onconnect", "connected");
            var socket = connection.log[1].args[0];
            test.equal(Object.prototype.toString.call(socket), "[object KvSocket]", "a KvSocket");
            test.ok(socket.peerAgent.equals(peer), "the socket's peer");
            test.ok(socket.isConnected(), "the socket is connected");
            next();
        });
    },

    function secondConnectionToTheSamePeer(next) {
        connection.log.length = 0;
        agent.requestServiceConnection(peer);
        test.equal(test.callsTo("createServiceConnection").length, 0, "the service is not asked");
        test.equal(connection.log.length, 0, "nothing is called inside the request");
        later(function () {
            test.equal(namesOf(connection.log), "onerror", "the connection fails");
            test.equal(connection.log[0].args[0], "ALREADY_EXIST", "error code");
            next();
        });
    },

    function rejectAConnection(next) {
        agent.setServiceConnectionListener({
            onrequest: function (requester) {
                agent.rejectServiceConnectionRequest(requester);
            },
        });
        kvdouble.deliver("onServiceConnectionIndication", AGENT_ID, 22, PEER);
        var rejects = test.callsTo("rejectServiceConnection");
        test.equal(rejects.length, 1, "rejected during onrequest");
        test.equal(rejects[0].args[1], "22", "the connection asked for");
        next();
    },

    function fileTransfer(next) {
        var fileTransfer = agent.getKvFileTransfer();
        test.equal(Object.prototype.toString.call(fileTransfer), "[object KvFileTransfer]",
            "a KvFileTransfer");
        test.equal(fileTransfer.defaultReceivePath, "/opt/usr/media/Downloads/",
            "default receive path");
        next();
    },

    function searchAfterTheRegistrationFailed(next) {
        // The consumer's registration, asked for by its connection listener,
        // is refused: the agent is left failed, as after a detached device.
        kvdouble.deliver("onRegisterServiceAgentConfirm", -1, 0);
        var failed = recorder(["onpeeragentfound", "onpeeragentupdated", "onerror"]);
        unregistered.setPeerAgentFindListener(failed.listener);
        var returned = false;
        unregistered.findPeerAgents();
        returned = true;
        test.equal(failed.log.length, 0, "nothing is called inside the request");
        later(function () {
            test.ok(returned, "answered after the call");
            test.equal(namesOf(failed.log), "onerror", "the search fails");
            test.equal(failed.log[0].args[0], "DEVICE_NOT_CONNECTED", "error code");
            test.equal(test.callsTo("getRegisteredServiceAgent").length, 2, "no new registration");
            next();
        });
    },
    function searchAfterTheDeviceWent(next) {
        // The device comes: every agent registers anew; the provider's
        // registration is confirmed. Then the device goes.
        kvdouble.deliver("onDeviceStatus", 4, 1);
        kvdouble.deliver("onRegisterServiceAgentConfirm", 0, AGENT_ID);
        later(function () {
            find.log.length = 0;
            kvdouble.deliver("onDeviceStatus", 4, 0);
            var returned = false;
            agent.findPeerAgents();
            returned = true;
            test.equal(find.log.length, 0, "nothing is called inside the request");
            later(function () {
                test.ok(returned, "answered after the call");
                test.equal(namesOf(find.log), "onerror", "the search fails");
                test.equal(find.log[0].args[0], "DEVICE_NOT_CONNECTED", "error code");
                next();
            });
        });
    },
]);
