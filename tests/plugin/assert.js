// The assertion helper of the plug-in's script tests, put in front of each
// app's main.js by run_script_test.sh. A failed assertion prints its message
// and ends the app with exit code 1 at once, even inside a callback.
var test = (function () {
    function show(value) {
        try {
            return typeof value === "string" ? JSON.stringify(value) : String(value);
        } catch (e) {
            return "<unprintable>";
        }
    }

    function fail(message) {
        console.error("FAIL: " + message);
        runtime.exit(1);
    }

    function equal(actual, expected, what) {
        if (actual !== expected) {
            fail((what || "value") + ": expected " + show(expected) + ", got " + show(actual));
        }
    }

    function ok(condition, what) {
        if (!condition) {
            fail(what || "condition is false");
        }
    }

    // Calls `body` and checks that it throws an error with this name and,
    // when given, this message.
    function throwsError(body, name, message, what) {
        try {
            body();
        } catch (e) {
            if (e === undefined || e === null) {
                fail((what || "call") + ": threw " + show(e));
            }
            equal(e.name, name, (what || "call") + ": error name");
            if (message !== undefined) {
                equal(e.message, message, (what || "call") + ": error message");
            }
            return e;
        }
        fail((what || "call") + ": did not throw " + name);
    }

    // The recorded calls of the client library double to `name`.
    function callsTo(name) {
        return webapis.kvdouble.calls().filter(function (call) {
            return call.function === name;
        });
    }

    // A step list: each step runs after the previous one called `next`.
    // Ends the app with 0 after the last step.
    function steps(list) {
        var index = 0;
        function next() {
            if (index >= list.length) {
                pass();
                return;
            }
            var step = list[index++];
            step(next);
        }
        next();
    }

    // Fails the test unless `done` is called within `ms` milliseconds.
    function deadline(ms, what) {
        return setTimeout(function () {
            fail("timed out waiting for " + (what || "the test"));
        }, ms);
    }

    function pass() {
        console.log("PASS");
        runtime.exit(0);
    }

    // Asks for the app's first agent, lets the client library double confirm
    // its registration as `agentId` and report `peerRecord` to its search,
    // then calls done(agent, peer).
    function findPeer(agentId, peerRecord, done) {
        webapis.kv.requestKvAgent(
            function (agents) {
                var agent = agents[0];
                agent.setPeerAgentFindListener({
                    onpeeragentfound: function (peer) {
                        done(agent, peer);
                    },
                });
                agent.findPeerAgents();
                webapis.kvdouble.deliver("onRegisterServiceAgentConfirm", 0, agentId);
                // The confirmation reaches the agent from an idle callback.
                setTimeout(function () {
                    webapis.kvdouble.deliver("onPeerAgent", agentId, peerRecord, 0);
                }, 30);
            },
            function (error) {
                fail("requestKvAgent: " + error.name + ": " + error.message);
            }
        );
    }

    return {
        fail: fail,
        equal: equal,
        ok: ok,
        throwsError: throwsError,
        callsTo: callsTo,
        steps: steps,
        deadline: deadline,
        pass: pass,
        findPeer: findPeer,
    };
})();
