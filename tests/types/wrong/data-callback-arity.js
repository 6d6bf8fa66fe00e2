// expect TS2339: the data callback gets the channel id first and the data second.
webapis.kv.requestKvAgent(function (agents) {
    agents[0].setServiceConnectionListener({
        onconnect: function (socket) {
            socket.setDataReceiveListener(function (data) {
                console.log(data.toUpperCase());
            });
        }
    });
});
