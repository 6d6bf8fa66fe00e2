// The KvFileTransfer script object: its listeners and their attribute checks;
// a file offered, received with progress and completed; offers received
// into a path, received twice, rejected, or offered before any listener was
// there; transfers cancelled; a file sent with progress, completion and a
// failure; and the errors of each method.
var kvdouble = webapis.kvdouble;
var AGENT_ID = 7;
var PEER = {
    peerAgentId: 11,
    accessoryId: 1,
    peerId: "peer-1",
    appName: "Peer app",
    profileId: "/kvtest/hello",
    profileVersion: "2.0",
    deviceName: "Watch",
};
var DOWNLOADS = "/opt/usr/media/Downloads/";
var METHODS = ["sendFile", "setFileSendListener", "setFileReceiveListener", "receiveFile",
    "cancelFile", "rejectFile"];

var agent, peer, fileTransfer;

// Runs `step` once the main loop has had time for idle callbacks.
function later(step) {
    setTimeout(step, 30);
}

// A listener object whose callbacks record their calls in `log` as
// "name(arguments as JSON)", and check that `this` is the file transfer.
function recorder(names) {
    var log = [];
    var listener = {};
    names.forEach(function (name) {
        listener[name] = function () {
            test.ok(this === fileTransfer, name + ": the file transfer is `this`");
            log.push(name + JSON.stringify(Array.prototype.slice.call(arguments)));
        };
    });
    return { listener: listener, log: log };
}

function transferIdUnknown(body, what) {
    test.throwsError(body, "InvalidValuesError", "transferId does not exist.", what);
}

var receive = recorder(["onreceive", "onprogress", "oncomplete", "onerror"]);
var send = recorder(["onprogress", "oncomplete", "onerror"]);

test.deadline(15000, "the file transfer test");
test.steps([
    function findThePeer(next) {
        test.findPeer(AGENT_ID, PEER, function (foundAgent, foundPeer) {
            agent = foundAgent;
            peer = foundPeer;
            next();
        });
    },

    function properties(next) {
        fileTransfer = agent.getKvFileTransfer();
        test.equal(fileTransfer.defaultReceivePath, DOWNLOADS, "defaultReceivePath");
        fileTransfer.defaultReceivePath = "/tmp/";
        test.equal(fileTransfer.defaultReceivePath, DOWNLOADS, "defaultReceivePath is read-only");
        next();
    },

    function foreignThis(next) {
        var before = kvdouble.calls().length;
        [{}, agent, peer, webapis.kv].forEach(function (self) {
            METHODS.forEach(function (method) {
                test.throwsError(
                    function () {
                        fileTransfer[method].call(self, peer, "file:///opt/usr/media/a.txt");
                    },
                    "TypeMismatchError",
                    "Wrong object",
                    method + " on a foreign object"
                );
            });
        });
        test.equal(kvdouble.calls().length, before, "nothing reached the service");
        next();
    },

    function listenerAttributes(next) {
        var receiveCases = [
            [undefined, "1st argument is not an object"],
            [7, "1st argument is not an object"],
            [{}, "None of the attribute exists in 1st argument"],
            [{ onreceive: null, onsomething: function () {} },
                "None of the attribute exists in 1st argument"],
            [{ onreceive: 5 }, "'onreceive' attribute is not a function"],
            [{ onreceive: function () {}, onprogress: "x" },
                "'onprogress' attribute is not a function"],
            [{ oncomplete: {} }, "'oncomplete' attribute is not a function"],
            [{ onerror: 1 }, "'onerror' attribute is not a function"],
        ];
        receiveCases.forEach(function (entry) {
            test.throwsError(
                function () {
                    fileTransfer.setFileReceiveListener(entry[0]);
                },
                "TypeMismatchError",
                entry[1],
                "setFileReceiveListener(" + JSON.stringify(entry[0]) + ")"
            );
        });
        var sendCases = [
            ["listener", "1st argument is not an object"],
            [{ onreceive: function () {} }, "None of the attribute exists in 1st argument"],
            [{ onprogress: 3 }, "'onprogress' attribute is not a function"],
            [{ oncomplete: true }, "'oncomplete' attribute is not a function"],
            [{ onprogress: function () {}, onerror: [] }, "'onerror' attribute is not a function"],
        ];
        sendCases.forEach(function (entry) {
            test.throwsError(
                function () {
                    fileTransfer.setFileSendListener(entry[0]);
                },
                "TypeMismatchError",
                entry[1],
                "setFileSendListener(" + JSON.stringify(entry[0]) + ")"
            );
        });
        next();
    },

    function offerBeforeAnyListener(next) {
        kvdouble.deliver("onSendFile", 41, "early.txt", AGENT_ID);
        transferIdUnknown(function () {
            fileTransfer.receiveFile(41, "");
        }, "receiving an offer that nobody heard of");
        test.equal(test.callsTo("receiveFile").length, 0, "the service is not asked");
        next();
    },

    function offerReceivedWithProgress(next) {
        fileTransfer.setFileReceiveListener(receive.listener);
        kvdouble.deliver("onSendFile", 42, "photo.jpg", AGENT_ID);
        test.equal(JSON.stringify(receive.log), '["onreceive[42,\\"photo.jpg\\"]"]', "the offer");
        test.equal(fileTransfer.receiveFile(42, ""), undefined, "receiveFile answers nothing");
        var receives = test.callsTo("receiveFile");
        test.equal(JSON.stringify(receives[0].args), '["42","' + DOWNLOADS + 'photo.jpg","1"]',
            "received into the default folder");
        kvdouble.deliver("onFileProgress", 42, 50);
        kvdouble.deliver("onFileProgress", 42, 100);
        kvdouble.deliver("onReceiveComplete", 42, DOWNLOADS + "photo.jpg", 0);
        test.equal(receive.log.slice(1).join(" "),
            'onprogress[42,50] onprogress[42,100] oncomplete[42,"file://' + DOWNLOADS +
                'photo.jpg"]', "progress, then completion");
        transferIdUnknown(function () {
            fileTransfer.receiveFile(42, "");
        }, "receiving a completed transfer");
        next();
    },

    function receiveIntoAPath(next) {
        receive.log.length = 0;
        kvdouble.deliver("onSendFile", 43, "song.mp3", AGENT_ID);
        fileTransfer.receiveFile(43, "file:///opt/usr/media/Music/mine.mp3");
        var receives = test.callsTo("receiveFile");
        test.equal(receives[receives.length - 1].args[1], "/opt/usr/media/Music/mine.mp3",
            "the path names the file itself");
        kvdouble.deliver("onReceiveComplete", 43, "file:///opt/usr/media/Music/mine.mp3", 0);
        test.equal(receive.log[1], 'oncomplete[43,"file:///opt/usr/media/Music/mine.mp3"]',
            "a completion URI is passed on unchanged");
        next();
    },

    function receiveIntoAnInvalidPath(next) {
        kvdouble.deliver("onSendFile", 44, "bad.txt", AGENT_ID);
        var before = test.callsTo("receiveFile").length;
        test.throwsError(
            function () {
                fileTransfer.receiveFile(44, "http://example.org/bad.txt");
            },
            "InvalidValuesError",
            "File path is not valid.",
            "receiving into a path that is no file URI"
        );
        transferIdUnknown(function () {
            fileTransfer.receiveFile(44, "");
        }, "receiving the same offer twice");
        test.equal(test.callsTo("receiveFile").length, before, "the service is not asked");
        next();
    },

    function receiveFailures(next) {
        receive.log.length = 0;
        kvdouble.deliver("onSendFile", 45, "big.iso", AGENT_ID);
        kvdouble.queueResult("receiveFile", -1);
        test.throwsError(
            function () {
                fileTransfer.receiveFile(45, "");
            },
            "UnknownError",
            "Internal error",
            "a receive that the service refuses"
        );
        kvdouble.deliver("onSendFile", 46, "full.iso", AGENT_ID);
        fileTransfer.receiveFile(46, "");
        kvdouble.deliver("onReceiveComplete", 46, DOWNLOADS + "full.iso", 11);
        test.equal(receive.log.join(" "),
            'onreceive[45,"big.iso"] onreceive[46,"full.iso"] onerror[46,"SPACE_NOT_AVAILABLE"]',
            "a failed transfer");
        next();
    },

    function rejectAnOffer(next) {
        kvdouble.deliver("onSendFile", 47, "unwanted.txt", AGENT_ID);
        fileTransfer.rejectFile(47);
        var receives = test.callsTo("receiveFile");
        test.equal(JSON.stringify(receives[receives.length - 1].args), '["47","","0"]',
            "refused through the service");
        transferIdUnknown(function () {
            fileTransfer.rejectFile(47);
        }, "rejecting an answered offer");
        transferIdUnknown(function () {
            fileTransfer.rejectFile(99);
        }, "rejecting an unknown offer");
        next();
    },

    function cancelTransfers(next) {
        transferIdUnknown(function () {
            fileTransfer.cancelFile(99);
        }, "cancelling an unknown transfer");
        test.equal(test.callsTo("cancelFile").length, 0, "the service is not asked");
        kvdouble.deliver("onSendFile", 48, "long.mov", AGENT_ID);
        fileTransfer.receiveFile(48, "");
        fileTransfer.cancelFile(48);
        test.equal(JSON.stringify(test.callsTo("cancelFile")[0].args), '["48"]', "cancelled");
        kvdouble.queueResult("cancelFile", -1);
        test.throwsError(
            function () {
                fileTransfer.cancelFile(48);
            },
            "UnknownError",
            "Internal error",
            "a cancel that the service refuses"
        );
        next();
    },

    function sendArguments(next) {
        var before = test.callsTo("pushFile").length;
        [undefined, 5, {}, agent].forEach(function (value) {
            test.throwsError(
                function () {
                    fileTransfer.sendFile(value, "file:///opt/usr/media/doc.txt");
                },
                "TypeMismatchError",
                "1st argument must be PeerAgent",
                "sendFile to " + String(value)
            );
        });
        ["http://example.org/doc.txt", "doc.txt", ""].forEach(function (uri) {
            test.throwsError(
                function () {
                    fileTransfer.sendFile(peer, uri);
                },
                "InvalidValuesError",
                "File scheme is not valid.",
                "sendFile of " + JSON.stringify(uri)
            );
        });
        test.equal(test.callsTo("pushFile").length, before, "the service is not asked");
        next();
    },

    function sendAFile(next) {
        receive.log.length = 0;
        fileTransfer.setFileSendListener(send.listener);
        kvdouble.queueResult("pushFile", 61);
        var transferId = fileTransfer.sendFile(peer, "file:///opt/usr/media/doc.txt");
        test.equal(transferId, 61, "sendFile answers the transfer id");
        var pushes = test.callsTo("pushFile");
        test.equal(pushes[0].args[0], "/opt/usr/media/doc.txt", "the path sent");
        test.equal(pushes[0].args[2], String(AGENT_ID), "for the agent");
        kvdouble.deliver("onFileProgress", 61, 30);
        kvdouble.deliver("onSendComplete", 61, "/opt/usr/media/doc.txt", 0);
        kvdouble.queueResult("pushFile", 62);
        test.equal(fileTransfer.sendFile(peer, "file:///opt/usr/media/doc2.txt"), 62, "second id");
        kvdouble.deliver("onSendComplete", 62, "/opt/usr/media/doc2.txt", 9);
        test.equal(send.log.join(" "),
            'onprogress[61,30] oncomplete[61,"file:///opt/usr/media/doc.txt"] ' +
                'onerror[62,"PEER_REJECTED"]', "progress, completion, failure");
        test.equal(receive.log.length, 0, "the receive listener heard nothing of it");
        next();
    },
]);
