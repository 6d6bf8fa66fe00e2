// The phone side of the chat sample: it finds the watch's chat service,
// connects, authenticates the watch, and sends its chat lines one at a time,
// each after the answer to the one before. A line that starts with "secret:"
// goes with sendSecureData, which only an authenticated link carries. When a
// connection is lost before the last line ("bye") is answered, the phone
// connects again and sends the unanswered lines once more.
//
// Its page (index.html) shows the chat: the connection, the device's status
// and the watch's authentication at the top, a banner for what went wrong
// (a refusal, a lost connection or link, a failed authentication), the lines
// (the phone's on the right, marked when the watch has read them; the
// watch's answers on the left), a field to type a line, and Connect and
// Disconnect buttons.
//
// Run it with its partner: ./kv pair-run examples/watch-chat examples/phone-chat
// or with lines of your own:
//   ./kv pair-run examples/watch-chat examples/phone-chat -- "hi" "secret: 42" bye
//
// Both apps get the same arguments (those after "--"). The phone reads:
//   --interval MS    wait MS milliseconds between an answer and the next line (300)
//   --manual         wait for a person: connect on Connect, send what is typed
//                    (ticking "secret" puts "secret: " in front of it, so it
//                    goes with sendSecureData); the chat ends when the watch
//                    has answered a line "bye"
//   anything else    a chat line; "bye" is added when the last line is not "bye"
// and skips the watch's options (--reject-first, --drop-after N). As it is,
// the app does everything by itself and ends; Disconnect and Connect work
// in both modes.
var MESSAGES = 110;
var RECEIPTS = 111;

var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};

// The screen, part by part.
var screen = {
    bubbles: {},  // line number to the line's bubble in the chat
    show: function (id, text) {
        document.getElementById(id).textContent = text;
    },
    connection: function (text) {
        this.show('connection', text);
    },
    // A chip of the header: kind 'good', 'bad' or '' (neutral).
    chip: function (id, text, kind) {
        var chip = document.getElementById(id);
        chip.textContent = text;
        chip.className = 'chip ' + (kind || '');
    },
    // An empty text hides the banner; kind 'info' is a notice, not an error.
    banner: function (text, kind) {
        var banner = document.getElementById('banner');
        banner.textContent = text || '';
        banner.className = 'banner ' + (kind || '');
        banner.hidden = !text;
    },
    // Puts an entry at the end of the chat and scrolls it into view.
    place: function (item, kind) {
        item.className = kind;
        var list = document.getElementById('chat-lines');
        list.appendChild(item);
        list.parentElement.scrollTop = list.parentElement.scrollHeight;
    },
    // A new entry of text: a watch's answer ('got') or a note about the
    // connection ('note').
    add: function (text, kind) {
        var item = document.createElement('li');
        item.textContent = text;
        this.place(item, kind);
    },
    // Shows one of the phone's lines with what became of it (`what`) and
    // its look (`kind`: 'queued', 'skipped' or none). The bubble is made the
    // first time; `toEnd` moves it to the end of the chat, as when the line
    // is sent.
    line: function (line, what, kind, toEnd) {
        var bubble = this.bubbles[line.n];
        if (bubble === undefined) {
            bubble = this.bubbles[line.n] = document.createElement('li');
            bubble.appendChild(document.createElement('span')).className = 'text';
            bubble.appendChild(document.createElement('span')).className = 'meta';
            bubble.firstChild.textContent = line.text;
            toEnd = true;
        }
        bubble.lastChild.textContent = '#' + line.n + (line.secure ? ' \u00b7 secret' : '') + ' \u00b7 ' + what;
        var look = 'sent' + (line.secure ? ' secret' : '') + (kind ? ' ' + kind : '');
        if (toEnd) {
            this.place(bubble, look);
        } else {
            bubble.className = look;
        }
    },
    enable: function (id, enabled) {
        var control = /** @type {HTMLButtonElement | HTMLInputElement} */ (document.getElementById(id));
        control.disabled = !enabled;
    },
    // The line that a person typed, and whether it is to be a secret; the
    // field is emptied.
    typed: function () {
        var field = /** @type {HTMLInputElement} */ (document.getElementById('line'));
        var secret = /** @type {HTMLInputElement} */ (document.getElementById('secret'));
        var typed = { text: field.value.trim(), secret: secret.checked };
        field.value = '';
        return typed;
    }
};

function readOptions(args) {
    var options = { interval: 300, lines: [], manual: false };
    for (var i = 0; i < args.length; i++) {
        if (args[i] === '--interval') {
            options.interval = Number(args[++i]);
        } else if (args[i] === '--manual') {
            options.manual = true;
        } else if (args[i] === '--drop-after') {
            i++;  // the watch's option, with its value
        } else if (args[i] !== '--reject-first') {
            options.lines.push(args[i]);
        }
    }
    if (options.manual) {
        options.lines = [];  // a person types them
        return options;
    }
    if (options.lines.length === 0) {
        options.lines = ['hello', 'secret: the door code is 4711', 'how is the weather?'];
    }
    if (options.lines[options.lines.length - 1] !== 'bye') {
        options.lines.push('bye');
    }
    return options;
}

// A chat line, numbered from 1; a line is done when the watch answered it
// (or when it can't be sent at all). sentOn is the connection that carries
// the line, so that a line lost with its connection is sent again on the
// next one.
function makeLine(text, index) {
    return {
        n: index + 1,
        text: text,
        secure: text.indexOf('secret:') === 0,
        done: false,
        sentOn: null
    };
}

var options = readOptions(runtime.args);
var lines = options.lines.map(makeLine);

var agent = null;
var watch = null;         // the watch's peer agent, once found
var socket = null;        // the open connection, or null
var connecting = false;   // whether a connection request is under way
var finished = false;     // whether "bye" was answered
// Whether the phone is to be connected: at once when it runs by itself,
// after Connect with --manual; Disconnect says no until the next Connect.
var wanted = !options.manual;
// The authentication of the current connection: 'pending', 'yes' or 'no'.
var authentication = 'pending';
var sendTimer = 0;

// The buttons and the field follow the state: Connect while there is no
// connection, Disconnect while there is one, typing with --manual only.
function updateControls() {
    screen.enable('connect', !finished && socket === null && !connecting);
    screen.enable('disconnect', !finished && socket !== null);
    ['line', 'send', 'secret'].forEach(function (id) {
        screen.enable(id, options.manual && !finished);
    });
}

// How a line went: 'sent securely' for a secret, 'sent' for any other.
function sentAs(line) {
    return line.secure ? 'sent securely' : 'sent';
}

// The device chip: the watch's device and the state of the link to it,
// 'linked' once the watch is heard of, then what the device status listener
// tells (it tells changes only).
var deviceState = 'linked';
function showDevice(peer) {
    var device = peer !== null ? peer.peerAccessory.deviceName : 'the watch';
    screen.chip('device', device + ': ' + deviceState, deviceState === 'DETACHED' ? 'bad' : 'good');
}

function describe(peer) {
    var accessory = peer.peerAccessory;
    log('found', peer.appName, 'on', accessory.deviceName, '(' + accessory.transportType + ',',
        'address ' + accessory.deviceAddress + ', product ' + accessory.productId + ', vendor ' +
        accessory.vendorId + '), profile version', peer.profileVersion + ', at most',
        peer.maxAllowedDataSize, 'bytes a send');
    showDevice(peer);
}

// Asks the watch for a connection; the answer comes to the service
// connection listener (onconnect or onerror). Until a person wants the
// connection (--manual, or after Disconnect), the watch is only kept.
function connect(peer) {
    if (socket !== null || connecting || finished) {
        return;
    }
    watch = peer;
    if (!wanted) {
        screen.connection('found ' + peer.appName + ': press Connect');
        return;
    }
    connecting = true;
    log('connecting to', peer.appName);
    screen.connection('connecting to ' + peer.appName);
    updateControls();
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
        skip(line);
        sendNext();
        return;
    }
    sendLine(line);
}

// A secret line over a link that is not authenticated is not sent at all.
function skip(line) {
    log('skipping line', line.n, '(secret, but the link is not authenticated)');
    line.done = true;
    screen.line(line, 'not sent: no authentication', 'skipped', true);
    screen.banner('line ' + line.n + ' not sent: it is a secret, and the watch is not authenticated',
                  'error');
}

function sendLine(line) {
    var again = line.sentOn !== null;
    try {
        if (line.secure) {
            socket.sendSecureData(MESSAGES, line.n + '|' + line.text);
        } else {
            socket.sendData(MESSAGES, line.n + '|' + line.text);
        }
        line.sentOn = socket;
        log(line.secure ? 'sent securely' : 'sent', 'line', line.n + ':', line.text);
        screen.line(line, sentAs(line) + (again ? ' again' : ''), '', true);
    } catch (error) {
        // IOError: the connection is closed, or the service refused (for a
        // secure send: the link is not authenticated). InvalidValuesError:
        // the line is too long, or the channel is not in the profile.
        log('cannot send line', line.n + ':', error.name, error.message);
        screen.banner('cannot send line ' + line.n + ': ' + error.name + ' ' + error.message, 'error');
    }
}

// What the watch sends: a receipt on the low-priority channel, an answer to
// a line on the high-priority one.
function received(channelId, data) {
    if (channelId === RECEIPTS) {
        log('the watch read line', data.split('|')[1]);
        var read = lines[Number(data.split('|')[1]) - 1];
        if (read !== undefined) {
            screen.line(read, sentAs(read) + ', read \u2713', '');
        }
        return;
    }
    var bar = data.indexOf('|');
    var line = lines[Number(data.slice(0, bar)) - 1];
    if (line === undefined || line.done) {
        return;  // an answer to a line sent twice, around a loss
    }
    line.done = true;
    log('watch:', data.slice(bar + 1));
    screen.add(data.slice(bar + 1), 'got');
    if (line.text === 'bye') {
        finish();
    } else {
        sendTimer = setTimeout(sendNext, options.interval);
    }
}

// A connection that ended without "bye": connect again after a second when
// an end closed it, or wait for the device when the link went.
function connectionEnded(reason) {
    log('connection ended:', reason);
    socket = null;
    screen.chip('authentication', 'no connection', '');
    screen.add('connection ended: ' + reason, 'note');
    if (reason === 'PEER_DISCONNECTED') {
        log('connecting again in a second');
        screen.connection('the watch closed the chat; connecting again');
        screen.banner('connection ended: ' + reason + '; connecting again in a second', 'error');
        connectLater();
    } else {
        // DEVICE_DETACHED: the link went; the device status listener
        // hears when it comes back.
        log('waiting for the device to come back');
        screen.connection('waiting for the device to come back');
        screen.banner('the link to the watch went (' + reason + ')', 'error');
    }
    updateControls();
}

// Who is at the other end? The token's key is the fingerprint of the
// certificate that the watch's device presented on the paired link.
function authenticate(peerAgent) {
    screen.chip('authentication', 'authenticating the watch', '');
    agent.authenticatePeerAgent(peerAgent, function (peer, token) {
        log('authenticated', peer.appName + ':', token.authenticationType, 'key',
            token.key.slice(0, 16) + '...');
        authentication = 'yes';
        screen.chip('authentication', 'authenticated, key ' + token.key.slice(0, 8) + '\u2026', 'good');
        sendNext();
    }, function (error) {
        // TokenNotGeneratedError: no paired TLS link (an insecure one), or
        // the peer is gone.
        log('not authenticated:', error.name, error.message);
        authentication = 'no';
        screen.chip('authentication', 'not authenticated', 'bad');
        screen.banner('the watch is not authenticated (' + error.name + '): secret lines are not sent',
                      'error');
        sendNext();
    });
}

function chat(newSocket) {
    connecting = false;
    socket = newSocket;
    authentication = 'pending';
    log('connected to', newSocket.peerAgent.appName);
    screen.connection('connected to ' + newSocket.peerAgent.appName + ' on ' +
                      newSocket.peerAgent.peerAccessory.deviceName);
    screen.banner('');
    screen.add('connected to ' + newSocket.peerAgent.appName, 'note');
    showDevice(newSocket.peerAgent);
    updateControls();
    // Set the data listener at once: data that arrives before it is set is
    // dropped.
    newSocket.setDataReceiveListener(received);
    newSocket.setSocketStatusListener(function (reason) {
        if (finished || socket !== this) {
            return;  // closed by finish() or Disconnect, or replaced already
        }
        connectionEnded(reason);
    });
    authenticate(newSocket.peerAgent);
    sendNext();
}

function finish() {
    finished = true;
    socket.close();
    log('closed; still connected:', socket.isConnected());
    screen.connection('the chat is over: the watch said bye');
    screen.add('closed the connection', 'note');
    updateControls();
    log('done');
    runtime.exit(0);
}

// A connection request that failed. A refusal, a request without answer and
// a link that went are tried again a second later.
function connectionFailed(code) {
    connecting = false;
    log('connection failed:', code);
    screen.add('connection failed: ' + code, 'note');
    screen.banner('connection failed: ' + code, 'error');
    if (code === 'PEERAGENT_REJECTED' || code === 'PEERAGENT_NO_RESPONSE' ||
        code === 'NETWORK_ERROR') {
        screen.connection('trying again in a second');
        connectLater();
    } else if (code === 'INVALID_PEERAGENT') {
        // A peer agent of an earlier link, or one that went away:
        // search again.
        watch = null;
        agent.findPeerAgents();
    }
    // ALREADY_EXIST: connected already. DEVICE_UNREACHABLE: no link;
    // the device status listener hears when it comes back.
    updateControls();
}

function listenForTheWatch() {
    agent.setPeerAgentFindListener({
        onpeeragentfound: function (peer) {
            describe(peer);
            connect(peer);
        },
        // A watch app that starts (or comes back) after the search.
        onpeeragentupdated: function (peer, peerStatus) {
            var same = watch !== null && watch.equals(peer);
            log(same ? 'the watch app' : 'a watch app', peer.appName, 'is', peerStatus);
            screen.add(peer.appName + ' is ' + peerStatus, 'note');
            if (peerStatus === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function (code) {
            // PEER_NOT_FOUND: no watch app yet; onpeeragentupdated tells when
            // one registers. DEVICE_NOT_CONNECTED: no link; the device status
            // listener tells when it comes back. DUPLICATE_REQUEST: a search
            // is running already.
            log('search:', code);
            screen.banner('no watch found yet (' + code + '); waiting for it', 'info');
        }
    });
}

// The buttons and the field, for a person.
function listenForClicks() {
    document.getElementById('connect').addEventListener('click', function () {
        wanted = true;
        if (watch !== null) {
            connect(watch);
        } else {
            agent.findPeerAgents();
        }
    });
    document.getElementById('disconnect').addEventListener('click', function () {
        // The status listener ignores a socket that is no longer the
        // current one, so this close is not taken for a loss.
        wanted = false;
        var closing = socket;
        socket = null;
        clearTimeout(sendTimer);
        closing.close();
        log('disconnected');
        screen.chip('authentication', 'no connection', '');
        screen.connection('disconnected: press Connect to chat on');
        screen.add('disconnected', 'note');
        updateControls();
    });
    document.getElementById('compose').addEventListener('submit', function (submission) {
        submission.preventDefault();
        var typed = screen.typed();
        if (typed.text === '') {
            return;
        }
        // A secret is a line that starts with "secret:", typed or not: the
        // watch knows it by that too.
        var text = typed.secret && typed.text.indexOf('secret:') !== 0 ? 'secret: ' + typed.text : typed.text;
        var line = makeLine(text, lines.length);
        lines.push(line);
        screen.line(line, 'waiting to be sent', 'queued');
        sendNext();
    });
}

if (options.manual) {
    screen.show('composer-note', 'A line "bye" ends the chat.');
}
listenForClicks();

// The device status: when the link comes back, the agent registers again by
// itself; a new search finds the watch (peer agents found over the old link
// are no longer valid).
webapis.kv.setDeviceStatusListener(function (transportType, deviceStatus) {
    log('device', deviceStatus);
    deviceState = deviceStatus;
    showDevice(watch);
    screen.add('device ' + deviceStatus, 'note');
    if (deviceStatus === 'ATTACHED' && !finished && socket === null) {
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
        onerror: connectionFailed
    });
    listenForTheWatch();
    updateControls();
    // The first search registers the agent with the accessory service.
    agent.findPeerAgents();
}, function (error) {
    // ServiceNotAvailableError: the profile file gave no agent.
    console.error('phone: no agent:', error.name, error.message);
    screen.banner('no agent: ' + error.name + ' ' + error.message, 'error');
    runtime.exit(1);
});
