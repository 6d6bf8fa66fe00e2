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

var searches = 0;

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
    var watch = null;
    var attempts = 0;
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            talk(agent, socket);
        },
        onerror: function (code) {
            // A watch that has only just registered may not answer the first
            // request: ask again a few times.
            if (code !== 'PEERAGENT_NO_RESPONSE' || ++attempts > 5) {
                fail('connection failed:')(code);
            }
            log('no answer from the watch yet, asking again');
            setTimeout(function () {
                agent.requestServiceConnection(watch);
            }, 300);
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: function (peer) {
            log('found', peer.appName, 'on', peer.peerAccessory.deviceName);
            watch = peer;
            agent.requestServiceConnection(peer);
        },
        onpeeragentupdated: function (peer, status) {},
        onerror: function (code) {
            // The watch may not have registered yet: look again a little later.
            if (++searches > 50) {
                fail('no watch found:')(code);
            }
            setTimeout(function () {
                agent.findPeerAgents();
            }, 200);
        }
    });
    agent.findPeerAgents();
}, fail('no agent:'));
