// Access control, seen from an app that does not declare the accessory
// privilege: the guarded method throws a SecurityError.
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
    expect(e.name === 'SecurityError', 'name is ' + e.name);
    expect(e.code === 18, 'code is ' + e.code);
    expect(e.message === 'The application does not have the privilege to call this method.',
           'message is "' + e.message + '"');
}

if (failures > 0) {
    runtime.exit(1);
}
console.log('access denied');
runtime.exit(0);
