// The phone side of the link tests. It finds the watch, prints the link it
// sees ("phone: found over <transport> max <largest send>"), then does what
// runtime.args[0] names, with runtime.args[1] as its count:
//   ping N    connects and sends N pings, each when the last one came back,
//             then prints the round trips ("phone: rtt min A median B")
//   talk N    connects and sends N numbered messages 20 ms apart; prints
//             "phone: all echoed N" once all came back in order
//   flood     connects and keeps sending messages of the largest size; says
//             "phone: send refused <error>" when the first one is refused
//   largest   connects, sends one message of the largest size the peer
//             reports ("phone: sent N") and one a byte longer ("phone: sent
//             N+1", or "phone: refused N+1 <error> <message>"); prints
//             "phone: echoed <length>" for each echo
//   close     connects, sends one message and closes the connection once it
//             came back ("phone: closed")
//   file N    sends documents/big.bin N times at once
//   search-again MS   searches once more MS milliseconds after the first
//             search found the watch ("phone: searching again")
// Device status changes, connection ends and file outcomes are printed too.
var situation = runtime.args[0];
var count = Number(runtime.args[1] || 1);
var CHANNEL = 110;
var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};

webapis.kv.setDeviceStatusListener(function (transportType, status) {
    log('device', status, transportType);
});

function ping(socket) {
    var trips = [];
    var sentAt = 0;
    var sendNext = function () {
        sentAt = Date.now();
        socket.sendData(CHANNEL, 'ping ' + trips.length);
    };
    socket.setDataReceiveListener(function () {
        trips.push(Date.now() - sentAt);
        if (trips.length < count) {
            sendNext();
            return;
        }
        trips.sort(function (a, b) { return a - b; });
        log('rtt min', trips[0], 'median', trips[Math.floor(trips.length / 2)]);
    });
    sendNext();
}

// Calls `step` every `period` ms until it returns false or throws, or the
// connection ends.
function every(period, socket, step) {
    var ended = false;
    socket.setSocketStatusListener(function (reason) {
        ended = true;
        log('connection ended', reason);
    });
    var tick = function () {
        try {
            if (ended || !step()) {
                return;
            }
        } catch (error) {
            log('send threw', error.name);
            return;
        }
        setTimeout(tick, period);
    };
    tick();
}

function talk(socket) {
    var sent = 0;
    var echoed = 0;
    socket.setDataReceiveListener(function (channelId, data) {
        if (data !== 'n:' + echoed) {
            log('out of order', data, 'for', echoed);
        }
        if (++echoed === count) {
            log('all echoed', count);
        }
    });
    every(20, socket, function () {
        socket.sendData(CHANNEL, 'n:' + sent);
        return ++sent < count;
    });
}

function flood(socket, size) {
    var block = new Array(size + 1).join('f');
    var refused = false;
    every(10, socket, function () {
        for (var i = 0; i < 8; i++) {
            try {
                socket.sendData(CHANNEL, block);
            } catch (error) {
                if (!refused) {
                    log('send refused', error.name);
                }
                refused = true;
                break;
            }
        }
        return true;
    });
}

function largest(socket, size) {
    socket.setDataReceiveListener(function (channelId, data) {
        log('echoed', data.length);
    });
    [size, size + 1].forEach(function (length) {
        try {
            socket.sendData(CHANNEL, new Array(length + 1).join('l'));
            log('sent', length);
        } catch (error) {
            log('refused', length, error.name, error.message);
        }
    });
}

function closeAfterEcho(socket) {
    socket.setSocketStatusListener(function (reason) {
        log('connection ended', reason);
    });
    socket.setDataReceiveListener(function () {
        socket.close();
        log('closed');
    });
    socket.sendData(CHANNEL, 'n:0');
}

function sendFiles(agent, peer) {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileSendListener({
        onprogress: function () {},
        oncomplete: function () {
            log('file sent');
        },
        onerror: function (transferId, code) {
            log('file error', code);
        }
    });
    for (var i = 0; i < count; i++) {
        transfer.sendFile(peer, 'documents/big.bin');
    }
}

var searchedAgain = false;

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            log('connected');
            if (situation === 'ping') {
                ping(socket);
            } else if (situation === 'talk') {
                talk(socket);
            } else if (situation === 'flood') {
                flood(socket, socket.peerAgent.maxAllowedDataSize);
            } else if (situation === 'close') {
                closeAfterEcho(socket);
            } else if (situation === 'largest') {
                largest(socket, socket.peerAgent.maxAllowedDataSize);
            }
        },
        onerror: function (code) {
            log('connection error', code);
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: function (peer) {
            log('found over', peer.peerAccessory.transportType, 'max', peer.maxAllowedDataSize);
            if (situation === 'search-again') {
                if (!searchedAgain) {
                    searchedAgain = true;
                    setTimeout(function () {
                        log('searching again');
                        agent.findPeerAgents();
                    }, count);
                }
            } else if (situation === 'file') {
                sendFiles(agent, peer);
            } else {
                agent.requestServiceConnection(peer);
            }
        },
        onerror: function (code) {
            log('search error', code);
        }
    });
    agent.findPeerAgents();
}, function (error) {
    console.error('phone:', error.name, error.message);
    runtime.exit(1);
});
