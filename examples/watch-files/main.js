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
// Run it with its partner (see examples/phone-files/main.js for the big file):
//   ./kv pair-run examples/watch-files examples/phone-files
var log = function () {
    console.log.apply(console, ['watch:'].concat(Array.prototype.slice.call(arguments)));
};

var offers = {};          // how many offers came, by file name
var underway = {};        // transfer id to file name, while a transfer runs
var toCancel = -1;        // the transfer to cancel at 25 %
var lastProgress = {};    // transfer id to the last progress shown
var phoneDone = false;

function isPicture(fileName) {
    return /\.(svg|png|jpe?g)$/i.test(fileName);
}

function finishWhenDone() {
    if (phoneDone && Object.keys(underway).length === 0) {
        log('done');
        runtime.exit(0);
    }
}

// Decides what to do with one offer. Answer it with receiveFile or
// rejectFile; an offer that is not answered fails after 30 s with
// PEER_NO_RESPONSE on both sides.
function decide(transfer, transferId, fileName) {
    offers[fileName] = (offers[fileName] || 0) + 1;
    var destination = '';
    if (isPicture(fileName)) {
        log('refusing', fileName, '(no pictures here)');
        transfer.rejectFile(transferId);
        return;
    }
    if (fileName === 'notes.txt' && offers[fileName] === 1) {
        // A path of the app's choice names the file itself; an existing
        // file there is replaced.
        destination = 'documents/phone-notes.txt';
    }
    if (fileName === 'big.bin' && offers[fileName] === 2) {
        toCancel = transferId;
    }
    try {
        // An empty destination means the default folder and the offered name.
        transfer.receiveFile(transferId, destination);
        underway[transferId] = fileName;
        log('taking', fileName, 'into', destination || transfer.defaultReceivePath,
            '(transfer ' + transferId + ')');
    } catch (error) {
        // InvalidValuesError "File path is not valid.": a path outside the
        // media folders and the app's own package. "transferId does not
        // exist.": the offer was withdrawn meanwhile.
        log('cannot take', fileName + ':', error.name, error.message);
    }
}

webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    var transfer = agent.getKvFileTransfer();

    // Set the receive listener before the phone can find the agent: an offer
    // that arrives while no receive listener is set is dropped, and can't
    // be answered any more.
    transfer.setFileReceiveListener({
        onreceive: function (transferId, fileName) {
            log('offered', fileName, '(transfer ' + transferId + ')');
            decide(this, transferId, fileName);
        },
        onprogress: function (transferId, progress) {
            var shown = lastProgress[transferId] === undefined ? -25 : lastProgress[transferId];
            if (progress >= shown + 25 || progress === 100) {
                lastProgress[transferId] = progress;
                log('transfer', transferId, 'at', progress + ' %');
            }
            if (transferId === toCancel && progress >= 25) {
                toCancel = -1;
                log('cancelling transfer', transferId, 'at', progress + ' %');
                try {
                    this.cancelFile(transferId);
                } catch (error) {
                    log('too late to cancel:', error.name, error.message);
                }
            }
        },
        oncomplete: function (transferId, fileUri) {
            // The URI names the file where it landed ("notes (1).txt" in the
            // default folder when "notes.txt" is there already).
            log('received', fileUri);
            delete underway[transferId];
            finishWhenDone();
        },
        onerror: function (transferId, code) {
            // UNKNOWN_ERROR: cancelled, by either side. PEER_CONN_LOST: the
            // phone or the link went. SPACE_NOT_AVAILABLE, FILE_IO: no room,
            // or the file can't be written.
            log('transfer', transferId, 'failed:', code);
            delete underway[transferId];
            finishWhenDone();
        }
    });

    // Setting this listener registers the agent, so that the phone finds it.
    agent.setServiceConnectionListener({
        onrequest: function (peer) {
            agent.acceptServiceConnectionRequest(peer);
        },
        onconnect: function (socket) {
            log('connected to', socket.peerAgent.appName);
            socket.setSocketStatusListener(function (reason) {
                log('connection ended:', reason);
                phoneDone = true;
                finishWhenDone();
            });
        },
        onerror: function (code) {
            log('connection failed:', code);
        }
    });
    log('waiting for files; without a path they go to', transfer.defaultReceivePath);
}, function (error) {
    console.error('watch: no agent:', error.name, error.message);
    runtime.exit(1);
});
