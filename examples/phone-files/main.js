// The phone side of the file sample: it finds the watch's file drop service
// and sends it files one after the other, each when the one before has
// ended, showing the progress of each:
//   1. files/notes.txt   the watch takes it into a path of its own choice
//   2. files/photo.svg   the watch refuses it (it takes no pictures)
//   3. documents/big.bin the phone cancels it at 25 %
//   4. documents/big.bin the watch cancels it at 25 %
//   5. files/notes.txt   the watch takes it into its default folder
//   6. files/notes.txt   again: the default folder keeps the first one, so
//                        this one becomes "notes (1).txt"
// The files under files/ come with the app (the virtual root "wgt-package"
// is the app's own folder); documents/big.bin is a large file that you put
// on the phone yourself:
//   head -c 32M /dev/urandom >/tmp/big.bin
//   ./kv pair-run --phone-file /tmp/big.bin /opt/usr/media/Documents/big.bin \
//       examples/watch-files examples/phone-files
// Without it, steps 3 and 4 fail with FILE_IO, and the sample says so.
//
// Files need no connection. The phone connects all the same, and closes the
// connection after its last file: the close travels behind the file's data,
// so it tells the watch that nothing more will come.
//
// Its page (index.html) lists every transfer with its file, what the plan
// expects of it, a progress bar, its outcome (completed, cancelled, refused
// or failed) and a Cancel button while it runs. As it is, the app runs the
// plan by itself and ends. With the argument --manual (the watch reads it
// too, and asks a person about each offer) it sends what a person chooses:
// Send offers the chosen file, Done closes the connection and ends.
var manual = runtime.args.indexOf('--manual') >= 0;

var PLAN = [
    { file: 'wgt-package/files/notes.txt', what: 'for a path of the watch\'s choice' },
    { file: 'wgt-package/files/photo.svg', what: 'which the watch refuses' },
    { file: 'documents/big.bin', what: 'which the phone cancels at 25 %', cancelAt: 25 },
    { file: 'documents/big.bin', what: 'which the watch cancels at 25 %' },
    { file: 'wgt-package/files/notes.txt', what: 'for the default folder' },
    { file: 'wgt-package/files/notes.txt', what: 'for the default folder once more' }
];

var log = function () {
    console.log.apply(console, ['phone:'].concat(Array.prototype.slice.call(arguments)));
};

// The screen, part by part.
var screen = {
    rows: {},  // transfer id to its row in the list
    show: function (id, text) {
        document.getElementById(id).textContent = text;
    },
    connection: function (text) {
        this.show('connection', text);
    },
    // An empty text hides the banner; kind 'info' is a notice, not an error.
    banner: function (text, kind) {
        var banner = document.getElementById('banner');
        banner.textContent = text || '';
        banner.className = 'banner ' + (kind || '');
        banner.hidden = !text;
    },
    // A new row for a transfer, with a Cancel button that calls `onCancel`.
    transfer: function (transferId, fileName, what, onCancel) {
        var row = document.createElement('li');
        row.innerHTML = '<div class="row"><span class="name"></span><span class="outcome"></span>' +
            '<button>Cancel</button></div><p class="what"></p>' +
            '<div class="bar"><div class="fill"></div></div>';
        row.querySelector('.name').textContent = fileName;
        row.querySelector('.what').textContent = what;
        row.querySelector('button').addEventListener('click', onCancel);
        this.rows[transferId] = row;
        document.getElementById('transfers').appendChild(row);
        document.getElementById('no-transfers').hidden = true;
        this.outcome(transferId, 'offered', '');
    },
    progress: function (transferId, percent) {
        this.rows[transferId].querySelector('.fill').style.width = percent + '%';
        this.outcome(transferId, 'sending ' + percent + ' %', '');
    },
    // What became of a transfer; `kind` ('completed', 'cancelled', 'refused'
    // or 'failed') marks its end, and takes its Cancel button away.
    outcome: function (transferId, text, kind) {
        var row = this.rows[transferId];
        row.querySelector('.outcome').textContent = text;
        row.className = kind;
        row.querySelector('button').hidden = kind !== '';
    },
    enable: function (id, enabled) {
        var control = /** @type {HTMLButtonElement | HTMLSelectElement} */ (document.getElementById(id));
        control.disabled = !enabled;
    },
    // The file that a person chose to send.
    chosenFile: function () {
        var choice = /** @type {HTMLSelectElement} */ (document.getElementById('file-choice'));
        return choice.value;
    }
};

var agent = null;
var transfer = null;      // the agent's KvFileTransfer
var watch = null;         // the watch's peer agent, once connected
var socket = null;        // the connection to it
var step = -1;            // the step of PLAN under way
// Transfer id to what the phone knows of the transfer: its file, where to
// cancel it, its latest progress and the last one logged, whether this
// side cancelled it (and at which progress), whether any of it went, and
// whether it has ended.
var sending = {};

// Whether a file is on its way (offered, or going).
function running() {
    return Object.keys(sending).some(function (transferId) {
        return !sending[transferId].ended;
    });
}

// With --manual, Send needs the connection, and Done waits until no file
// is on its way.
function updateControls() {
    screen.enable('file-choice', manual && socket !== null);
    screen.enable('send', manual && socket !== null);
    screen.enable('done', manual && socket !== null && !running());
}

// Closes the connection after the last file, and ends.
function finishAll() {
    log('all files done; closing the connection');
    socket.close();
    socket = null;
    screen.connection('all files done; connection closed');
    updateControls();
    runtime.exit(0);
}

// Starts the next step of the plan, or ends after the last.
function next() {
    step++;
    if (step >= PLAN.length) {
        finishAll();
    }
    screen.connection('sending file ' + (step + 1) + ' of ' + PLAN.length + ' to ' + watch.appName);
    send(PLAN[step]);
}

// Offers one file to the watch; `planned` is a step of the plan, or a
// person's choice.
function send(planned) {
    var fileName = planned.file.split('/').pop();
    try {
        var transferId = transfer.sendFile(watch, planned.file);
        sending[transferId] = { file: planned.file, cancelAt: planned.cancelAt, progress: 0,
                                lastProgress: -1, cancelled: false, started: false, ended: false };
        log('sending', planned.file, planned.what, '(transfer ' + transferId + ')');
        screen.transfer(transferId, fileName, planned.what, function () {
            cancel(transferId);
        });
    } catch (error) {
        // InvalidValuesError "File scheme is not valid.": a path that the app
        // may not send from (outside the media folders and its own package).
        log('cannot send', planned.file + ':', error.name, error.message);
        screen.banner('cannot send ' + fileName + ': ' + error.name + ' ' + error.message, 'error');
        if (!manual) {
            next();
        }
    }
    updateControls();
}

// Cancels a file on its way; the sender then hears UNKNOWN_ERROR, the
// watch too. Progress that was on its way before the cancel may still
// come. A cancel that reaches the watch after the whole file did comes too
// late: both sides then hear that the file arrived.
function cancel(transferId) {
    var record = sending[transferId];
    record.cancelled = true;
    record.cancelledAt = record.progress;
    log('cancelling transfer', transferId, 'at', record.progress + ' %');
    try {
        transfer.cancelFile(transferId);
    } catch (error) {
        // InvalidValuesError "transferId does not exist.": the
        // transfer has ended already.
        log('too late to cancel:', error.name, error.message);
    }
}

// The log tells the progress at every quarter, the bar all of it until a
// cancel.
function showProgress(transferId, progress) {
    var record = sending[transferId];
    record.progress = progress;
    record.started = true;
    // The progress comes in percent, as often as the service says.
    if (progress >= record.lastProgress + 25 || progress === 100) {
        record.lastProgress = progress;
        log('transfer', transferId, 'at', progress + ' %');
    }
    if (!record.cancelled) {
        screen.progress(transferId, progress);
    }
}

// How a transfer that failed is shown. The phone hears PEER_REJECTED both
// for a refused offer and for a file that the watch cancelled: a file of
// which some went was cancelled.
function showFailure(transferId, code) {
    var record = sending[transferId];
    if (code === 'UNKNOWN_ERROR' && record.cancelled) {
        screen.outcome(transferId, 'cancelled at ' + record.cancelledAt + ' %', 'cancelled');
    } else if (code === 'PEER_REJECTED' && record.started) {
        screen.outcome(transferId, 'cancelled by the watch', 'cancelled');
    } else if (code === 'PEER_REJECTED') {
        screen.outcome(transferId, 'refused', 'refused');
    } else {
        screen.outcome(transferId, 'failed: ' + code, 'failed');
    }
}

// After a transfer has ended: the plan goes on, or a person may send more.
function transferEnded(transferId) {
    sending[transferId].ended = true;
    if (manual) {
        updateControls();
    } else {
        next();
    }
}

function listenForTransfers() {
    transfer.setFileSendListener({
        onprogress: function (transferId, progress) {
            showProgress(transferId, progress);
            var record = sending[transferId];
            if (record.cancelAt !== undefined && progress >= record.cancelAt && !record.cancelled) {
                cancel(transferId);
            }
        },
        oncomplete: function (transferId, fileUri) {
            var late = sending[transferId].cancelled;
            if (late) {
                log('transfer', transferId, 'complete:', fileUri, '(the cancel came too late)');
            } else {
                log('transfer', transferId, 'complete:', fileUri);
            }
            screen.progress(transferId, 100);
            screen.outcome(transferId, late ? 'completed before the cancel' : 'completed', 'completed');
            transferEnded(transferId);
        },
        onerror: function (transferId, code) {
            // PEER_REJECTED: the watch refused the file, or cancelled it.
            // UNKNOWN_ERROR: this side cancelled it. FILE_IO: the file can't
            // be read. PEER_CONN_LOST: the watch or the link went.
            log('transfer', transferId, 'failed:', code);
            if (code === 'FILE_IO' && sending[transferId].file === 'documents/big.bin') {
                log('(put a large file at /opt/usr/media/Documents/big.bin with',
                    '"./kv pair-run --phone-file" to see the cancels)');
                screen.banner('no big.bin on the phone: put one at /opt/usr/media/Documents/big.bin ' +
                              'with "./kv pair-run --phone-file" to see the cancels', 'info');
            }
            showFailure(transferId, code);
            transferEnded(transferId);
        }
    });
}

// Connected: the plan starts, or the controls wait for a person.
function sendFiles(peer, connected) {
    watch = peer;
    socket = connected;
    transfer = agent.getKvFileTransfer();
    listenForTransfers();
    if (manual) {
        screen.connection('connected to ' + peer.appName + ': choose a file to send');
        updateControls();
    } else {
        next();
    }
}

// The buttons, for a person (with --manual).
function listenForClicks() {
    document.getElementById('send').addEventListener('click', function () {
        send({ file: screen.chosenFile(), what: 'chosen by hand' });
    });
    document.getElementById('done').addEventListener('click', finishAll);
}

if (manual) {
    screen.show('send-hint', 'Done closes the connection; the watch then ends too.');
}
listenForClicks();

webapis.kv.requestKvAgent(function (agents) {
    agent = agents[0];
    var asked = false;

    function connect(peer) {
        if (!asked) {
            asked = true;
            log('found', peer.appName, 'on', peer.peerAccessory.deviceName);
            screen.connection('found ' + peer.appName + ' on ' + peer.peerAccessory.deviceName);
            screen.banner('');
            agent.requestServiceConnection(peer);
        }
    }

    agent.setServiceConnectionListener({
        onconnect: function (connected) {
            log('connected to', connected.peerAgent.appName);
            screen.connection('connected to ' + connected.peerAgent.appName);
            sendFiles(connected.peerAgent, connected);
        },
        onerror: function (code) {
            console.error('phone: connection failed:', code);
            screen.banner('connection failed: ' + code, 'error');
            runtime.exit(1);
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: connect,
        onpeeragentupdated: function (peer, peerStatus) {
            if (peerStatus === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function (code) {
            log('no watch yet (' + code + '), waiting for it');
            screen.banner('no watch yet (' + code + '), waiting for it', 'info');
        }
    });
    agent.findPeerAgents();
}, function (error) {
    console.error('phone: no agent:', error.name, error.message);
    screen.banner('no agent: ' + error.name + ' ' + error.message, 'error');
    runtime.exit(1);
});
