// Twenty consumer agents, each waiting for its provider on the watch to
// appear. The moment an agent hears that its provider became available it
// asks for a connection: the provider has only just registered. Every request
// must be answered with a connection, which the phone closes at once. After
// runtime.args[0] rounds (one per run of the watch app) it exits 0; any
// connection error ends it with 1.
var rounds = Number(runtime.args[0] || 1);
var connected = 0;

webapis.kv.requestKvAgent(function (agents) {
    var waiting = agents.length;
    agents.forEach(function (agent) {
        agent.setServiceConnectionListener({
            onconnect: function (socket) {
                socket.close();
                if (++connected % agents.length === 0) {
                    console.log('phone: round', connected / agents.length, 'connected');
                }
                if (connected === rounds * agents.length) {
                    runtime.exit(0);
                }
            },
            onerror: function (code) {
                console.error('phone: connection error', code, 'after', connected);
                runtime.exit(1);
            }
        });
        agent.setPeerAgentFindListener({
            onpeeragentfound: function (peer) {},
            onpeeragentupdated: function (peer, status) {
                if (status === 'AVAILABLE') {
                    agent.requestServiceConnection(peer);
                }
            },
            onerror: function (code) {
                // The first search finds nothing (the watch app is not running):
                // the agent is registered and hears when its provider comes.
                if (--waiting === 0) {
                    console.log('phone: ready');
                }
            }
        });
        agent.findPeerAgents();
    });
}, function (error) {
    console.error('phone:', error.name, error.message);
    runtime.exit(1);
});
