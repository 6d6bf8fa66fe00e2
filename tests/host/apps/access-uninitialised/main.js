// Access control, seen from an app whose access control could not be
// initialised (the device's policy file cannot be read): the guarded method
// throws an UnknownError.
var failures = 0;

function expect(condition, what) {
    if (!condition) {
        console.error('FAIL: ' + what);
        failures++;
    }
}

try {
    webapis.hosttest.guarded();
    expect(false, 'guarded() threw nothing');
} catch (e) {
    expect(e instanceof Error, 'the error is an Error');
    expect(e.name === 'UnknownError', 'name is ' + e.name);
    expect(e.code === 0, 'code is ' + e.code);
    expect(e.message === 'Internal error',
           'message is "' + e.message + '"');
}

if (failures > 0) {
    runtime.exit(1);
}
console.log('access not initialised');
runtime.exit(0);
