// Says that it runs and what its frame sees; its buttons add and remove a
// frame, move the page to another document of the app, and end the app.
console.log('main: ready', typeof webapis.hosttest, typeof runtime.exit);
document.getElementById('status').textContent = 'ready';
document.getElementById('add').addEventListener('click', function (event) {
    console.log('main: a person clicked', event.isTrusted);
    var frame = document.createElement('iframe');
    frame.id = 'extra';
    frame.src = 'extra.html';
    document.getElementById('more').appendChild(frame);
});
document.getElementById('remove').addEventListener('click', function () {
    var frame = document.getElementById('extra');
    frame.parentNode.removeChild(frame);
    console.log('main: removed the extra frame');
});
document.getElementById('leave').addEventListener('click', function () {
    location.href = 'second.html';
});
document.getElementById('exit').addEventListener('click', function () {
    runtime.exit(0);
});
