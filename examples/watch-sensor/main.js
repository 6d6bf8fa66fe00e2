// The watch side of the demo, a round watch face: it offers the sensor
// service, shows its live readings (a heart rate and a step count), accepts
// the phone's connection, answers every message on the channel it came on,
// sends a reading on the first channel every half second while connected,
// takes the file the phone sends (its progress on a bar), and ends once the
// phone has sent its file and closed the connection (after --linger MS).
// With "--linger MS" the app stays that long once done, so that a person
// watching its window sees how it ended.
var lingerAt = runtime.args.indexOf('--linger');
var linger = lingerAt >= 0 ? Number(runtime.args[lingerAt + 1]) || 0 : 0;

var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};

// The screen, element by element.
var screen = {
    show: function (id, text) {
        document.getElementById(id).textContent = text;
    },
    status: function (text, kind) {
        var status = document.getElementById('status');
        status.textContent = text;
        status.className = 'status ' + kind;
    },
    banner: function (text) {
        var banner = document.getElementById('banner');
        banner.textContent = text;
        banner.hidden = !text;
    },
    file: function (label, percent) {
        document.getElementById('file').hidden = false;
        document.getElementById('file-fill').style.width = percent + '%';
        this.show('file-label', label);
    }
};

var fail = function (what) {
    return function (error) {
        var text = error && error.name ? error.name + ' ' + error.message : String(error);
        console.error('watch:', what, text);
        screen.banner(what + ' ' + text);
        runtime.exit(1);
    };
};

// The sensor: a heart rate that wanders around 72 and a step count that
// only grows.
var sensor = {heartRate: 72, steps: 4211};
function measure() {
    sensor.heartRate = Math.max(55, Math.min(110, sensor.heartRate + Math.round(Math.random() * 6 - 3)));
    sensor.steps += Math.round(Math.random() * 3);
    screen.show('heart-rate', String(sensor.heartRate));
    screen.show('steps', sensor.steps + ' steps');
}
measure();
setInterval(measure, 500);

var receivedFile = false;
var connectionClosed = false;

function finishWhenDone() {
    if (receivedFile && connectionClosed) {
        log('done');
        setTimeout(function () {
            runtime.exit(0);
        }, linger);
    }
}

function acceptFiles(agent) {
    var transfer = agent.getKvFileTransfer();
    transfer.setFileReceiveListener({
        onreceive: function (transferId, fileName) {
            log('file offered:', fileName);
            screen.file(fileName, 0);
            transfer.receiveFile(transferId, 'downloads/' + fileName);
        },
        onprogress: function (transferId, progress) {
            screen.file('receiving ' + progress + '%', progress);
        },
        oncomplete: function (transferId, fileUri) {
            log('file received:', fileUri);
            screen.file(fileUri.split('/').pop() + ' received', 100);
            receivedFile = true;
            finishWhenDone();
        },
        onerror: function (transferId, error) {
            // The link went during the transfer: the phone sends it again.
            log('file not received (' + error + '); waiting for it again');
            screen.file('not received (' + error + ')', 0);
        }
    });
}

// While connected, a reading goes to the phone every half second.
function serve(socket, channelId) {
    log('connected to', socket.peerAgent.appName);
    screen.status('connected to ' + socket.peerAgent.appName, 'connected');
    connectionClosed = false;
    var readings = setInterval(function () {
        try {
            socket.sendData(channelId, JSON.stringify(sensor));
        } catch (error) {
            clearInterval(readings);  // the phone has just left
        }
    }, 500);
    socket.setDataReceiveListener(function (channelId, data) {
        log('channel', channelId, 'got', JSON.stringify(data));
        screen.show('message', 'channel ' + channelId + ': ' + data);
        try {
            socket.sendData(channelId, 'echo ' + data);
        } catch (error) {
            log('no echo:', error.name);  // the link has just gone
        }
    });
    socket.setSocketStatusListener(function (reason) {
        log('connection ended:', reason);
        clearInterval(readings);
        screen.status('phone left (' + reason + ')', 'ended');
        connectionClosed = true;
        finishWhenDone();
    });
}

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    log('agent', agent.name, 'as', agent.role, 'on channels', agent.channelIds.join(', '));
    acceptFiles(agent);
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            log('connection requested by', peer.appName);
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            serve(socket, agent.channelIds[0]);
        },
        onerror: fail('connection failed:')
    });
    log('waiting for the phone');
}, fail('no agent:'));
