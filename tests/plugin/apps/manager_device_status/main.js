// The device status listener: set before any agent request, it already hears
// of device changes; set twice, only the second callback is called.
var heard = [];
webapis.kv.setDeviceStatusListener(function () {
    test.fail("the replaced listener was called");
});
webapis.kv.setDeviceStatusListener(function (transportType, status) {
    test.equal(arguments.length, 2, "arguments");
    heard.push(transportType + " " + status);
});
test.equal(heard.length, 0, "nothing heard while setting");

// The accessory service reports a Bluetooth device attached, then detached.
webapis.kvdouble.setConnected(1);
webapis.kvdouble.deliver("onDeviceStatus", 4, 1);
test.equal(heard.join(","), "TRANSPORT_BT ATTACHED", "after attach");
webapis.kvdouble.deliver("onDeviceStatus", 4, 0);
test.equal(heard.join(","), "TRANSPORT_BT ATTACHED,TRANSPORT_BT DETACHED", "after detach");
test.pass();
