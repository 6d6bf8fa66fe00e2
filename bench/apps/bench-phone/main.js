// The near side of the benchmarks: it runs the scenario runtime.args names
// against the watch and prints each measure as "result NAME VALUE UNIT".
//   throughput SIZE COUNT ascii|utf8 plain|secure   SIZE-byte strings, MB/s
//   roundtrip COUNT                    64-byte ping-pong, median, p99 and p99.9 in us
//   rate SECONDS                       64-byte messages per second
//   file PATH SIZE                     a file to the watch, MB/s
//   connections N                      N connections at once (N agents)
//   cycles COUNT                       connect, exchange, close: cycles per second
//   startup                            time to the agents and to the first peer
//   ready                              the wall clock (Date.now()) when the agents came
//   discovery N                        N agents each finding its peer
var scenario = runtime.args[0];
var args = runtime.args.slice(1).map(function (text) {
    return isNaN(Number(text)) ? text : Number(text);
});

// Six significant digits: slow links give figures well below one.
function result(name, value, unit) {
    console.log('result', name, String(Number(value.toPrecision(6))), unit);
}

function finish() {
    runtime.exit(0);
}

// Finds the agent's peer and connects; `onconnect` gets the socket.
function connect(agent, onconnect) {
    var asked = false;
    var ask = function (peer) {
        if (!asked) {
            asked = true;
            agent.requestServiceConnection(peer);
        }
    };
    agent.setServiceConnectionListener({
        onconnect: onconnect,
        onerror: function (code) {
            console.error('phone: connection error', code);
            runtime.exit(1);
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: ask,
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                ask(peer);
            }
        },
        onerror: function () {}
    });
    agent.findPeerAgents();
}

// Calls `onreply` with each message the socket receives.
function listen(socket, onreply) {
    socket.setDataReceiveListener(function (channelId, data) {
        onreply(data);
    });
}

function text(size, kind) {
    return kind === 'utf8' ? new Array(size / 2 + 1).join('\u00e9') : new Array(size + 1).join('a');
}

var scenarios = {
    throughput: function (agents, size, count, kind, mode) {
        var message = text(size, kind);
        connect(agents[0], function (socket) {
            var started = runtime.now();
            listen(socket, function (reply) {
                result('throughput', size * count / (runtime.now() - started) / 1000, 'MB/s');
                finish();
            });
            var send = mode === 'secure' ? 'sendSecureData' : 'sendData';
            for (var i = 0; i < count; i++) {
                socket[send](104, message);
            }
            socket.sendData(104, 'end');
        });
    },
    roundtrip: function (agents, count) {
        var ping = 'p' + new Array(64).join('x');
        connect(agents[0], function (socket) {
            var times = [];
            var sent = 0;
            listen(socket, function () {
                times.push((runtime.now() - sent) * 1000);
                if (times.length === count) {
                    times.sort(function (a, b) { return a - b; });
                    result('roundtrip-median', times[Math.floor(count / 2)], 'us');
                    result('roundtrip-p99', times[Math.floor(count * 99 / 100)], 'us');
                    result('roundtrip-p999', times[Math.floor(count * 999 / 1000)], 'us');
                    finish();
                    return;
                }
                sent = runtime.now();
                socket.sendData(104, ping);
            });
            sent = runtime.now();
            socket.sendData(104, ping);
        });
    },
    rate: function (agents, seconds) {
        var message = new Array(65).join('m');
        connect(agents[0], function (socket) {
            var started = runtime.now();
            var sent = 0;
            listen(socket, function () {
                result('message-rate', sent / (runtime.now() - started) * 1000, 'msg/s');
                finish();
            });
            while (runtime.now() - started < seconds * 1000) {
                for (var i = 0; i < 100; i++) {
                    socket.sendData(104, message);
                }
                sent += 100;
            }
            socket.sendData(104, 'end');
        });
    },
    file: function (agents, path, size) {
        var transfer = agents[0].getKvFileTransfer();
        var started = 0;
        transfer.setFileSendListener({
            onprogress: function () {},
            oncomplete: function () {
                result('file', size / (runtime.now() - started) / 1000, 'MB/s');
                finish();
            },
            onerror: function (transferId, code) {
                console.error('phone: file error', code);
                runtime.exit(1);
            }
        });
        connect(agents[0], function (socket) {
            started = runtime.now();
            transfer.sendFile(socket.peerAgent, path);
        });
    },
    // Finds every peer first ("phone: found all"), waits a second, then
    // connects all at once ("phone: connected all"), so that what the
    // connections cost can be told apart from what the agents cost.
    connections: function (agents, count) {
        var peers = [];
        var connected = 0;
        var connectAll = function () {
            var started = runtime.now();
            agents.slice(0, count).forEach(function (agent, index) {
                agent.setServiceConnectionListener({
                    onconnect: function () {
                        if (++connected === count) {
                            result('connect-all', runtime.now() - started, 'ms');
                            console.log('phone: connected all');
                            setTimeout(finish, 1500);
                        }
                    },
                    onerror: function (code) {
                        console.error('phone: connection error', code);
                        runtime.exit(1);
                    }
                });
                agent.requestServiceConnection(peers[index]);
            });
        };
        agents.slice(0, count).forEach(function (agent, index) {
            agent.setPeerAgentFindListener({
                onpeeragentfound: function (peer) {
                    if (peers[index] === undefined) {
                        peers[index] = peer;
                        if (peers.filter(Boolean).length === count) {
                            console.log('phone: found all');
                            setTimeout(connectAll, 1000);
                        }
                    }
                },
                onerror: function (code) {
                    console.error('phone: search error', code);
                    runtime.exit(1);
                }
            });
            agent.findPeerAgents();
        });
    },
    cycles: function (agents, count) {
        var done = 0;
        var started = 0;
        var agent = agents[0];
        var peer = null;
        var cycle = function (socket) {
            listen(socket, function () {
                socket.setSocketStatusListener(function () {
                    if (++done === count) {
                        result('cycles', count / (runtime.now() - started) * 1000, 'cycles/s');
                        finish();
                    } else {
                        agent.requestServiceConnection(peer);
                    }
                });
                socket.close();
            });
            socket.sendData(104, 'ping');
        };
        connect(agent, function (socket) {
            peer = socket.peerAgent;
            started = runtime.now();
            agent.setServiceConnectionListener({onconnect: cycle});
            cycle(socket);
        });
    },
    ready: function () {
        console.log('result', 'kv-ready-at', String(Date.now()), 'ms');  // all its digits
        finish();
    },
    startup: function (agents) {
        result('agents-ready', runtime.now(), 'ms');
        agents[0].setPeerAgentFindListener({
            onpeeragentfound: function () {
                result('first-peer', runtime.now(), 'ms');
                finish();
            },
            onerror: function (code) {
                console.error('phone: search error', code);
                runtime.exit(1);
            }
        });
        agents[0].findPeerAgents();
    },
    discovery: function (agents, count) {
        var found = 0;
        var started = runtime.now();
        agents.slice(0, count).forEach(function (agent) {
            var counted = false;
            agent.setPeerAgentFindListener({
                onpeeragentfound: function () {
                    if (!counted) {
                        counted = true;
                        if (++found === count) {
                            result('discovery', runtime.now() - started, 'ms');
                            finish();
                        }
                    }
                },
                onerror: function (code) {
                    console.error('phone: search error', code);
                    runtime.exit(1);
                }
            });
            agent.findPeerAgents();
        });
    }
};

webapis.kv.requestKvAgent(function (agents) {
    scenarios[scenario].apply(null, [agents].concat(args));
}, function (error) {
    console.error('phone:', error.name, error.message);
    runtime.exit(1);
});
