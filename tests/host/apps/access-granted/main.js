// Access control, seen from an app that declares the accessory privilege
// and that the user does not block: the guarded method runs.
var failures = 0;

function expect(condition, what) {
    if (!condition) {
        console.error('FAIL: ' + what);
        failures++;
    }
}

try {
    expect(webapis.hosttest.guarded() === true, 'guarded() answers true');
    expect(webapis.hosttest.guarded() === true, 'guarded() answers true again');
} catch (e) {
    expect(false, 'guarded() threw ' + e.name + ': ' + e.message);
}

if (failures > 0) {
    runtime.exit(1);
}
console.log('access granted');
runtime.exit(0);
