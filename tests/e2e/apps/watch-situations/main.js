// The watch side of the situations test. How it answers connection requests
// and file offers depends on runtime.args[0]:
//   accept (the default)  accepts connections and files (into the default folder)
//   reject                rejects connection requests
//   ignore                leaves connection requests unanswered
//   reject-file           rejects file offers
//   ignore-file           leaves file offers unanswered
//   bad-folder            takes files into a folder that does not exist
//   cancel-file           cancels an incoming file at its first progress
//   close-first           closes the first connection as soon as it is made
//   outside-folder        tries to take files outside its folders, then into its own
// Every outcome it sees is printed as "watch: <what> <name>".
var mode = runtime.args[0] || 'accept';
var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};

webapis.kv.setDeviceStatusListener(function (transportType, status) {
    log('device', status);
});

function answerRequests(agent) {
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            log('request');
            if (mode === 'reject') {
                agent.rejectServiceConnectionRequest(peer);
            } else if (mode !== 'ignore') {
                agent.acceptServiceConnectionRequest(peer);
            }
        },
        onconnect: function (socket) {
            log('connected');
            socket.setDataReceiveListener(function (channelId, data) {
                log('received', data);
            });
            socket.setSocketStatusListener(function (reason) {
                log('connection ended', reason);
            });
            if (mode === 'close-first') {
                mode = 'accept';
                socket.close();
            }
        },
        onerror: function (code) {
            log('connection error', code);
        }
    });
}

function answerFiles(agent) {
    var transfer = agent.getKvFileTransfer();
    var offers = 0;
    transfer.setFileReceiveListener({
        onreceive: function (transferId, fileName) {
            log('file offered', fileName);
            if (mode === 'reject-file') {
                transfer.rejectFile(transferId);
            } else if (mode === 'outside-folder') {
                // One folder outside for each offer: the system's, another app's.
                var uri = ['file:///etc/', 'file:///opt/usr/apps/psitu001/data/'][offers++ % 2];
                try {
                    transfer.receiveFile(transferId, uri + fileName);
                    log('receiveFile took', uri);
                } catch (error) {
                    log('receiveFile threw', error.name, error.message);
                }
            } else if (mode === 'bad-folder') {
                transfer.receiveFile(transferId, 'file:///opt/usr/media/NoSuchFolder/' + fileName);
            } else if (mode !== 'ignore-file') {
                transfer.receiveFile(transferId, '');
            }
        },
        onprogress: function (transferId, progress) {
            if (mode === 'cancel-file' && progress > 0) {
                mode = 'cancelled';
                transfer.cancelFile(transferId);
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
    agents.forEach(function (agent) {
        answerRequests(agent);
        answerFiles(agent);
    });
    log('ready');
}, function (error) {
    console.error('watch:', error.name, error.message);
    runtime.exit(1);
});
