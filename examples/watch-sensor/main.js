// The watch side of the demo: offers the sensor service, accepts the phone's
// connection, answers every message on the channel it came on, takes the file
// the phone sends, and ends when the phone closes the connection.
var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};
var fail = function (what) {
    return function (error) {
        console.error('watch:', what, error && error.name ? error.name + ' ' + error.message : error);
        runtime.exit(1);
    };
};

var receivedFile = false;
var closed = false;

function finishWhenDone() {
    if (receivedFile && closed) {
        log('done');
        runtime.exit(0);
    }
}

function acceptFiles(agent) {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileReceiveListener({
        onreceive: function (transferId, fileName) {
            log('file offered:', fileName);
            transfer.receiveFile(transferId, 'downloads/' + fileName);
        },
        onprogress: function (transferId, progress) {},
        oncomplete: function (transferId, fileUri) {
            log('file received:', fileUri);
            receivedFile = true;
            finishWhenDone();
        },
        onerror: fail('file receive failed:')
    });
}

function serve(socket) {
    log('connected to', socket.peerAgent.appName);
    socket.setDataReceiveListener(function (channelId, data) {
        log('channel', channelId, 'got', JSON.stringify(data));
        socket.sendData(channelId, 'echo ' + data);
    });
    socket.setSocketStatusListener(function (reason) {
        log('connection ended:', reason);
        closed = true;
        finishWhenDone();
    });
}

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    log('agent', agent.name, 'as', agent.role, 'on channels', agent.channelIds.join(', '));
    acceptFiles(agent);
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            log('connection requested by', peer.appName);
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: serve,
        onerror: fail('connection failed:')
    });
    log('waiting for the phone');
}, fail('no agent:'));
