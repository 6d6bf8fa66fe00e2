// The far side of the benchmarks: it registers its first runtime.args[0]
// provider agents (1 by default), accepts every connection, echoes pings
// (messages that start with "p"), counts everything else, and answers "end"
// with "done <count>". It takes every file offered into the default folder.
var wanted = Number(runtime.args[0] || 1);

function serve(agent) {
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            var count = 0;
            socket.setDataReceiveListener(function (channelId, data) {
                if (data.charAt(0) === 'p') {
                    socket.sendData(channelId, data);
                } else if (data === 'end') {
                    socket.sendData(channelId, 'done ' + count);
                    count = 0;
                } else {
                    count++;
                }
            });
        },
        onerror: function (code) {
            console.error('watch: connection error', code);
        }
    });
}

webapis.kv.requestKvAgent(function (agents) {
    agents.slice(0, wanted).forEach(serve);
    var transfer = agents[0].getKvFileTransfer();
    transfer.setFileReceiveListener({
        onreceive: function (transferId) {
            transfer.receiveFile(transferId, '');
        },
        onerror: function (transferId, code) {
            console.error('watch: file error', code);
        }
    });
    console.log('watch: ready');
}, function (error) {
    console.error('watch:', error.name, error.message);
    runtime.exit(1);
});
