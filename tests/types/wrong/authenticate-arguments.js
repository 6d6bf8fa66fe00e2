// expect TS2345: authenticatePeerAgent takes the peer agent before its callbacks.
webapis.kv.requestKvAgent(function (agents) {
    agents[0].authenticatePeerAgent(function (peer, token) {
        console.log(token.key);
    }, function (error) {
        console.log(error.name);
    });
});
