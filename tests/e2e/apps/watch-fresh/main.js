// Registers its twenty provider agents at once (setting a connection listener
// registers an agent) and accepts every connection that the phone asks for,
// which the phone does the moment it hears that an agent appeared. Once the
// phone has closed all twenty connections, the app ends, so that the next
// run registers the agents afresh.
webapis.kv.requestKvAgent(function (agents) {
    var open = agents.length;
    agents.forEach(function (agent) {
        agent.setServiceConnectionListener({
            onrequest: function (peer) {
                agent.acceptServiceConnectionRequest(peer);
            },
            onconnect: function (socket) {
                socket.setSocketStatusListener(function () {
                    if (--open === 0) {
                        console.log('watch: all connections served');
                        runtime.exit(0);
                    }
                });
            },
            onerror: function (code) {
                console.error('watch: connection error', code);
                runtime.exit(1);
            }
        });
    });
    console.log('watch: registering', agents.length, 'agents');
}, function (error) {
    console.error('watch:', error.name, error.message);
    runtime.exit(1);
});
