// The phone side of the demo: finds the watch's sensor service, connects,
// says hello on every channel and shows the echoes, shows the watch's live
// readings, sends a report file with its progress on a bar, then closes the
// connection.
//
// As it is, the app does all of that by itself and ends (after --linger MS,
// if given). When the link to the watch goes on the way, it waits for the
// link to come back, finds the watch again and goes on where it was. With the argument --manual it waits for a person instead:
// Connect, Send report, Disconnect and Exit each do one step.
var manual = runtime.args.indexOf('--manual') >= 0;
// With "--linger MS" the app stays that long once done, so that a person
// watching its window sees how it ended.
var lingerAt = runtime.args.indexOf('--linger');
var linger = lingerAt >= 0 ? Number(runtime.args[lingerAt + 1]) || 0 : 0;

var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};

// The screen, part by part.
var screen = {
    show: function (id, text) {
        document.getElementById(id).textContent = text;
    },
    status: function (text) {
        this.show('status', text);
    },
    banner: function (text, kind) {
        var banner = document.getElementById('banner');
        banner.textContent = text || '';
        banner.className = 'banner ' + (kind || '');
        banner.hidden = !text;
    },
    message: function (text, kind) {
        var item = document.createElement('li');
        item.textContent = text;
        item.className = kind;
        var list = document.getElementById('messages');
        list.insertBefore(item, list.firstChild);
    },
    progress: function (percent, label) {
        document.getElementById('progress-fill').style.width = percent + '%';
        this.show('progress-label', label);
    },
    enable: function (id, enabled) {
        var button = /** @type {HTMLButtonElement} */ (document.getElementById(id));
        button.disabled = !enabled;
    }
};

var fail = function (what) {
    return function (error) {
        var text = error && error.name ? error.name + ' ' + error.message : String(error);
        console.error('phone:', what, text);
        screen.banner(what + ' ' + text, 'error');
        if (!manual) {
            runtime.exit(1);
        }
    };
};

var agent = null;
var watch = null;
var socket = null;
var connecting = false;
var echoesAwaited = 0;
var readings = 0;
var reportSent = false;
var done = false;

function sendReportWhenReady() {
    if (!manual && socket && echoesAwaited === 0 && readings >= 3 && !reportSent) {
        sendReport();
    }
}

function showReading(data) {
    var reading = JSON.parse(data);
    readings += 1;
    screen.show('heart-rate', String(reading.heartRate));
    screen.show('steps', String(reading.steps));
    screen.show('reading-count', readings + (readings === 1 ? ' reading' : ' readings') +
                ' from ' + watch.appName);
    sendReportWhenReady();
}

function talk(connected) {
    socket = connected;
    connecting = false;
    var peer = socket.peerAgent;
    log('connected to', peer.appName, 'on', peer.peerAccessory.deviceName);
    screen.status('connected to ' + peer.appName + ' on ' + peer.peerAccessory.deviceName);
    screen.banner('');
    screen.enable('connect', false);
    screen.enable('disconnect', true);
    screen.enable('send', manual);
    echoesAwaited = agent.channelIds.length;
    socket.setDataReceiveListener(function (channelId, data) {
        if (data.indexOf('echo ') !== 0) {
            showReading(data);
            return;
        }
        log('channel', channelId, 'answered', JSON.stringify(data));
        screen.message('channel ' + channelId + ': ' + data, 'got');
        echoesAwaited -= 1;
        sendReportWhenReady();
    });
    socket.setSocketStatusListener(function (reason) {
        log('connection ended:', reason);
        disconnected('the watch ended the connection (' + reason + ')');
        if (!manual && !done && reason === 'DEVICE_DETACHED') {
            // The device status listener hears when the link is back.
            log('waiting for the watch to come back');
        } else if (!manual && !done) {
            setTimeout(connect, 1000);
        }
    });
    agent.channelIds.forEach(function (channelId) {
        var hello = 'hello on channel ' + channelId;
        socket.sendData(channelId, hello);
        screen.message('channel ' + channelId + ': ' + hello, 'sent');
    });
}

function disconnected(why) {
    socket = null;
    screen.status(why);
    screen.enable('disconnect', false);
    screen.enable('send', false);
    screen.enable('connect', manual && watch !== null);
}

function connect() {
    if (watch && !connecting && !socket) {
        connecting = true;
        screen.enable('connect', false);
        screen.status('connecting to ' + watch.appName);
        agent.requestServiceConnection(watch);
    }
}

function found(peer) {
    if (watch) {
        return;
    }
    watch = peer;
    log('found', peer.appName, 'on', peer.peerAccessory.deviceName);
    screen.status('found ' + peer.appName + ' on ' + peer.peerAccessory.deviceName);
    screen.banner('');
    screen.enable('connect', true);
    if (!manual) {
        connect();
    }
}

function sendReport() {
    reportSent = true;
    screen.enable('send', false);
    log('sending documents/report.txt');
    screen.progress(0, 'sending report.txt');
    agent.getKvFileTransfer().sendFile(watch, 'documents/report.txt');
}

function watchFileSending() {
    agent.getKvFileTransfer().setFileSendListener({
        onprogress: function (transferId, progress) {
            screen.progress(progress, 'sending report.txt: ' + progress + '%');
        },
        oncomplete: function (transferId, fileUri) {
            log('file sent:', fileUri);
            screen.progress(100, 'report.txt sent');
            if (!manual) {
                done = true;
                socket.close();
                disconnected('done: report sent, connection closed');
                log('done');
                setTimeout(function () {
                    runtime.exit(0);
                }, linger);
            }
        },
        onerror: function (transferId, error) {
            reportSent = false;
            screen.progress(0, 'not sent');
            screen.enable('send', socket !== null);
            if (error === 'PEER_CONN_LOST' || socket === null) {
                // The link went during the transfer: the report goes again
                // once the watch is connected again.
                log('report not sent (' + error + '); it goes again once connected');
                return;
            }
            fail('file send failed:')(error);
        }
    });
}

document.getElementById('connect').addEventListener('click', connect);
document.getElementById('send').addEventListener('click', sendReport);
document.getElementById('disconnect').addEventListener('click', function () {
    socket.close();
    log('disconnected');
    disconnected('disconnected');
});
document.getElementById('exit').addEventListener('click', function () {
    log('done');
    runtime.exit(0);
});

// When the link comes back the agent registers again by itself; peer agents
// found over the old link are no longer valid, so the watch is found anew.
webapis.kv.setDeviceStatusListener(function (transportType, status) {
    log('device', status);
    if (status === 'ATTACHED' && agent && !manual && !done && socket === null) {
        watch = null;
        connecting = false;
        agent.findPeerAgents();
    }
});

webapis.kv.requestKvAgent(function (agents) {
    agent = agents[0];
    log('agent', agent.name, 'as', agent.role);
    watchFileSending();
    agent.setServiceConnectionListener({
        onconnect: talk,
        onerror: function (error) {
            connecting = false;
            screen.enable('connect', watch !== null);
            if (error === 'INVALID_PEERAGENT') {
                // A peer agent of an earlier link: search again.
                watch = null;
                agent.findPeerAgents();
            } else if (error === 'DEVICE_UNREACHABLE' || error === 'NETWORK_ERROR' ||
                       error === 'PEERAGENT_NO_RESPONSE') {
                // No link, or one that went during the request: the device
                // status listener hears when it is back; try again meanwhile.
                log('connection failed:', error + '; trying again');
                setTimeout(connect, 1000);
            } else {
                fail('connection failed:')(error);
            }
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: found,
        // A watch that starts after the phone is heard of when it registers.
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                found(peer);
            }
        },
        onerror: function (code) {
            log('no watch yet (' + code + '), waiting for it');
            screen.banner('no watch yet (' + code + '), waiting for it', 'info');
        }
    });
    agent.findPeerAgents();
}, fail('no agent:'));
