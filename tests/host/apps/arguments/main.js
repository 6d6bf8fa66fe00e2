// Argument validation of a device API method, seen from an app:
// webapis.hosttest.check(fn, obj, str, num, nullableFn) validates its
// arguments with the platform's validator and returns them converted.
var t = webapis.hosttest;
var failures = 0;

function expect(condition, what) {
    if (!condition) {
        console.error('FAIL: ' + what);
        failures++;
    }
}

// Calls `call` and expects it to throw a TypeMismatchError with `message`.
function expectMismatch(call, message, what) {
    try {
        call();
        expect(false, what + ': no error thrown');
    } catch (e) {
        expect(e instanceof Error, what + ': not an Error');
        expect(e.name === 'TypeMismatchError', what + ': name is ' + e.name);
        expect(e.code === 17, what + ': code is ' + e.code);
        expect(e.message === message, what + ': message is "' + e.message + '"');
    }
}

function f() {}
function g() {}
var o = {key: 'value'};

// Good arguments come back converted.
var r = t.check(f, o, 42, '7.9', g);
expect(r.fn === f, 'the function comes back');
expect(r.obj === o, 'the object comes back');
expect(r.str === '42', 'a number is converted to a string: ' + r.str);
expect(r.num === 7, 'a numeric string is truncated to an integer: ' + r.num);
expect(r.nullableFn === g, 'the nullable function comes back');
expect(t.check(g, [], 'x', -7.9).num === -7, 'integers are truncated toward zero');
expect(t.check(g, [], 'x', 4294967297).num === 1, 'integers wrap to 32 bits');
expect(t.check(g, f, {toString: function () { return 'made'; }}, true).str === 'made',
       'an object is converted with its toString; a function is an object');

// A nullable function may be missing, undefined or null.
expect(t.check(f, o, 's', 1).nullableFn === null, 'a missing nullable function is null');
expect(t.check(f, o, 's', 1, undefined).nullableFn === null, 'undefined is null');
expect(t.check(f, o, 's', 1, null).nullableFn === null, 'null stays null');

// Missing arguments.
expectMismatch(function () { t.check(); }, '1st argument must be a function (got undefined)',
               'no argument');
expectMismatch(function () { t.check(f); }, '2nd argument must be an object (got undefined)',
               'one argument');
expectMismatch(function () { t.check(f, o); }, '3rd argument must be a string (got undefined)',
               'two arguments');
expectMismatch(function () { t.check(f, o, 's'); }, '4th argument must be an integer (got undefined)',
               'three arguments');

// Arguments of the wrong type.
expectMismatch(function () { t.check('f', o, 's', 1); },
               '1st argument must be a function (got a string)', 'a string as function');
expectMismatch(function () { t.check(f, 5, 's', 1); },
               '2nd argument must be an object (got a number)', 'a number as object');
expectMismatch(function () { t.check(f, o, {toString: function () { throw new Error('no'); }}, 1); },
               '3rd argument must be a string (got an object)', 'a string conversion that throws');
expectMismatch(function () { t.check(f, o, 's', 'many'); },
               '4th argument must be an integer (got a string)', 'a word as integer');
expectMismatch(function () { t.check(f, o, 's', Infinity); },
               '4th argument must be an integer (got a number)', 'an infinite integer');
expectMismatch(function () { t.check(f, o, 's', 1, {}); },
               '5th argument must be a function (got an object)', 'an object as nullable function');

// Null where null is not allowed.
expectMismatch(function () { t.check(null, o, 's', 1); },
               '1st argument must be a function (got null)', 'null as function');
expectMismatch(function () { t.check(f, null, 's', 1); },
               '2nd argument must be an object (got null)', 'null as object');
expectMismatch(function () { t.check(f, o, null, 1); },
               '3rd argument must be a string (got null)', 'null as string');
expectMismatch(function () { t.check(f, o, 's', undefined); },
               '4th argument must be an integer (got undefined)', 'undefined as integer');

// A method called on another object.
expectMismatch(function () { t.check.call({}, f, o, 's', 1); }, 'Wrong object',
               'check on a plain object');

if (failures > 0) {
    console.error(failures + ' argument checks failed');
    runtime.exit(1);
}
console.log('arguments: all checks passed');
runtime.exit(0);
