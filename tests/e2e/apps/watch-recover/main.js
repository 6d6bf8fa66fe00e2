// Accepts every connection and echoes what arrives on it. It never restarts:
// when its accessory service, or the phone's, goes and comes back, it goes on
// serving the connections the phone makes again.
webapis.kv.setDeviceStatusListener(function (transportType, status) {
    console.log('watch: device', status);
});
webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            console.log('watch: connected');
            socket.setDataReceiveListener(function (channelId, data) {
                socket.sendData(channelId, 'echo ' + data);
            });
        },
        onerror: function (code) {
            console.error('watch: connection error', code);
        }
    });
    console.log('watch: ready');
}, function (error) {
    console.error('watch:', error.name, error.message);
    runtime.exit(1);
});
