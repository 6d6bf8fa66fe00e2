// The phone side of the situations test: it finds the watch ("phone: found")
// and then does what runtime.args[0] names, printing every outcome as
// "phone: <what> <name>". Some situations wait for the test to act first
// (detach the device, stop the watch app) and say so.
var situation = runtime.args[0];
var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};

function sendFiles(agent, peer, path, count, cancelAtProgress) {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileSendListener({
        onprogress: function (transferId, progress) {
            if (cancelAtProgress && progress > 0) {
                cancelAtProgress = false;
                transfer.cancelFile(transferId);
            }
        },
        oncomplete: function (transferId, fileUri) {
            log('file sent');
        },
        onerror: function (transferId, code) {
            log('file error', code);
        }
    });
    for (var i = 0; i < count; i++) {
        transfer.sendFile(peer, path);
    }
}

// Sends `data` with the socket's method `method`, printing the outcome.
function trySend(socket, method, data) {
    try {
        socket[method](104, data);
        log(method, 'sent');
    } catch (error) {
        log(method, 'threw', error.name, error.message);
    }
}

// What to do once the watch is found; `other` is the agent of the second
// profile, registered and idle.
var situations = {
    'no-device': function (agent, peer) {
        webapis.kv.setDeviceStatusListener(function (transportType, status) {
            if (status === 'DETACHED') {
                agent.requestServiceConnection(peer);
            }
        });
        log('waiting for the detach');
    },
    'unknown-peer': function (agent, peer) {
        agent.setPeerAgentFindListener({
            onpeeragentupdated: function (gone, status) {
                if (status === 'UNAVAILABLE') {
                    agent.requestServiceConnection(peer);
                }
            }
        });
        log('waiting for the watch to go');
    },
    'wrong-profile': function (agent, peer, other) {
        other.requestServiceConnection(peer);
    },
    'rejected': function (agent, peer) {
        agent.requestServiceConnection(peer);
    },
    'already-connected': function (agent, peer) {
        agent.requestServiceConnection(peer);
    },
    'secure-data': function (agent, peer) {
        agent.requestServiceConnection(peer);
    },
    'close-twice': function (agent, peer) {
        agent.requestServiceConnection(peer);
    },
    'reconnect': function (agent, peer) {
        agent.requestServiceConnection(peer);
    },
    'link-lost': function (agent, peer) {
        webapis.kv.setDeviceStatusListener(function (transportType, status) {
            log('device', status);
        });
        agent.requestServiceConnection(peer);
    },
    'file': function (agent, peer) {
        sendFiles(agent, peer, 'documents/report.txt', 1);
    },
    'two-files': function (agent, peer) {
        sendFiles(agent, peer, 'documents/report.txt', 2);
    },
    'busy': function (agent, peer) {
        sendFiles(agent, peer, 'documents/report.txt', 5);
    },
    'outside-file': function (agent, peer) {
        var transfer = agent.getKvFileTransfer();
        ['file:///etc/hostname', 'file:///opt/usr/apps/wsitu001/data/secret.txt'].forEach(
            function (uri) {
                try {
                    transfer.sendFile(peer, uri);
                    log('sendFile took', uri);
                } catch (error) {
                    log('sendFile threw', error.name, error.message);
                }
            });
    },
    'missing-file': function (agent, peer) {
        sendFiles(agent, peer, 'documents/none.txt', 1);
    },
    'cancel-file': function (agent, peer) {
        sendFiles(agent, peer, 'documents/big.bin', 1, true);
    },
    'big-file': function (agent, peer) {
        sendFiles(agent, peer, 'documents/big.bin', 1);
    }
};

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    var other = agents[1];
    var connections = 0;
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            var number = ++connections;
            log('connected');
            socket.setSocketStatusListener(function (reason) {
                log('connection ended', reason);
                log('connection', number, 'ended', reason);
                if (situation === 'reconnect' && number === 1) {
                    agent.requestServiceConnection(socket.peerAgent);
                }
            });
            if (situation === 'secure-data') {
                trySend(socket, 'sendData', 'plain hello');
                trySend(socket, 'sendSecureData', 'secret hello');
                agent.authenticatePeerAgent(socket.peerAgent, function (peer, token) {
                    log('authenticated', token.authenticationType, token.key);
                }, function (error) {
                    log('authentication error', error.name);
                });
            }
            if (situation === 'close-twice') {
                socket.close();
                try {
                    socket.close();
                    log('closed twice');
                } catch (error) {
                    log('second close threw', error.name, error.message);
                }
            }
            if (situation === 'already-connected' && number === 1) {
                agent.requestServiceConnection(socket.peerAgent);
            }
        },
        onerror: function (code) {
            log('connection error', code);
        }
    });
    other.setServiceConnectionListener({
        onerror: function (code) {
            log('connection error', code);
        }
    });
    other.setPeerAgentFindListener({
        onpeeragentfound: function () {},
        onerror: function () {}
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: function (peer) {
            log('found');
            situations[situation](agent, peer, other);
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
