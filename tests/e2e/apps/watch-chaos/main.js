// The watch side of the chaos trials (tests/e2e/chaos_test.cpp). It accepts
// every connection, echoes every message on its channel (121 securely),
// takes every offered file into its default folder, and runs until the
// trial stops it. It writes down, one fact a line:
//   hello N                    the connection that says it is the phone's N
//   got N CH SEQ               message SEQ on channel CH of connection N
//   refused N CH SEQ E         the echo of it was refused with error E
//   end N lost REASON          how connection N ended
//   file offered NAME / file received URI / file error CODE
//   loss WHAT                  what told the app of a loss
var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};

function echo(socket, number, channel, data, seq) {
    try {
        if (channel === 121) {
            socket.sendSecureData(channel, data);
        } else {
            socket.sendData(channel, data);
        }
    } catch (error) {
        log('refused', number, channel, seq, error.name);
    }
}

function serve(socket) {
    var number = '?';  // until the phone says which connection this is
    socket.setDataReceiveListener(function (channel, data) {
        var words = data.split(' ');
        if (words[0] === 'hello') {
            number = words[1];
            log('hello', number);
        } else if (words[0] === 'm') {
            log('got', number, channel, words[1]);
        }
        echo(socket, number, channel, data, words[1] || '-');
    });
    socket.setSocketStatusListener(function (reason) {
        log('end', number, 'lost', reason);
    });
}

function takeFiles(agent) {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileReceiveListener({
        onreceive: function (transferId, fileName) {
            log('file offered', fileName);
            try {
                transfer.receiveFile(transferId, '');
            } catch (error) {
                // The offer ended meanwhile: its end comes to onerror.
                log('file not taken', error.name);
            }
        },
        onprogress: function () {},
        oncomplete: function (transferId, fileUri) {
            log('file received', fileUri);
        },
        onerror: function (transferId, code) {
            log('file error', code);
        }
    });
}

webapis.kv.setDeviceStatusListener(function (transportType, status) {
    log(status === 'DETACHED' ? 'loss device' : 'device', status);
});

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: serve,
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
