// The phone side of the chaos trials (tests/e2e/chaos_test.cpp). It has one
// conversation with the watch, while the trial makes one fault of the link
// somewhere in it, and writes down everything the checker needs to judge
// it, one fact a line:
//   ask KIND / answer KIND OUTCOME   every request (find, connect,
//                                    authenticate, file) and its answer
//   hello N                          connection N is open
//   conversation on N                the conversation runs on connection N
//   sent CH SEQ / refused CH SEQ E   a message sent, or refused with error E
//   got CH SEQ                       the watch's echo of message SEQ
//   loss WHAT                        what told the app of a loss
//   end N lost REASON / end N closed how connection N ended
//   again                            the pair talks again after a loss
//   done AT                          everything answered (AT: ms since the
//                                    epoch); the app ends half a second later
// The conversation: MESSAGES numbered messages on each of two channels (120
// plain, 121 secure), one every few milliseconds, each echoed by the watch,
// and with the argument "file" the file documents/chaos.bin sent beside
// them. A loss breaks it; the phone then waits for the link, finds the watch
// again, says "again" on a new connection, and ends when that comes back.
//   runtime.args: MESSAGES [file]
var MESSAGES = Number(runtime.args[0] || 20);
var WITH_FILE = runtime.args.indexOf('file') >= 0;
var CHANNELS = [120, 121];
var INTERVAL = 10;
var LINGER = 500;

var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};

var agent = null;
var watch = null;          // the watch's peer agent, from the latest search
var socket = null;         // the open connection
var connections = 0;       // connections opened so far
var connecting = false;
var conversation = null;   // the number of the connection it runs on
var broken = false;        // a loss ended the conversation before its end
var talked = false;        // the conversation ended whole
var finishing = false;
var closedHere = null;     // the connection this side closed: its end is no loss
var pending = {};          // requests without an answer, by kind
var sent = { 120: 0, 121: 0 };
var echoed = { 120: 0, 121: 0 };
var fileAnswered = !WITH_FILE;

function ask(kind) {
    pending[kind] = (pending[kind] || 0) + 1;
    log('ask', kind);
}

function answer(kind, outcome) {
    pending[kind] = (pending[kind] || 0) - 1;
    log('answer', kind, outcome);
}

function unanswered() {
    return Object.keys(pending).some(function (kind) {
        return pending[kind] > 0;
    });
}

// Ends once every request has its answer: the checker holds the app to it.
function finish() {
    if (finishing) {
        return;
    }
    finishing = true;
    var end = function () {
        if (unanswered()) {
            setTimeout(end, 20);
            return;
        }
        if (socket !== null) {
            var closing = socket;
            socket = null;
            closedHere = closing;
            closing.close();
            log('end', connections, 'closed');
        }
        log('done', Date.now());
        // A loss that came as it finished is still told: the app stays a
        // moment to hear it.
        setTimeout(function () {
            runtime.exit(0);
        }, LINGER);
    };
    end();
}

function search() {
    if (finishing || socket !== null || connecting) {
        return;
    }
    ask('find');
    agent.findPeerAgents();
}

function connect(peer) {
    watch = peer;
    if (finishing || socket !== null || connecting) {
        return;
    }
    connecting = true;
    ask('connect');
    agent.requestServiceConnection(peer);
}

// The conversation is over when every message came back and the file was
// answered; the trial then ends.
function checkConversation() {
    if (broken || talked || conversation === null || !fileAnswered) {
        return;
    }
    var whole = CHANNELS.every(function (channel) {
        return echoed[channel] === MESSAGES;
    });
    if (whole) {
        talked = true;
        log('conversation whole');
        finish();
    }
}

// A loss told by any of the ways the plug-in tells it.
function lossTold(what) {
    log('loss', what);
    if (conversation !== null && !talked) {
        broken = true;
    }
}

function sendMessage(channel) {
    var seq = sent[channel];
    try {
        if (channel === 121) {
            socket.sendSecureData(channel, 'm ' + seq);
        } else {
            socket.sendData(channel, 'm ' + seq);
        }
        sent[channel]++;
        log('sent', channel, seq);
        return true;
    } catch (error) {
        log('refused', channel, seq, error.name);
        return false;
    }
}

// A control line on channel 120; a link lost at that moment refuses it,
// and the loss is told next.
function sendControl(on, text) {
    try {
        on.sendData(120, text);
        return true;
    } catch (error) {
        log('refused', 120, text.replace(' ', '-'), error.name);
        return false;
    }
}

function talk(on) {
    var tick = function () {
        if (broken || socket !== on) {
            return;
        }
        var more = false;
        for (var i = 0; i < CHANNELS.length; i++) {
            var channel = CHANNELS[i];
            if (sent[channel] < MESSAGES) {
                if (!sendMessage(channel)) {
                    return;  // the loss that refused it is told as well
                }
                more = more || sent[channel] < MESSAGES;
            }
        }
        if (more) {
            setTimeout(tick, INTERVAL);
        }
    };
    tick();
}

function sendFile() {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileSendListener({
        onprogress: function () {},
        oncomplete: function () {
            answer('file', 'complete');
            fileAnswered = true;
            checkConversation();
        },
        onerror: function (transferId, code) {
            answer('file', 'error ' + code);
            fileAnswered = true;
        }
    });
    ask('file');
    try {
        transfer.sendFile(watch, 'documents/chaos.bin');
    } catch (error) {
        answer('file', 'threw ' + error.name);
        fileAnswered = true;
    }
}

function authenticate(peer) {
    ask('authenticate');
    agent.authenticatePeerAgent(peer, function () {
        answer('authenticate', 'ok');
    }, function (error) {
        answer('authenticate', 'error ' + error.name);
    });
}

function received(channel, data) {
    if (data === 'again') {
        log('again');
        finish();
        return;
    }
    var words = data.split(' ');
    if (words[0] === 'm') {
        echoed[channel]++;
        log('got', channel, words[1]);
        checkConversation();
    }
}

function opened(newSocket) {
    answer('connect', 'ok');
    connecting = false;
    socket = newSocket;
    var number = ++connections;
    newSocket.setDataReceiveListener(received);
    newSocket.setSocketStatusListener(function (reason) {
        if (newSocket === closedHere) {
            return;
        }
        log('end', number, 'lost', reason);
        if (socket === newSocket) {
            socket = null;
        }
        lossTold('connection ' + reason);
    });
    if (sendControl(newSocket, 'hello ' + number)) {
        log('hello', number);
    }
    if (conversation === null) {
        conversation = number;
        log('conversation on', number);
        authenticate(newSocket.peerAgent);
        if (WITH_FILE) {
            sendFile();
        }
        talk(newSocket);
    } else {
        sendControl(newSocket, 'again');
    }
}

// After a connection request failed: try again while the link is there;
// the device status listener takes over when it is not.
function connectionFailed(code) {
    answer('connect', 'error ' + code);
    connecting = false;
    if (code === 'INVALID_PEERAGENT') {
        setTimeout(search, 200);
    } else if (code === 'PEERAGENT_NO_RESPONSE' || code === 'PEERAGENT_REJECTED') {
        setTimeout(function () {
            connect(watch);
        }, 200);
    }
}

webapis.kv.setDeviceStatusListener(function (transportType, status) {
    if (status === 'DETACHED') {
        lossTold('device DETACHED');
        return;
    }
    log('device', status);
    search();
});

webapis.kv.requestKvAgent(function (agents) {
    agent = agents[0];
    agent.setPeerAgentFindListener({
        onpeeragentfound: function (peer) {
            answer('find', 'found');
            connect(peer);
        },
        onpeeragentupdated: function (peer, status) {
            log('watch', status);
            if (status === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function (code) {
            // PEER_NOT_FOUND: the watch's agent is not back yet, and
            // onpeeragentupdated tells when it is; DEVICE_NOT_CONNECTED: the
            // device status listener tells when the link is back.
            answer('find', 'error ' + code);
        }
    });
    agent.setServiceConnectionListener({
        onconnect: opened,
        onerror: connectionFailed
    });
    search();
}, function (error) {
    console.error('phone:', error.name, error.message);
    runtime.exit(1);
});
