// Access control, seen from an app that declares the accessory privilege
// while the user's policy blocks it for the app: the guarded method throws
// a SecurityError.
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
    expect(e.message === 'The user blocks an application from calling this method.',
           'message is "' + e.message + '"');
}

if (failures > 0) {
    runtime.exit(1);
}
console.log('access blocked by the user');
runtime.exit(0);
