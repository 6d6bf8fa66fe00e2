// The runtime's globals in a page: runtime.args, runtime.now(), the console
// on stdout and stderr, and runtime.exit with the code the arguments ask for.
var first = runtime.now();
console.log('args', JSON.stringify(runtime.args));
console.info('info', {a: 1}, [1, 2]);
console.warn('warn line');
console.error('error line');
console.log('page globals', typeof window, typeof document, typeof setTimeout);
setTimeout(function () {
    var later = runtime.now();
    console.log('now advances', later > first && later - first >= 40);
    try {
        runtime.exit(300);
    } catch (e) {
        console.log('bad code', e.name);
    }
    try {
        runtime.exit(Number(runtime.args[0]));
    } finally {
        console.log('finally runs');
    }
    console.log('after exit: never printed');
}, 50);
