// Connects to the watch and says so ("phone: connected"), then waits: when
// the link between the devices goes, the connection must end with
// DEVICE_DETACHED, and a send afterwards must fail with "Connection closed.".
webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            socket.setSocketStatusListener(function (reason) {
                console.log('phone: connection ended:', reason);
                if (reason !== 'DEVICE_DETACHED') {
                    console.error('phone: wrong reason', reason);
                    runtime.exit(1);
                }
                try {
                    socket.sendData(104, 'too late');
                    console.error('phone: a send after the loss went through');
                    runtime.exit(1);
                } catch (error) {
                    console.log('phone: send after the loss:', error.name, error.message);
                    runtime.exit(error.message === 'Connection closed.' ? 0 : 1);
                }
            });
            console.log('phone: connected');
        },
        onerror: function (code) {
            console.error('phone: connection error', code);
            runtime.exit(1);
        }
    });
    var connecting = false;
    var connect = function (peer) {
        if (!connecting) {
            connecting = true;
            agent.requestServiceConnection(peer);
        }
    };
    agent.setPeerAgentFindListener({
        onpeeragentfound: connect,
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function () {}
    });
    agent.findPeerAgents();
}, function (error) {
    console.error('phone:', error.name, error.message);
    runtime.exit(1);
});
