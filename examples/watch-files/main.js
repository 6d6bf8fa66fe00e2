// The watch side of the file sample: it offers a file drop service and
// decides, for each file the phone offers, what to do with it:
//   - the first notes.txt goes to a path of its choice, documents/phone-notes.txt;
//   - later ones go to the default folder, /opt/usr/media/Downloads/, which
//     never replaces a file: the second one there becomes "notes (1).txt";
//   - pictures (.svg, .png, .jpg) are refused;
//   - the second big.bin is cancelled when a quarter of it has arrived;
//   - anything else goes to the default folder.
// It ends when the phone closes its connection and no transfer is under way.
//
// Its page (index.html) is a round watch face: the last transfers, each with
// its name, a progress bar and its outcome (received, refused, cancelled or
// failed), a count of the outcomes, and a Cancel button while a file comes
// in. As it is, the watch decides by itself. With the argument --manual (the
// phone reads it too) it asks a person instead: each offer waits for Accept
// (the file goes where the rules above say) or Refuse, and nothing is
// cancelled but by Cancel. An offer that nobody answers fails after 30 s.
//
// Run it with its partner (see examples/phone-files/main.js for the big file):
//   ./kv pair-run examples/watch-files examples/phone-files
var manual = runtime.args.indexOf('--manual') >= 0;

var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};

// The screen, part by part.
var screen = {
    rows: {},     // transfer id to its row in the list
    counts: {},   // outcome to how many transfers ended with it
    state: function (text, kind) {
        var state = document.getElementById('state');
        state.textContent = text;
        state.className = 'state ' + kind;
    },
    banner: function (text) {
        var banner = document.getElementById('banner');
        banner.textContent = text || '';
        banner.hidden = !text;
        this.fit();
    },
    // A new row at the bottom of the list, for an offer.
    transfer: function (transferId, fileName) {
        var row = document.createElement('li');
        row.innerHTML = '<div class="row"><span class="name"></span><span class="outcome"></span></div>' +
            '<div class="bar"><div class="fill"></div></div>';
        row.querySelector('.name').textContent = fileName;
        this.rows[transferId] = row;
        document.getElementById('transfers').appendChild(row);
        this.fit();
        this.outcome(transferId, 'offered', '');
    },
    // The oldest rows go while the list is taller than its place on the
    // face, which shrinks when the buttons or the banner show.
    fit: function () {
        var list = document.getElementById('transfers');
        while (list.scrollHeight > list.clientHeight && list.children.length > 1) {
            list.removeChild(list.firstChild);
        }
    },
    progress: function (transferId, percent) {
        this.rows[transferId].querySelector('.fill').style.width = percent + '%';
        this.outcome(transferId, percent + ' %', '');
    },
    // What became of a transfer; `kind` ('received', 'refused', 'cancelled'
    // or 'failed') marks an end, which the summary counts.
    outcome: function (transferId, text, kind) {
        var row = this.rows[transferId];
        row.querySelector('.outcome').textContent = text;
        row.className = kind;
        if (kind) {
            this.counts[kind] = (this.counts[kind] || 0) + 1;
            this.summary();
        }
    },
    summary: function () {
        var counts = this.counts;
        document.getElementById('summary').textContent = Object.keys(counts).map(function (kind) {
            return counts[kind] + ' ' + kind;
        }).join(' \u00b7 ');
    },
    button: function (id, shown) {
        document.getElementById(id).hidden = !shown;
        this.fit();
    }
};

var transfer = null;      // the agent's KvFileTransfer
var offers = {};          // how many offers came, by file name
var underway = {};        // transfer id to file name, while a transfer runs
var toCancel = -1;        // the transfer to cancel at 25 %
var lastProgress = {};    // transfer id to the last progress shown
var progressNow = {};     // transfer id to its latest progress
var cancelledHere = {};   // transfer ids that this side cancelled
var asking = [];          // with --manual, the offers that wait for a person
var phoneName = null;     // the phone app's name, once connected
var phoneDone = false;

function isPicture(fileName) {
    return /\.(svg|png|jpe?g)$/i.test(fileName);
}

function finishWhenDone() {
    if (phoneDone && Object.keys(underway).length === 0) {
        screen.state('done: the phone has finished', 'ended');
        log('done');
        runtime.exit(0);
    }
}

// Brings the state and the buttons up to date: Accept and Refuse while an
// offer waits for a person, Cancel while a file comes in.
function refresh() {
    if (asking.length > 0) {
        screen.state(asking[0].fileName + ': take it?', 'asking');
    } else if (phoneDone) {
        screen.state('the phone has finished', 'ended');
    } else if (phoneName !== null) {
        screen.state('connected to ' + phoneName, 'connected');
    } else {
        screen.state('waiting for files', 'waiting');
    }
    screen.button('accept', asking.length > 0);
    screen.button('refuse', asking.length > 0);
    screen.button('cancel', Object.keys(underway).length > 0);
}

// Where an offered file goes: a path of the app's choice names the file
// itself (an existing file there is replaced); an empty destination means
// the default folder and the offered name.
function destinationFor(fileName) {
    if (fileName === 'notes.txt' && offers[fileName] === 1) {
        return 'documents/phone-notes.txt';
    }
    return '';
}

// Decides what to do with one offer. Answer it with receiveFile or
// rejectFile; an offer that is not answered fails after 30 s with
// PEER_NO_RESPONSE on both sides.
function decide(transferId, fileName) {
    offers[fileName] = (offers[fileName] || 0) + 1;
    screen.transfer(transferId, fileName);
    var destination = destinationFor(fileName);
    if (manual) {
        asking.push({ transferId: transferId, fileName: fileName, destination: destination });
        refresh();
        return;
    }
    if (isPicture(fileName)) {
        refuse(transferId, fileName, '(no pictures here)');
        return;
    }
    if (fileName === 'big.bin' && offers[fileName] === 2) {
        toCancel = transferId;
    }
    take(transferId, fileName, destination);
}

// Takes an offered file into `destination` (empty: the default folder).
function take(transferId, fileName, destination) {
    try {
        transfer.receiveFile(transferId, destination);
        underway[transferId] = fileName;
        log('taking', fileName, 'into', destination || transfer.defaultReceivePath,
            '(transfer ' + transferId + ')');
        screen.outcome(transferId, 'taking', '');
    } catch (error) {
        // InvalidValuesError "File path is not valid.": a path outside the
        // media folders and the app's own package. "transferId does not
        // exist.": the offer was withdrawn meanwhile.
        log('cannot take', fileName + ':', error.name, error.message);
        screen.outcome(transferId, 'failed', 'failed');
        screen.banner('cannot take ' + fileName + ': ' + error.name);
    }
    refresh();
}

// A refused file ends here: the phone hears PEER_REJECTED, this side
// nothing more.
function refuse(transferId, fileName, why) {
    log('refusing', fileName, why);
    try {
        transfer.rejectFile(transferId);
        screen.outcome(transferId, 'refused', 'refused');
    } catch (error) {
        log('cannot refuse', fileName + ':', error.name, error.message);
        screen.banner('cannot refuse ' + fileName + ': ' + error.name);
    }
    refresh();
}

// Cancels a file that is coming in; both sides then hear UNKNOWN_ERROR.
function cancel(transferId) {
    log('cancelling transfer', transferId, 'at', (progressNow[transferId] || 0) + ' %');
    cancelledHere[transferId] = true;
    try {
        transfer.cancelFile(transferId);
    } catch (error) {
        log('too late to cancel:', error.name, error.message);
        screen.banner('too late to cancel: ' + error.name);
    }
}

// The log tells the progress at every quarter, the bar all of it. Progress
// that was on its way before a cancel may still come: the bar stays where
// the cancel left it.
function showProgress(transferId, progress) {
    progressNow[transferId] = progress;
    var shown = lastProgress[transferId] === undefined ? -25 : lastProgress[transferId];
    if (progress >= shown + 25 || progress === 100) {
        lastProgress[transferId] = progress;
        log('transfer', transferId, 'at', progress + ' %');
    }
    if (!cancelledHere[transferId]) {
        screen.progress(transferId, progress);
    }
}

// The end of a transfer, either way: it no longer runs nor waits.
function ended(transferId) {
    delete underway[transferId];
    asking = asking.filter(function (offer) {
        return offer.transferId !== transferId;
    });
    refresh();
    finishWhenDone();
}

function listenForFiles() {
    // Set the receive listener before the phone can find the agent: an offer
    // that arrives while no receive listener is set is dropped, and can't
    // be answered any more.
    transfer.setFileReceiveListener({
        onreceive: function (transferId, fileName) {
            log('offered', fileName, '(transfer ' + transferId + ')');
            decide(transferId, fileName);
        },
        onprogress: function (transferId, progress) {
            showProgress(transferId, progress);
            if (transferId === toCancel && progress >= 25) {
                toCancel = -1;
                cancel(transferId);
            }
        },
        oncomplete: function (transferId, fileUri) {
            // The URI names the file where it landed ("notes (1).txt" in the
            // default folder when "notes.txt" is there already).
            log('received', fileUri);
            var landed = fileUri.split('/').pop();
            screen.progress(transferId, 100);
            screen.outcome(transferId, landed === underway[transferId] ? 'received' : 'received as ' + landed,
                           'received');
            ended(transferId);
        },
        onerror: function (transferId, code) {
            // UNKNOWN_ERROR: cancelled, by either side. PEER_CONN_LOST: the
            // phone or the link went. SPACE_NOT_AVAILABLE, FILE_IO: no room,
            // or the file can't be written.
            log('transfer', transferId, 'failed:', code);
            if (code === 'UNKNOWN_ERROR') {
                screen.outcome(transferId, cancelledHere[transferId] ? 'cancelled here' : 'cancelled by phone',
                               'cancelled');
            } else {
                screen.outcome(transferId, code, 'failed');
            }
            ended(transferId);
        }
    });
}

// The buttons, for a person: Accept and Refuse answer the oldest offer that
// waits, Cancel stops the newest file that comes in.
function listenForClicks() {
    document.getElementById('accept').addEventListener('click', function () {
        var offer = asking.shift();
        take(offer.transferId, offer.fileName, offer.destination);
    });
    document.getElementById('refuse').addEventListener('click', function () {
        var offer = asking.shift();
        refuse(offer.transferId, offer.fileName, '(as the person asked)');
    });
    document.getElementById('cancel').addEventListener('click', function () {
        var running = Object.keys(underway);
        cancel(Number(running[running.length - 1]));
    });
}

listenForClicks();

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    transfer = agent.getKvFileTransfer();
    listenForFiles();

    // Setting this listener registers the agent, so that the phone finds it.
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            log('connected to', socket.peerAgent.appName);
            phoneName = socket.peerAgent.appName;
            refresh();
            socket.setSocketStatusListener(function (reason) {
                log('connection ended:', reason);
                phoneDone = true;
                refresh();
                finishWhenDone();
            });
        },
        onerror: function (code) {
            log('connection failed:', code);
            screen.banner('connection failed: ' + code);
        }
    });
    log('waiting for files; without a path they go to', transfer.defaultReceivePath);
    refresh();
}, function (error) {
    console.error('watch: no agent:', error.name, error.message);
    screen.banner('no agent: ' + error.name);
    runtime.exit(1);
});
