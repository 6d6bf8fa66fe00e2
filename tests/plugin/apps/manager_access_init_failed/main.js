// Access control cannot be initialised (the device's policy.conf is a folder
// that cannot be read). The plug-in stays loaded and installed; every guarded
// call answers UnknownError "Internal error" before its arguments are read.
// At widget stop de-initialisation fails too, and the bridge is soft-reset
// all the same (expected-log.txt checks the log lines of both).
test.equal(typeof webapis.kv, "object", "webapis.kv");
test.throwsError(function () {
    webapis.kv.requestKvAgent(42);
}, "UnknownError", "Internal error", "requestKvAgent");
test.throwsError(function () {
    webapis.kv.setDeviceStatusListener(function () {});
}, "UnknownError", "Internal error", "setDeviceStatusListener");
test.pass();
