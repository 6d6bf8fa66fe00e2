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

var agent = null;
var transfer = null;      // the agent's KvFileTransfer
var step = -1;            // the step of PLAN under way
var current = -1;         // its transfer id
var lastProgress = -1;
var cancelled = false;

// Starts the next step of the plan, or ends after the last.
function next(watch, socket) {
    step++;
    cancelled = false;
    lastProgress = -1;
    if (step >= PLAN.length) {
        log('all files done; closing the connection');
        socket.close();
        runtime.exit(0);
    }
    var planned = PLAN[step];
    try {
        current = transfer.sendFile(watch, planned.file);
        log('sending', planned.file, planned.what, '(transfer ' + current + ')');
    } catch (error) {
        // InvalidValuesError "File scheme is not valid.": a path that the app
        // may not send from (outside the media folders and its own package).
        log('cannot send', planned.file + ':', error.name, error.message);
        next(watch, socket);
    }
}

function sendFiles(watch, socket) {
    transfer = agent.getKvFileTransfer();
    transfer.setFileSendListener({
        onprogress: function (transferId, progress) {
            // The progress comes in percent, as often as the service says.
            if (progress >= lastProgress + 25 || progress === 100) {
                lastProgress = progress;
                log('transfer', transferId, 'at', progress + ' %');
            }
            var planned = PLAN[step];
            if (planned.cancelAt !== undefined && progress >= planned.cancelAt && !cancelled) {
                cancelled = true;
                log('cancelling transfer', transferId, 'at', progress + ' %');
                try {
                    this.cancelFile(transferId);
                } catch (error) {
                    // InvalidValuesError "transferId does not exist.": the
                    // transfer has ended already.
                    log('too late to cancel:', error.name, error.message);
                }
            }
        },
        oncomplete: function (transferId, fileUri) {
            log('transfer', transferId, 'complete:', fileUri);
            next(watch, socket);
        },
        onerror: function (transferId, code) {
            // PEER_REJECTED: the watch refused the file, or cancelled it.
            // UNKNOWN_ERROR: this side cancelled it. FILE_IO: the file can't
            // be read. PEER_CONN_LOST: the watch or the link went.
            log('transfer', transferId, 'failed:', code);
            if (code === 'FILE_IO' && PLAN[step].file === 'documents/big.bin') {
                log('(put a large file at /opt/usr/media/Documents/big.bin with',
                    '"./kv pair-run --phone-file" to see the cancels)');
            }
            next(watch, socket);
        }
    });
    next(watch, socket);
}

webapis.kv.requestKvAgent(function (agents) {
    agent = agents[0];
    var asked = false;

    function connect(watch) {
        if (!asked) {
            asked = true;
            log('found', watch.appName, 'on', watch.peerAccessory.deviceName);
            agent.requestServiceConnection(watch);
        }
    }

    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            log('connected to', socket.peerAgent.appName);
            sendFiles(socket.peerAgent, socket);
        },
        onerror: function (code) {
            console.error('phone: connection failed:', code);
            runtime.exit(1);
        }
    });
    agent.setPeerAgentFindListener({
        onpeeragentfound: connect,
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                connect(peer);
            }
        },
        onerror: function (code) {
            log('no watch yet (' + code + '), waiting for it');
        }
    });
    agent.findPeerAgents();
}, function (error) {
    console.error('phone: no agent:', error.name, error.message);
    runtime.exit(1);
});
