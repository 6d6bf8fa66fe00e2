// The watch side of the chat sample: it offers the chat service
// (res/xml/accessoryservices.xml), takes one chat at a time, answers every
// line on the high-priority channel 110 and sends a "read" receipt for it on
// the low-priority channel 111. It ends when the phone has said "bye" and the
// connection is closed; a connection that ends before that is a loss, and the
// watch waits for the phone to come back.
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

// Answers one line: the receipt goes on the low-priority channel, the answer
// on the high-priority one. Both may throw (IOError when the connection went
// meanwhile), and a closed connection is no reason to end the app.
function answer(socket, line) {
    try {
        socket.sendData(RECEIPTS, 'read|' + line.n);
        socket.sendData(MESSAGES, line.n + '|' + answerTo(line.text));
    } catch (error) {
        log('cannot answer line', line.n + ':', error.name, error.message);
        return;
    }
    answers++;
    finished = finished || line.text === 'bye';
    if (options.dropAfter > 0 && answers === options.dropAfter && !dropped) {
        dropped = true;
        log('closing the connection after', answers, 'answer(s), as --drop-after asks');
        socket.close();
    }
}

function talk(socket) {
    chat = socket;
    log('chatting with', socket.peerAgent.appName, '(peer id ' + socket.peerAgent.peerId + ')');
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
        answer(this, line);
    });
    socket.setSocketStatusListener(function (reason) {
        // PEER_DISCONNECTED: an end closed it (this one too, after
        // --drop-after); DEVICE_DETACHED: the link went.
        log('chat ended:', reason);
        chat = null;
        if (finished) {
            log('done');
            runtime.exit(0);
        }
        log('waiting for the phone to come back');
    });
}

// The device status: the link to the phone came or went. The agent
// registers again by itself when it comes back.
webapis.kv.setDeviceStatusListener(function (transportType, status) {
    log('device', status);
});

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    log('offering', agent.id, 'as', agent.role, 'on channels', agent.channelIds.join(', '));
    // Setting the listener registers the agent, so that the phone finds it.
    agent.setServiceConnectionListener({
        // Answer a request inside onrequest: accept or reject it here.
        onrequest: function (peer) {
            if (options.rejectFirst && !rejected) {
                rejected = true;
                log('busy: rejecting the first request of', peer.appName);
                agent.rejectServiceConnectionRequest(peer);
            } else if (chat !== null && chat.isConnected()) {
                log('in a chat already: rejecting', peer.appName);
                agent.rejectServiceConnectionRequest(peer);
            } else {
                log('accepting', peer.appName);
                agent.acceptServiceConnectionRequest(peer);
            }
        },
        onconnect: talk,
        // An accepted request that could not be completed.
        onerror: function (code) {
            log('connection failed:', code);
        }
    });
    log('waiting for the phone');
}, function (error) {
    console.error('watch: no agent:', error.name, error.message);
    runtime.exit(1);
});
