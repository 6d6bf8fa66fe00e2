// The app's service profile is gone (removed after the install checked it):
// the request answers ServiceNotAvailableError; the next request reads the
// profile again and, once it exists, succeeds.
var PROFILE = "/opt/usr/apps/kvempty/res/wgt/res/xml/accessoryservices.xml";
var CONTENT =
    '<?xml version="1.0" encoding="UTF-8"?>\n' +
    '<resources><application name="KvTest">\n' +
    '  <serviceProfile id="/kvtest/late" name="Late" role="provider" serviceLimit="any"\n' +
    '                  serviceTimeout="10">\n' +
    '    <supportedTransports><transport type="transport_bt"/></supportedTransports>\n' +
    '    <serviceChannel id="110" dataRate="low" priority="low" reliability="enable"/>\n' +
    '  </serviceProfile>\n' +
    '</application></resources>\n';

test.deadline(5000, "the answers");
test.steps([
    function (next) {
        webapis.kvdouble.removeFile(PROFILE);
        next();
    },
    function (next) {
        webapis.kv.requestKvAgent(function () {
            test.fail("success without a profile");
        }, function (error) {
            test.equal(error.name, "ServiceNotAvailableError", "error name");
            test.equal(error.message, "Failed to register KvAgent.", "error message");
            next();
        });
    },
    function (next) {
        webapis.kv.requestKvAgent(function () {
            test.fail("success without a profile, again");
        }, function (error) {
            test.equal(error.name, "ServiceNotAvailableError", "second error name");
            next();
        });
    },
    function (next) {
        webapis.kvdouble.writeFile(PROFILE, CONTENT);
        webapis.kv.requestKvAgent(function (agents) {
            test.equal(agents.length, 1, "agents once the profile exists");
            test.equal(agents[0].id, "/kvtest/late", "agent id");
            next();
        }, function (error) {
            test.fail("error with a profile: " + error.name + ": " + error.message);
        });
    },
]);
