// The phone side of the chat sample: it finds the watch's chat service,
// connects, authenticates the watch, and sends its chat lines one at a time,
// each after the answer to the one before. A line that starts with "secret:"
// goes with sendSecureData, which only an authenticated link carries. When a
// connection is lost before the last line ("bye") is answered, the phone
// connects again and sends the unanswered lines once more.
//
// Run it with its partner: ./kv pair-run examples/watch-chat examples/phone-chat
// or with lines of your own:
//   ./kv pair-run examples/watch-chat examples/phone-chat -- "hi" "secret: 42" bye
//
// Both apps get the same arguments (those after "--"). The phone reads:
//   --interval MS    wait MS milliseconds between an answer and the next line (300)
//   anything else    a chat line; "bye" is added when the last line is not "bye"
// and skips the watch's options (--reject-first, --drop-after N).
var MESSAGES = 110;
var RECEIPTS = 111;

var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};

function readOptions(args) {
    var options = { interval: 300, lines: [] };
    for (var i = 0; i < args.length; i++) {
        if (args[i] === '--interval') {
            options.interval = Number(args[++i]);
        } else if (args[i] === '--drop-after') {
            i++;  // the watch's option, with its value
        } else if (args[i] !== '--reject-first') {
            options.lines.push(args[i]);
        }
    }
    if (options.lines.length === 0) {
        options.lines = ['hello', 'secret: the door code is 4711', 'how is the weather?'];
    }
    if (options.lines[options.lines.length - 1] !== 'bye') {
        options.lines.push('bye');
    }
    return options;
}

var options = readOptions(runtime.args);
// The lines, numbered from 1; a line is done when the watch answered it (or
// when it can't be sent at all).
var lines = options.lines.map(function (text, index) {
    // sentOn: the connection that carries the line, so that a line lost
    // with its connection is sent again on the next one.
    return {
        n: index + 1,
        text: text,
        secure: text.indexOf('secret:') === 0,
        done: false,
        sentOn: null
    };
});

var agent = null;
var watch = null;         // the watch's peer agent, once found
var socket = null;        // the open connection, or null
var connecting = false;   // whether a connection request is under way
var finished = false;     // whether "bye" was answered
// The authentication of the current connection: 'pending', 'yes' or 'no'.
var authentication = 'pending';
var sendTimer = 0;

function describe(peer) {
    var accessory = peer.peerAccessory;
    log('found', peer.appName, 'on', accessory.deviceName, '(' + accessory.transportType + ',',
        'address ' + accessory.deviceAddress + ', product ' + accessory.productId + ', vendor ' +
        accessory.vendorId + '), profile version', peer.profileVersion + ', at most',
        peer.maxAllowedDataSize, 'bytes a send');
}

// Asks the watch for a connection; the answer comes to the service
// connection listener (onconnect or onerror).
function connect(peer) {
    if (socket !== null || connecting || finished) {
        return;
    }
    connecting = true;
    watch = peer;
    log('connecting to', peer.appName);
    agent.requestServiceConnection(peer);
}

function connectLater() {
    setTimeout(function () {
        if (watch !== null) {
            connect(watch);
        }
    }, 1000);
}

// Sends the first line that is not done yet, unless it is on its way.
function sendNext() {
    clearTimeout(sendTimer);
    sendTimer = 0;
    var line = lines.filter(function (candidate) {
        return !candidate.done;
    })[0];
    if (line === undefined || socket === null || line.sentOn === socket) {
        return;
    }
    if (line.secure && authentication === 'pending') {
        return;  // sent once the authentication has answered
    }
    if (line.secure && authentication === 'no') {
        log('skipping line', line.n, '(secret, but the link is not authenticated)');
        line.done = true;
        sendNext();
        return;
    }
    try {
        if (line.secure) {
            socket.sendSecureData(MESSAGES, line.n + '|' + line.text);
        } else {
            socket.sendData(MESSAGES, line.n + '|' + line.text);
        }
        line.sentOn = socket;
        log(line.secure ? 'sent securely' : 'sent', 'line', line.n + ':', line.text);
    } catch (error) {
        // IOError: the connection is closed, or the service refused (for a
        // secure send: the link is not authenticated). InvalidValuesError:
        // the line is too long, or the channel is not in the profile.
        log('cannot send line', line.n + ':', error.name, error.message);
    }
}

function chat(newSocket) {
    connecting = false;
    socket = newSocket;
    authentication = 'pending';
    log('connected to', newSocket.peerAgent.appName);
    // Set the data listener at once: data that arrives before it is set is
    // dropped.
    newSocket.setDataReceiveListener(function (channelId, data) {
        if (channelId === RECEIPTS) {
            log('the watch read line', data.split('|')[1]);
            return;
        }
        var bar = data.indexOf('|');
        var line = lines[Number(data.slice(0, bar)) - 1];
        if (line === undefined || line.done) {
            return;  // an answer to a line sent twice, around a loss
        }
        line.done = true;
        log('watch:', data.slice(bar + 1));
        if (line.text === 'bye') {
            finish();
        } else {
            sendTimer = setTimeout(sendNext, options.interval);
        }
    });
    newSocket.setSocketStatusListener(function (reason) {
        if (finished || socket !== this) {
            return;  // closed by finish(), or a connection replaced already
        }
        log('connection ended:', reason);
        socket = null;
        if (reason === 'PEER_DISCONNECTED') {
            log('connecting again in a second');
            connectLater();
        } else {
            // DEVICE_DETACHED: the link went; the device status listener
            // hears when it comes back.
            log('waiting for the device to come back');
        }
    });
    // Who is at the other end? The token's key is the fingerprint of the
    // certificate that the watch's device presented on the paired link.
    agent.authenticatePeerAgent(newSocket.peerAgent, function (peer, token) {
        log('authenticated', peer.appName + ':', token.authenticationType, 'key',
            token.key.slice(0, 16) + '...');
        authentication = 'yes';
        sendNext();
    }, function (error) {
        // TokenNotGeneratedError: no paired TLS link (an insecure one), or
        // the peer is gone.
        log('not authenticated:', error.name, error.message);
        authentication = 'no';
        sendNext();
    });
    sendNext();
}

function finish() {
    finished = true;
    socket.close();
    log('closed; still connected:', socket.isConnected());
    log('done');
    runtime.exit(0);
}

// The device status: when the link comes back, the agent registers again by
// itself; a new search finds the watch (peer agents found over the old link
// are no longer valid).
webapis.kv.setDeviceStatusListener(function (transportType, status) {
    log('device', status);
    if (status === 'ATTACHED' && !finished && socket === null) {
        connecting = false;
        watch = null;
        agent.findPeerAgents();
    }
});

webapis.kv.requestKvAgent(function (agents) {
    agent = agents[0];
    log('agent', agent.name, 'as', agent.role + ';', lines.length, 'lines to send');

    agent.setServiceConnectionListener({
        onconnect: chat,
        onerror: function (code) {
            connecting = false;
            log('connection failed:', code);
            if (code === 'PEERAGENT_REJECTED' || code === 'PEERAGENT_NO_RESPONSE' ||
                code === 'NETWORK_ERROR') {
                connectLater();
            } else if (code === 'INVALID_PEERAGENT') {
                // A peer agent of an earlier link, or one that went away:
                // search again.
                watch = null;
                agent.findPeerAgents();
            }
            // ALREADY_EXIST: connected already. DEVICE_UNREACHABLE: no link;
            // the device status listener hears when it comes back.
        }
    });

    agent.setPeerAgentFindListener({
        onpeeragentfound: function (peer) {
            describe(peer);
            connect(peer);
        },
        // A watch app that starts (or comes back) after the search.
        onpeeragentupdated: function (peer, status) {
            var same = watch !== null && watch.equals(peer);
            log(same ? 'the watch app' : 'a watch app', peer.appName, 'is', status);
            if (status === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function (code) {
            // PEER_NOT_FOUND: no watch app yet; onpeeragentupdated tells when
            // one registers. DEVICE_NOT_CONNECTED: no link; the device status
            // listener tells when it comes back. DUPLICATE_REQUEST: a search
            // is running already.
            log('search:', code);
        }
    });
    // The first search registers the agent with the accessory service.
    agent.findPeerAgents();
}, function (error) {
    // ServiceNotAvailableError: the profile file gave no agent.
    console.error('phone: no agent:', error.name, error.message);
    runtime.exit(1);
});
