// The error objects of the device APIs, seen from an app:
// webapis.hosttest.makeError(name, message) returns the platform's
// WebAPIError for a name and a message.
var t = webapis.hosttest;
var failures = 0;

function expect(condition, what) {
    if (!condition) {
        console.error('FAIL: ' + what);
        failures++;
    }
}

// Checks one error object against its expected name, message and code.
function expectError(e, name, message, code) {
    var what = name + ' "' + message + '"';
    expect(e instanceof Error, what + ': not an Error');
    expect(e.name === name, what + ': name is ' + e.name);
    expect(e.message === message, what + ': message is "' + e.message + '"');
    expect(e.code === code, what + ': code is ' + e.code);
    var text = message === '' ? name : name + ': ' + message;
    expect(e.toString() === text, what + ': toString gives "' + e.toString() + '"');
    expect(String(e) === text, what + ': String() gives "' + String(e) + '"');
}

// The names with a legacy code, and custom names, which have code 0.
expectError(t.makeError('TypeMismatchError', 'wrong type'), 'TypeMismatchError', 'wrong type', 17);
expectError(t.makeError('SecurityError', 'not allowed'), 'SecurityError', 'not allowed', 18);
expectError(t.makeError('NotFoundError', 'no such thing'), 'NotFoundError', 'no such thing', 8);
expectError(t.makeError('ServiceNotAvailableError', 'no agent'), 'ServiceNotAvailableError',
            'no agent', 0);
expectError(t.makeError('TokenNotGeneratedError', 'no token'), 'TokenNotGeneratedError',
            'no token', 0);
expectError(t.makeError('UnknownError', 'Internal error'), 'UnknownError', 'Internal error', 0);

// The message is optional; toString then gives the name alone.
expectError(t.makeError('NotFoundError'), 'NotFoundError', '', 8);
expectError(t.makeError('InvalidValuesError', null), 'InvalidValuesError', '', 0);

// The properties are read-only.
var e = t.makeError('SecurityError', 'fixed');
e.name = 'Other';
e.message = 'changed';
e.code = 99;
expectError(e, 'SecurityError', 'fixed', 18);

// An error object can be thrown and caught like any other.
try {
    throw t.makeError('NotFoundError', 'thrown');
} catch (thrown) {
    expectError(thrown, 'NotFoundError', 'thrown', 8);
}

// Every object is a new one, and each keeps its own name.
var a = t.makeError('SecurityError', 'a');
var b = t.makeError('SecurityError', 'b');
expect(a !== b && a.message === 'a' && b.message === 'b', 'error objects are separate');

// A bad name argument is itself answered with a TypeMismatchError.
try {
    t.makeError();
    expect(false, 'makeError() threw nothing');
} catch (bad) {
    expectError(bad, 'TypeMismatchError', '1st argument must be a string (got undefined)', 17);
}

if (failures > 0) {
    console.error(failures + ' error checks failed');
    runtime.exit(1);
}
console.log('errors: all checks passed');
runtime.exit(0);
