// expect TS2367: a receiver never hears PEER_BUSY; that code is a sender's.
webapis.kv.requestKvAgent(function (agents) {
    agents[0].getKvFileTransfer().setFileReceiveListener({
        onerror: function (transferId, code) {
            if (code === 'PEER_BUSY') {
                console.log('busy', transferId);
            }
        }
    });
});
