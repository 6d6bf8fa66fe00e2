// The watch side of the link tests. It accepts every connection and echoes
// each message back on its channel, takes every offered file into the
// default folder, and prints what it sees as "watch: <what> ...":
// the link of a requesting peer (transport and largest send), device status
// changes, connection ends (with the number of messages it got), files.
var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};

webapis.kv.setDeviceStatusListener(function (transportType, status) {
    log('device', status, transportType);
});

function echo(socket) {
    var messages = 0;
    socket.setDataReceiveListener(function (channelId, data) {
        messages++;
        try {
            socket.sendData(channelId, data);
        } catch (error) {
            log('echo threw', error.name);
        }
    });
    socket.setSocketStatusListener(function (reason) {
        log('connection ended', reason, 'after', messages, 'messages');
    });
}

function takeFiles(agent) {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileReceiveListener({
        onreceive: function (transferId, fileName) {
            log('file offered', fileName);
            transfer.receiveFile(transferId, '');
        },
        onprogress: function (transferId, progress) {
            if (progress > 0 && progress < 100) {
                log('file progress');
            }
        },
        oncomplete: function (transferId, fileUri) {
            log('file received', fileUri);
        },
        onerror: function (transferId, code) {
            log('file error', code);
        }
    });
}

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            log('request over', peer.peerAccessory.transportType, 'max', peer.maxAllowedDataSize);
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            log('connected');
            echo(socket);
        },
        onerror: function (code) {
            log('connection error', code);
        }
    });
    takeFiles(agent);
    log('ready');
}, function (error) {
    console.error('watch:', error.name, error.message);
    runtime.exit(1);
});
