// expect TS2551: the method is findPeerAgents.
webapis.kv.requestKvAgent(function (agents) {
    agents[0].findPeerAgent();
});
