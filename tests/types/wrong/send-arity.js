// expect TS2554: sendData takes the channel id and the data.
webapis.kv.requestKvAgent(function (agents) {
    agents[0].setServiceConnectionListener({
        onconnect: function (socket) {
            socket.sendData('hello');
        }
    });
});
