// Connects to the watch again and again (runtime.args[0] times, 100 by
// default). On each connection both sides send their first message from inside
// onconnect; the phone waits for the watch's first message and for the
// acknowledgement of its own, then closes and, once the close is confirmed,
// connects again. A first message that does not arrive within 5 seconds is
// counted as lost. At the end it prints the counts and exits 0 only when
// nothing was lost and every connection was made.
var trials = Number(runtime.args[0] || 100);
var lostWatchFirst = 0;
var lostPhoneFirst = 0;
var done = 0;
var started = false;

function report() {
    console.log('phone: trials', done, 'lost watch-first', lostWatchFirst, 'lost phone-first',
                lostPhoneFirst);
    runtime.exit(lostWatchFirst + lostPhoneFirst === 0 ? 0 : 1);
}

function exchange(socket, next) {
    var trial = done;
    var gotFirst = false;
    var gotAck = false;
    var finish = function () {
        clearTimeout(timer);
        socket.setSocketStatusListener(function () {
            done++;
            next();
        });
        socket.close();
    };
    var timer = setTimeout(function () {
        lostWatchFirst += gotFirst ? 0 : 1;
        lostPhoneFirst += gotAck ? 0 : 1;
        console.log('phone: trial', trial, 'lost', gotFirst ? '' : 'watch-first',
                    gotAck ? '' : 'phone-first');
        finish();
    }, 5000);
    socket.setDataReceiveListener(function (channelId, data) {
        gotFirst = gotFirst || data === 'watch: first';
        gotAck = gotAck || data === 'ack phone: ' + trial;
        if (gotFirst && gotAck) {
            finish();
        }
    });
    socket.sendData(104, 'phone: ' + trial);
}

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    var watch = null;
    var next = function () {
        if (done === trials) {
            report();
        }
        agent.requestServiceConnection(watch);
    };
    var start = function (peer) {
        if (!started) {
            started = true;
            watch = peer;
            next();
        }
    };
    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            exchange(socket, next);
        },
        onerror: function (code) {
            console.error('phone: connection error', code, 'at trial', done);
            runtime.exit(2);
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: start,
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                start(peer);
            }
        },
        onerror: function (code) {
            console.log('phone: no watch yet (' + code + '), waiting for it');
        }
    });
    agent.findPeerAgents();
}, function (error) {
    console.error('phone:', error.name, error.message);
    runtime.exit(1);
});
