// Accepts the phone's connection, then waits: when the link between the
// devices goes, the connection must end with DEVICE_DETACHED and the device
// status listener must hear DETACHED.
var heard = {};

function finishWhenBoth() {
    if (heard.socket && heard.device) {
        console.log('watch: connection and device both reported the loss');
        runtime.exit(0);
    }
}

webapis.kv.setDeviceStatusListener(function (transportType, status) {
    console.log('watch: device', status, 'over', transportType);
    if (status === 'DETACHED') {
        heard.device = true;
        finishWhenBoth();
    }
});

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            console.log('watch: connected');
            socket.setSocketStatusListener(function (reason) {
                console.log('watch: connection ended:', reason);
                if (reason !== 'DEVICE_DETACHED') {
                    console.error('watch: wrong reason', reason);
                    runtime.exit(1);
                }
                heard.socket = true;
                finishWhenBoth();
            });
        },
        onerror: function (code) {
            console.error('watch: connection error', code);
            runtime.exit(1);
        }
    });
}, function (error) {
    console.error('watch:', error.name, error.message);
    runtime.exit(1);
});
