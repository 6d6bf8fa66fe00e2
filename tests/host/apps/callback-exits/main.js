// A device status listener that ends the app with runtime.exit(5), as an
// app does when it has what it waited for: an exit, not an error.
webapis.kv.setDeviceStatusListener(function (transportType, status) {
    console.log('device', status);
    runtime.exit(5);
});
webapis.kvdouble.setConnected(1);
webapis.kvdouble.deliver('onDeviceStatus', 4, 1);
