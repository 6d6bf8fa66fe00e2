// expect TS2367: a peer agent's status is "AVAILABLE" or "UNAVAILABLE".
webapis.kv.requestKvAgent(function (agents) {
    agents[0].setPeerAgentFindListener({
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABEL') {
                agents[0].requestServiceConnection(peer);
            }
        }
    });
});
