// Throws where runtime.args[0] says: at the top of the script, in a timer,
// in a click handler, or not at all but exits from a click handler.
var where = runtime.args[0];
console.log('uncaught: ready', where);
if (where === 'top') {
    throw new TypeError('top level threw');
}
if (where === 'timer') {
    setTimeout(function () {
        var nothing = /** @type {any} */ (null);
        nothing.property;
    }, 20);
}
document.getElementById('throw').addEventListener('click', function () {
    if (where === 'click') {
        throw new RangeError('click handler threw');
    }
    if (where === 'exit-in-handler') {
        runtime.exit(3);
    }
});
