// Tries to reach what a page must not: files beside its app, another app's
// files, and the network (runtime.args[0] is a port on which the test
// listens). Prints one line per try, then "confined: done".
var port = runtime.args[0];
var tries = [
    ['own file', 'data.txt'],
    ['host file', 'file:///etc/hostname'],
    ['parent folder', '../../../../../../etc/hostname'],
    ['app config beside', '../../data/none.txt'],
    ['other app', '/opt/usr/apps/neighbour1/res/wgt/secret.txt'],
    ['http', 'http://127.0.0.1:' + port + '/x'],
    ['https', 'https://127.0.0.1:' + port + '/x']
];

function tryFetch(entry) {
    return fetch(entry[1]).then(function (response) {
        return response.text().then(function (text) {
            console.log('confined: LOADED', entry[0], JSON.stringify(text.slice(0, 40)));
        });
    }, function () {
        console.log('confined: blocked', entry[0]);
    });
}

function tryXhr(label, url) {
    return new Promise(function (resolve) {
        var request = new XMLHttpRequest();
        request.onload = function () {
            console.log('confined: LOADED', label, JSON.stringify(request.responseText.slice(0, 40)));
            resolve();
        };
        request.onerror = function () {
            console.log('confined: blocked', label);
            resolve();
        };
        try {
            request.open('GET', url);
            request.send();
        } catch (e) {
            console.log('confined: blocked', label);
            resolve();
        }
    });
}

function tryImage(label, url) {
    return new Promise(function (resolve) {
        var image = new Image();
        image.onload = function () {
            console.log('confined: LOADED', label);
            resolve();
        };
        image.onerror = function () {
            console.log('confined: blocked', label);
            resolve();
        };
        image.src = url;
    });
}

function trySocket() {
    return new Promise(function (resolve) {
        var socket;
        try {
            socket = new WebSocket('ws://127.0.0.1:' + port + '/');
        } catch (e) {
            console.log('confined: blocked web socket');
            resolve();
            return;
        }
        socket.onopen = function () {
            console.log('confined: LOADED web socket');
            resolve();
        };
        socket.onerror = function () {
            console.log('confined: blocked web socket');
            resolve();
        };
    });
}

function tryFrame(label, url) {
    return new Promise(function (resolve) {
        var frame = document.createElement('iframe');
        frame.src = url;
        document.getElementById('frames').appendChild(frame);
        setTimeout(function () {
            var href;
            try {
                href = frame.contentWindow.location.href;
            } catch (e) {
                href = 'unreadable';
            }
            console.log('confined: frame', label, href === url ? 'LOADED' : 'blocked');
            resolve();
        }, 300);
    });
}

tries.reduce(function (chain, entry) {
    return chain.then(function () {
        return tryFetch(entry);
    });
}, Promise.resolve())
    .then(function () { return tryXhr('xhr host file', 'file:///etc/hostname'); })
    .then(function () { return tryXhr('xhr http', 'http://127.0.0.1:' + port + '/'); })
    .then(function () { return tryImage('image http', 'http://127.0.0.1:' + port + '/a.png'); })
    .then(function () { return tryImage('image host file', 'file:///usr/share/pixmaps/debian-logo.png'); })
    .then(trySocket)
    .then(function () { return tryFrame('host folder', 'file:///etc/'); })
    .then(function () { return tryFrame('http', 'http://127.0.0.1:' + port + '/'); })
    .then(function () {
        console.log('confined: done');
        location.href = 'http://127.0.0.1:' + port + '/leave';
        setTimeout(function () {
            console.log('confined: still here', location.protocol);
            runtime.exit(0);
        }, 300);
    });
