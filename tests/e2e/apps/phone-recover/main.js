// Keeps a conversation with the watch going across restarts of either
// device's accessory service, without ever restarting itself: it connects,
// exchanges one message ("phone: exchanged N"), and when the connection or
// the device goes, waits for the device to come back, finds the watch again
// and starts over.
var exchanges = 0;
var connecting = false;

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    var connect = function (peer) {
        if (!connecting) {
            connecting = true;
            agent.requestServiceConnection(peer);
        }
    };
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            socket.setSocketStatusListener(function (reason) {
                console.log('phone: connection ended:', reason);
                connecting = false;
            });
            socket.setDataReceiveListener(function (channelId, data) {
                if (data === 'echo hello ' + exchanges) {
                    exchanges++;
                    console.log('phone: exchanged', exchanges);
                }
            });
            socket.sendData(104, 'hello ' + exchanges);
        },
        onerror: function (code) {
            console.log('phone: connection error', code);
            connecting = false;
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: connect,
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function (code) {
            console.log('phone: search:', code);
        }
    });
    webapis.kv.setDeviceStatusListener(function (transportType, status) {
        console.log('phone: device', status);
        if (status === 'ATTACHED') {
            agent.findPeerAgents();
        }
    });
    agent.findPeerAgents();
}, function (error) {
    console.error('phone:', error.name, error.message);
    runtime.exit(1);
});
