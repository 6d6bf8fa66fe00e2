// Two successful requests answer with the agents of the service profile, in
// profile order, as KvAgent objects for the same agents.
var first;
test.deadline(5000, "the agents");
test.steps([
    function (next) {
        webapis.kv.requestKvAgent(function (agents) {
            test.ok(Array.isArray(agents), "an array");
            test.equal(agents.length, 2, "agents");
            test.equal(agents[0].id, "/kvtest/first", "first id");
            test.equal(agents[0].name, "First", "first name");
            test.equal(agents[0].role, "PROVIDER", "first role");
            test.equal(agents[1].id, "/kvtest/second", "second id");
            test.equal(agents[1].role, "CONSUMER", "second role");
            first = agents;
            next();
        }, function (error) {
            test.fail("error callback: " + error.name + ": " + error.message);
        });
    },
    function (next) {
        webapis.kv.requestKvAgent(function (agents) {
            test.equal(agents.length, 2, "agents of the second request");
            for (var i = 0; i < agents.length; ++i) {
                test.ok(agents[i] !== first[i], "a new script object");
                test.equal(agents[i].id, first[i].id, "same agent id at " + i);
                test.equal(agents[i].name, first[i].name, "same agent name at " + i);
            }
            next();
        });
    },
]);
