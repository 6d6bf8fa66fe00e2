// expect TS2561: the listener's attributes are all lower case.
webapis.kv.requestKvAgent(function (agents) {
    agents[0].setPeerAgentFindListener({
        onPeerAgentFound: function (peer) {
            agents[0].requestServiceConnection(peer);
        }
    });
});
