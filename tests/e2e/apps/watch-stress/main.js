// Accepts every connection the phone asks for. On each one it sends its first
// message from inside onconnect ("watch: first") and acknowledges the phone's
// first message ("ack " + what the phone sent), so that the phone can tell
// whether either first message was lost.
webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            socket.setDataReceiveListener(function (channelId, data) {
                if (data.indexOf('phone: ') === 0) {
                    socket.sendData(channelId, 'ack ' + data);
                }
            });
            socket.sendData(104, 'watch: first');
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
