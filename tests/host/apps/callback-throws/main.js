// A device status listener that throws, called by the kv plug-in when the
// client library double reports a device attached: the host reports the
// exception as uncaught and ends the app with exit code 1, whatever the
// rest of the script asks for.
webapis.kv.setDeviceStatusListener(function (transportType, status) {
    throw new TypeError('listener threw on ' + transportType + ' ' + status);
});
webapis.kvdouble.setConnected(1);
webapis.kvdouble.deliver('onDeviceStatus', 4, 1);
runtime.exit(0);
