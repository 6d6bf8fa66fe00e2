// A provider that registers its agent as soon as it starts and serves one
// connection: it exits 0 once the consumer has closed it.
webapis.kv.requestKvAgent(function (agents) {
    agents[0].setServiceConnectionListener({
        onrequest: function (peer) {
            agents[0].acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            socket.setSocketStatusListener(function (reason) {
                console.log('provider: connection ended', reason);
                runtime.exit(0);
            });
        },
        onerror: function (code) {
            console.error('provider: connection error', code);
            runtime.exit(1);
        }
    });
    console.log('provider: registered');
}, function (error) {
    console.error('provider:', error.name, error.message);
    runtime.exit(1);
});
