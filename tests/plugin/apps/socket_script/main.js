// The KvSocket script object through a whole connection: the agent finds a
// peer and connects to it; the socket sends on every channel of the agent
// (plain and secure), refuses what it must refuse before anything is sent,
// delivers received data, and reports the connection's loss; a second
// connection is closed by the script.
var kvdouble = webapis.kvdouble;
var AGENT_ID = 7;
var CONNECTION_ID = 31;
var PEER = {
    peerAgentId: 11,
    accessoryId: 1,
    peerId: "peer-1",
    appName: "Peer app",
    profileId: "/kvtest/hello",
    profileVersion: "2.0",
    deviceName: "Watch",
};
var MAX_DATA = 1048576;
var METHODS = ["close", "isConnected", "sendData", "sendSecureData", "setDataReceiveListener",
    "setSocketStatusListener"];

var agent, peer, socket;
var connected = [];
var received = [];
var statuses = [];

// Runs `step` once the main loop has had time for idle callbacks.
function later(step) {
    setTimeout(step, 30);
}

// A text of `count` copies of `unit`.
function text(unit, count) {
    return new Array(count + 1).join(unit);
}

function sends(name) {
    return test.callsTo(name || "sendData");
}

function connectionListener(next) {
    return {
        onconnect: function (newSocket) {
            test.equal(arguments.length, 1, "onconnect arguments");
            test.ok(this === agent, "the agent is `this` of onconnect");
            connected.push(newSocket);
            next();
        },
        onerror: function (code) {
            test.fail("connection failed: " + code);
        },
    };
}

test.deadline(15000, "the socket test");
test.steps([
    function findThePeer(next) {
        test.findPeer(AGENT_ID, PEER, function (foundAgent, foundPeer) {
            agent = foundAgent;
            peer = foundPeer;
            next();
        });
    },

    function connect(next) {
        agent.setServiceConnectionListener(connectionListener(next));
        agent.requestServiceConnection(peer);
        var requests = test.callsTo("createServiceConnection");
        test.equal(requests.length, 1, "the service is asked for a connection");
        test.equal(requests[0].args[0], String(AGENT_ID), "for the agent");
        test.equal(connected.length, 0, "nothing is called inside the request");
        kvdouble.deliver("onServiceCreateConfirm", AGENT_ID, CONNECTION_ID, PEER, 0);
    },

    function properties(next) {
        socket = connected[0];
        test.equal(Object.prototype.toString.call(socket), "[object KvSocket]", "a KvSocket");
        test.ok(socket.peerAgent.equals(peer), "peerAgent");
        socket.peerAgent = null;
        test.ok(socket.peerAgent !== null, "peerAgent is read-only");
        test.equal(socket.isConnected(), true, "connected");
        next();
    },

    function foreignThis(next) {
        var before = kvdouble.calls().length;
        [{}, agent, peer, webapis.kv].forEach(function (self) {
            METHODS.forEach(function (method) {
                test.throwsError(
                    function () {
                        socket[method].call(self, 104, "data");
                    },
                    "TypeMismatchError",
                    "Wrong object",
                    method + " on a foreign object"
                );
            });
        });
        test.equal(kvdouble.calls().length, before, "nothing reached the service");
        next();
    },

    function sendOnEveryChannel(next) {
        agent.channelIds.forEach(function (channelId) {
            socket.sendData(channelId, "plain " + channelId);
            socket.sendSecureData(channelId, "secure " + channelId);
        });
        var plain = sends("sendData");
        var secure = sends("sendSecureData");
        test.equal(plain.length, 2, "one plain send per channel");
        test.equal(secure.length, 2, "one secure send per channel");
        test.equal(JSON.stringify(plain[0].args), '["31","104","9","plain 104"]', "first send");
        test.equal(JSON.stringify(plain[1].args), '["31","105","9","plain 105"]', "second send");
        test.equal(JSON.stringify(secure[1].args), '["31","105","10","secure 105"]', "secure send");
        next();
    },

    function refusedSends(next) {
        var before = kvdouble.calls().length;
        [0, 1, 103, 70000, -1].forEach(function (channelId) {
            test.throwsError(
                function () {
                    socket.sendData(channelId, "x");
                },
                "InvalidValuesError",
                "non-existing channel",
                "sendData on channel " + channelId
            );
        });
        test.throwsError(
            function () {
                socket.sendSecureData(200, "x");
            },
            "InvalidValuesError",
            "non-existing channel",
            "sendSecureData on another agent's channel"
        );
        test.throwsError(
            function () {
                socket.sendData("channel", "x");
            },
            "TypeMismatchError",
            undefined,
            "sendData with a channel that is no number"
        );
        test.throwsError(
            function () {
                socket.sendData(104);
            },
            "TypeMismatchError",
            undefined,
            "sendData without data"
        );
        test.equal(kvdouble.calls().length, before, "nothing reached the service");
        ["sendData", "sendSecureData"].forEach(function (method) {
            kvdouble.queueResult(method, -1);
            test.throwsError(
                function () {
                    socket[method](105, "x");
                },
                "IOError",
                "Problem on I/O connection.",
                method + " that the service refuses"
            );
        });
        next();
    },

    function listenerArguments(next) {
        ["setDataReceiveListener", "setSocketStatusListener"].forEach(function (method) {
            [undefined, null, 5, "f", {}].forEach(function (value) {
                test.throwsError(
                    function () {
                        socket[method](value);
                    },
                    "TypeMismatchError",
                    undefined,
                    method + " with " + String(value)
                );
            });
        });
        next();
    },

    function dataReceived(next) {
        kvdouble.deliver("onDataIndication", CONNECTION_ID, 104, "dropped");
        socket.setDataReceiveListener(function () {
            test.fail("a replaced data listener was called");
        });
        socket.setDataReceiveListener(function (channelId, data) {
            received.push({ args: Array.prototype.slice.call(arguments), self: this });
        });
        kvdouble.deliver("onDataIndication", CONNECTION_ID, 104, "hello");
        kvdouble.deliver("onDataIndication", CONNECTION_ID, 105, "world");
        kvdouble.deliver("onDataIndication", CONNECTION_ID + 1, 104, "not ours");
        test.equal(received.length, 2, "the data of this connection, and no earlier data");
        test.equal(JSON.stringify(received[0].args), '[104,"hello"]', "first data");
        test.equal(JSON.stringify(received[1].args), '[105,"world"]', "second data");
        test.ok(received[0].self === socket, "the socket is `this` of its listener");
        next();
    },

    function listenerReplacedWhileItRuns(next) {
        received.length = 0;
        socket.setDataReceiveListener(function (channelId, data) {
            received.push("first " + data);
            socket.setDataReceiveListener(function (channelId, data) {
                received.push("second " + data);
            });
            webapis.kvdouble.collectGarbage();
        });
        kvdouble.deliver("onDataIndication", CONNECTION_ID, 104, "a");
        kvdouble.deliver("onDataIndication", CONNECTION_ID, 104, "b");
        later(function () {
            kvdouble.collectGarbage();
            kvdouble.deliver("onDataIndication", CONNECTION_ID, 104, "c");
            test.equal(JSON.stringify(received), '["first a","second b","second c"]',
                "the listener set inside a callback takes over");
            next();
        });
    },

    function connectionLost(next) {
        socket.setSocketStatusListener(function (reason) {
            statuses.push({ args: Array.prototype.slice.call(arguments), self: this });
        });
        kvdouble.deliver("onServiceTerminationIndication", CONNECTION_ID, 0);
        test.equal(statuses.length, 1, "the loss is reported");
        test.equal(JSON.stringify(statuses[0].args), '["PEER_DISCONNECTED"]', "the reason");
        test.ok(statuses[0].self === socket, "the socket is `this` of its status listener");
        test.equal(socket.isConnected(), false, "no longer connected");
        var before = kvdouble.calls().length;
        ["sendData", "sendSecureData"].forEach(function (method) {
            test.throwsError(
                function () {
                    socket[method](104, "late");
                },
                "IOError",
                "Connection closed.",
                method + " after the loss"
            );
        });
        test.equal(kvdouble.calls().length, before, "nothing reached the service");
        test.equal(socket.close(), undefined, "closing a lost connection is no error");
        next();
    },

    function closeASecondConnection(next) {
        agent.setServiceConnectionListener(connectionListener(next));
        agent.requestServiceConnection(peer);
        kvdouble.deliver("onServiceCreateConfirm", AGENT_ID, CONNECTION_ID + 1, PEER, 0);
    },

    function close(next) {
        var second = connected[1];
        test.equal(second.isConnected(), true, "the second socket is connected");
        second.setSocketStatusListener(function (reason) {
            statuses.push({ args: [reason] });
        });
        var before = test.callsTo("terminateServiceConnection").length;
        second.close();
        var terminations = test.callsTo("terminateServiceConnection");
        test.equal(terminations.length, before + 1, "the service is asked to terminate");
        test.equal(terminations[before].args[0], String(CONNECTION_ID + 1), "the second connection");
        test.equal(second.isConnected(), false, "closed");
        test.throwsError(
            function () {
                second.sendData(104, "late");
            },
            "IOError",
            "Connection closed.",
            "sendData after close"
        );
        kvdouble.queueResult("terminateServiceConnection", -1);
        test.throwsError(
            function () {
                second.close();
            },
            "IOError",
            "Problem on I/O connection.",
            "a close that the service refuses"
        );
        kvdouble.deliver("onServiceTerminationIndication", CONNECTION_ID + 1, 2);
        test.equal(JSON.stringify(statuses[1].args), '["UNKNOWN_REASON"]', "the confirmed end");
        next();
    },
    function openAThirdConnection(next) {
        agent.setServiceConnectionListener(connectionListener(next));
        agent.requestServiceConnection(peer);
        kvdouble.deliver("onServiceCreateConfirm", AGENT_ID, CONNECTION_ID + 2, PEER, 0);
    },

    function dataSizeBound(next) {
        // Last, so that the double's record of one call holds the megabyte of
        // data only once it is read; it is read once.
        var third = connected[2];
        var refusals = 0;
        ["sendData", "sendSecureData"].forEach(function (method) {
            third[method](104, text("a", MAX_DATA));
            test.throwsError(
                function () {
                    third[method](104, text("a", MAX_DATA + 1));
                },
                "InvalidValuesError",
                "data string is too long.",
                method + " of one byte too many"
            );
            // 524,289 characters of two bytes each: the bound is on bytes.
            test.throwsError(
                function () {
                    third[method](104, text("\u00e9", MAX_DATA / 2 + 1));
                },
                "InvalidValuesError",
                "data string is too long.",
                method + " of too many bytes in fewer characters"
            );
            refusals += 2;
        });
        kvdouble.collectGarbage();
        var sent = kvdouble.calls().filter(function (call) {
            return (call.function === "sendData" || call.function === "sendSecureData") &&
                call.args[0] === String(CONNECTION_ID + 2);
        });
        test.equal(refusals, 4, "four refusals");
        test.equal(sent.length, 2, "exactly the bound is sent, once by each method");
        test.equal(sent[0].function + " " + sent[0].args[2], "sendData " + MAX_DATA, "plain");
        test.equal(sent[1].function + " " + sent[1].args[2], "sendSecureData " + MAX_DATA,
            "secure");
        next();
    },
]);
