// The phone side of the demo: finds the watch's sensor service, connects,
// says hello on every channel and waits for the echoes, sends a file, then
// closes the connection.
var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};
var fail = function (what) {
    return function (error) {
        console.error('phone:', what, error && error.name ? error.name + ' ' + error.message : error);
        runtime.exit(1);
    };
};

function sendReport(agent, peer, socket) {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileSendListener({
        onprogress: function (transferId, progress) {},
        oncomplete: function (transferId, fileUri) {
            log('file sent:', fileUri);
            socket.close();
            log('done');
            runtime.exit(0);
        },
        onerror: fail('file send failed:')
    });
    log('sending documents/report.txt');
    transfer.sendFile(peer, 'documents/report.txt');
}

function talk(agent, socket) {
    var peer = socket.peerAgent;
    log('connected to', peer.appName, 'on', peer.peerAccessory.deviceName);
    var waiting = agent.channelIds.length;
    socket.setDataReceiveListener(function (channelId, data) {
        log('channel', channelId, 'answered', JSON.stringify(data));
        if (--waiting === 0) {
            sendReport(agent, peer, socket);
        }
    });
    agent.channelIds.forEach(function (channelId) {
        socket.sendData(channelId, 'hello on channel ' + channelId);
    });
}

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    log('agent', agent.name, 'as', agent.role);
    var connecting = false;
    var connect = function (watch) {
        if (!connecting) {
            connecting = true;
            log('found', watch.appName, 'on', watch.peerAccessory.deviceName);
            agent.requestServiceConnection(watch);
        }
    };
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            talk(agent, socket);
        },
        onerror: fail('connection failed:')
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: connect,
        // A watch that starts after the phone is heard of when it registers.
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function (code) {
            log('no watch yet (' + code + '), waiting for it');
        }
    });
    agent.findPeerAgents();
}, fail('no agent:'));
