// The user blocked the accessory privilege of this app (device/policy.conf):
// both guarded methods answer SecurityError before their arguments are read.
var BLOCKED = "The user blocks an application from calling this method.";

test.throwsError(function () {
    webapis.kv.requestKvAgent("not a function");
}, "SecurityError", BLOCKED, "requestKvAgent with a bad argument");
test.throwsError(function () {
    webapis.kv.requestKvAgent(function () {
        test.fail("success callback called");
    }, null);
}, "SecurityError", BLOCKED, "requestKvAgent");
test.throwsError(function () {
    webapis.kv.setDeviceStatusListener({});
}, "SecurityError", BLOCKED, "setDeviceStatusListener");

setTimeout(function () {
    test.equal(webapis.kvdouble.calls().length, 0, "library calls");
    test.pass();
}, 50);
