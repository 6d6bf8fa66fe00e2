// The watch side of the chat sample: it offers the chat service
// (res/xml/accessoryservices.xml), takes one chat at a time, answers every
// line on the high-priority channel 110 and sends a "read" receipt for it on
// the low-priority channel 111. It ends when the phone has said "bye" and the
// connection is closed; a connection that ends before that is a loss, and the
// watch waits for the phone to come back.
//
// Its page (index.html) is a round watch face: the state of the chat and of
// the link at the top, the last lines in the middle (the phone's on the left,
// the answers on the right; a secret line shows only its length), and a
// banner when something went wrong. The watch needs nobody: it answers by
// itself.
//
// Run it with its partner: ./kv pair-run examples/watch-chat examples/phone-chat
//
// Both apps get the same arguments (those after "--"). The watch reads two:
//   --reject-first   refuse the first connection request, as if busy
//   --drop-after N   close the connection after the Nth answer, as if lost
// Everything else is for the phone.
var MESSAGES = 110;
var RECEIPTS = 111;

var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};

// The screen, part by part: the chat's state, the link, the lines and the
// banner.
var screen = {
    state: function (text, kind) {
        var state = document.getElementById('state');
        state.textContent = text;
        state.className = 'state ' + kind;
    },
    link: function (text, kind) {
        var link = document.getElementById('link');
        link.textContent = text;
        link.className = 'link ' + kind;
    },
    // Adds an entry at the bottom: 'in' for a line of the phone, 'out' for
    // an answer, 'note' for something that happened to the chat. The oldest
    // entries go while the list is taller than its place on the face.
    add: function (text, kind) {
        var list = document.getElementById('chat-lines');
        var item = document.createElement('li');
        item.textContent = text;
        item.className = kind;
        list.appendChild(item);
        while (list.scrollHeight > list.clientHeight && list.children.length > 1) {
            list.removeChild(list.firstChild);
        }
    },
    // An empty text hides the banner; kind 'info' is a notice, not an error.
    banner: function (text, kind) {
        var banner = document.getElementById('banner');
        banner.textContent = text || '';
        banner.className = 'banner ' + (kind || '');
        banner.hidden = !text;
    }
};

// The options of runtime.args; the arguments that are no options are the
// phone's chat lines.
function readOptions(args) {
    var options = { rejectFirst: false, dropAfter: 0 };
    for (var i = 0; i < args.length; i++) {
        if (args[i] === '--reject-first') {
            options.rejectFirst = true;
        } else if (args[i] === '--drop-after') {
            options.dropAfter = Number(args[++i]);
        } else if (args[i] === '--interval') {
            i++;  // the phone's option, with its value
        }
    }
    return options;
}

var options = readOptions(runtime.args);
var chat = null;          // the open connection, or null
var rejected = false;     // whether the first request was refused already
var answers = 0;          // lines answered, over every connection
var dropped = false;      // whether --drop-after closed a connection already
var finished = false;     // whether the phone said "bye"

// A line travels as "<number>|<text>"; the number lets the phone match the
// answer to its line, also when it sends a line again after a loss.
function parseLine(data) {
    var bar = data.indexOf('|');
    return { n: Number(data.slice(0, bar)), text: data.slice(bar + 1) };
}

function answerTo(text) {
    if (text === 'bye') {
        return 'bye!';
    }
    if (text.indexOf('secret:') === 0) {
        return 'I keep your secret (' + (text.length - 7) + ' characters)';
    }
    return 'you said "' + text + '"';
}

// Shows a line of the phone on the face. A secret stays off the screen, for
// anybody could read it there: only its length is shown.
function showLine(line) {
    if (line.text.indexOf('secret:') === 0) {
        screen.add(line.n + ': a secret of ' + (line.text.length - 7) + ' characters', 'in secret');
    } else {
        screen.add(line.n + ': ' + line.text, 'in');
    }
}

// The link line under the state, while a chat is open: the link is up,
// and how many lines were answered so far.
function showAnswers() {
    screen.link('link up \u00b7 ' + answers + (answers === 1 ? ' answer' : ' answers'), 'up');
}

// Answers one line: the receipt goes on the low-priority channel, the answer
// on the high-priority one. Both may throw (IOError when the connection went
// meanwhile), and a closed connection is no reason to end the app.
function answer(socket, line) {
    var text = answerTo(line.text);
    try {
        socket.sendData(RECEIPTS, 'read|' + line.n);
        socket.sendData(MESSAGES, line.n + '|' + text);
    } catch (error) {
        log('cannot answer line', line.n + ':', error.name, error.message);
        screen.banner('cannot answer line ' + line.n + ': ' + error.name, 'error');
        return;
    }
    answers++;
    screen.add(text, 'out');
    showAnswers();
    finished = finished || line.text === 'bye';
    if (options.dropAfter > 0 && answers === options.dropAfter && !dropped) {
        dropped = true;
        log('closing the connection after', answers, 'answer(s), as --drop-after asks');
        screen.banner('closed the chat after ' + answers + ' (--drop-after)', 'info');
        socket.close();
    }
}

// The end of a connection, on the screen: "bye" makes it the end of the
// chat; anything else is a loss, after which the watch waits.
function showEnd(reason) {
    screen.add('chat ended: ' + reason, 'note');
    if (finished) {
        screen.state('chat over: bye!', 'done');
    } else if (reason === 'DEVICE_DETACHED') {
        screen.state('phone gone, waiting', 'ended');
        screen.banner('lost the link to the phone', 'error');
    } else {
        screen.state('phone left, waiting', 'ended');
    }
}

function talk(socket) {
    chat = socket;
    log('chatting with', socket.peerAgent.appName, '(peer id ' + socket.peerAgent.peerId + ')');
    screen.state('chatting with ' + socket.peerAgent.appName, 'connected');
    showAnswers();
    screen.add('connected to ' + socket.peerAgent.appName, 'note');
    // Set the data listener in onconnect: data that arrives before a data
    // listener is set is dropped.
    socket.setDataReceiveListener(function (channelId, data) {
        if (channelId !== MESSAGES) {
            log('ignoring data on channel', channelId);
            return;
        }
        // Plain and secure data arrive alike; only the sender chooses.
        var line = parseLine(data);
        log('line', line.n + ':', line.text);
        showLine(line);
        answer(this, line);
    });
    socket.setSocketStatusListener(function (reason) {
        // PEER_DISCONNECTED: an end closed it (this one too, after
        // --drop-after); DEVICE_DETACHED: the link went.
        log('chat ended:', reason);
        chat = null;
        showEnd(reason);
        if (finished) {
            log('done');
            runtime.exit(0);
        }
        log('waiting for the phone to come back');
    });
}

// Answers a connection request, inside onrequest as it must be: a refusal
// for --reject-first or while a chat is open, an acceptance otherwise.
function answerRequest(agent, peer) {
    if (options.rejectFirst && !rejected) {
        rejected = true;
        log('busy: rejecting the first request of', peer.appName);
        agent.rejectServiceConnectionRequest(peer);
        screen.add('refused ' + peer.appName + ' (busy)', 'note');
        screen.banner('busy: refused ' + peer.appName, 'info');
    } else if (chat !== null && chat.isConnected()) {
        log('in a chat already: rejecting', peer.appName);
        agent.rejectServiceConnectionRequest(peer);
        screen.add('refused ' + peer.appName + ' (in a chat)', 'note');
    } else {
        log('accepting', peer.appName);
        agent.acceptServiceConnectionRequest(peer);
        screen.banner('');
    }
}

// The device status: the link to the phone came or went. The agent
// registers again by itself when it comes back.
webapis.kv.setDeviceStatusListener(function (transportType, deviceStatus) {
    log('device', deviceStatus);
    if (deviceStatus === 'ATTACHED') {
        screen.link('link back (ATTACHED)', 'up');
    } else {
        screen.link('link gone (DETACHED)', 'down');
    }
});

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    log('offering', agent.id, 'as', agent.role, 'on channels', agent.channelIds.join(', '));
    // Setting the listener registers the agent, so that the phone finds it.
    agent.setServiceConnectionListener({
        // Answer a request inside onrequest: accept or reject it here.
        onrequest: function (peer) {
            answerRequest(agent, peer);
        },
        onconnect: talk,
        // An accepted request that could not be completed.
        onerror: function (code) {
            log('connection failed:', code);
            screen.banner('connection failed: ' + code, 'error');
        }
    });
    log('waiting for the phone');
    screen.state('waiting for the phone', 'waiting');
}, function (error) {
    console.error('watch: no agent:', error.name, error.message);
    screen.state('no chat service', 'ended');
    screen.banner('no agent: ' + error.name, 'error');
    runtime.exit(1);
});
