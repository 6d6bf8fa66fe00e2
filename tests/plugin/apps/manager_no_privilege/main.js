// An app that does not declare the accessory privilege: both guarded methods
// answer SecurityError before looking at their arguments, and nothing reaches
// the accessory service.
var DENIED = "The application does not have the privilege to call this method.";

test.throwsError(function () {
    webapis.kv.requestKvAgent(5);
}, "SecurityError", DENIED, "requestKvAgent with a bad argument");
test.throwsError(function () {
    webapis.kv.requestKvAgent(function () {
        test.fail("success callback called");
    });
}, "SecurityError", DENIED, "requestKvAgent");
test.throwsError(function () {
    webapis.kv.setDeviceStatusListener();
}, "SecurityError", DENIED, "setDeviceStatusListener without argument");
test.throwsError(function () {
    webapis.kv.setDeviceStatusListener(function () {});
}, "SecurityError", DENIED, "setDeviceStatusListener");

// Nothing was posted: the bridge was never made, so the library was not
// even told of the notification tables.
setTimeout(function () {
    test.equal(webapis.kvdouble.notificationsRegistered(), false, "tables registered");
    test.equal(webapis.kvdouble.calls().length, 0, "library calls");
    test.pass();
}, 50);
