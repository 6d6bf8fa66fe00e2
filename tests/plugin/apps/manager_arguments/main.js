// Argument and object checks of the manager's methods, and the order of its
// answers: the callbacks never run inside the call that asked.
var kv = webapis.kv;

// The class map installs exactly webapis.kv (and the double's own object).
test.equal(Object.getOwnPropertyNames(webapis).sort().join(","), "kv,kvdouble", "webapis");

var mismatch = test.throwsError(function () {
    kv.requestKvAgent();
}, "TypeMismatchError", undefined, "requestKvAgent()");
test.ok(mismatch.message.length > 0, "the validator's message is given");
test.throwsError(function () {
    kv.requestKvAgent(7, function () {});
}, "TypeMismatchError", undefined, "requestKvAgent(7, f)");
test.throwsError(function () {
    kv.requestKvAgent(function () {}, 7);
}, "TypeMismatchError", undefined, "requestKvAgent(f, 7)");
test.throwsError(function () {
    kv.setDeviceStatusListener("x");
}, "TypeMismatchError", undefined, "setDeviceStatusListener('x')");

// `this` bound to a foreign object.
test.throwsError(function () {
    kv.requestKvAgent.call({}, function () {});
}, "TypeMismatchError", "Wrong object", "requestKvAgent on {}");
test.throwsError(function () {
    kv.setDeviceStatusListener.call(webapis.kvdouble, function () {});
}, "TypeMismatchError", "Wrong object", "setDeviceStatusListener on another class");

// Nothing was asked of the accessory service by the rejected calls.
test.equal(test.callsTo("getRegisteredServiceAgent").length, 0, "registrations");

// requestKvAgent(cb, null) is accepted and answers later.
var returned = false;
var result = kv.requestKvAgent(function (agents) {
    test.ok(returned, "the success callback ran after the call returned");
    test.equal(agents.length, 2, "agents");
    test.pass();
}, null);
test.equal(result, undefined, "requestKvAgent's value");
returned = true;
test.deadline(5000, "the agents");
