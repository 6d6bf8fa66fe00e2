// A consumer that searches once, the moment it starts, and says what its
// first search gave: "consumer: first search found <name>" (then it connects,
// closes and exits 0) or "consumer: first search ended <code>" (exit 3).
webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            console.log('consumer: connected');
            socket.close();
            runtime.exit(0);
        },
        onerror: function (code) {
            console.error('consumer: connection error', code);
            runtime.exit(1);
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: function (peer) {
            console.log('consumer: first search found', peer.appName);
            agent.requestServiceConnection(peer);
        },
        onpeeragentupdated: function (peer, status) {},
        onerror: function (code) {
            console.log('consumer: first search ended', code);
            runtime.exit(3);
        }
    });
    agent.findPeerAgents();
}, function (error) {
    console.error('consumer:', error.name, error.message);
    runtime.exit(1);
});
