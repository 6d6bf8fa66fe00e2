// expect TS2367: the manager's error is a "ServiceNotAvailableError" or an "UnknownError".
webapis.kv.requestKvAgent(function (agents) {
    console.log(agents.length);
}, function (error) {
    if (error.name === 'ServiceNotAvailable') {
        runtime.exit(1);
    }
});
