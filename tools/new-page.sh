#!/usr/bin/env bash
# Writes the page of a new app (index.html, style.css, main.js) for
# new-app.sh --page: a provider page that shows who connects and what it
# echoes, or a consumer page that finds the provider, connects, sends its
# arguments (or "hello") and shows the echoes; a field and a Send button send
# more.
#   new-page.sh DIR provider|consumer TITLE
set -euo pipefail

DIR="${1:?usage: new-page.sh DIR provider|consumer TITLE}"
ROLE="${2:?role}"
TITLE="${3:?title}"

cat >"$DIR/index.html" <<EOF
<!DOCTYPE html>
<html lang="en">
<head>
  <meta charset="utf-8">
  <title>$TITLE</title>
  <link rel="stylesheet" href="style.css">
</head>
<body>
  <h1>$TITLE</h1>
  <!-- The state of the connection, and a banner for errors. -->
  <p id="state">starting</p>
  <p id="banner" hidden></p>
$(if [ "$ROLE" = consumer ]; then cat <<'FORM'
  <form id="send">
    <input id="text" placeholder="a message" autocomplete="off">
    <button>Send</button>
  </form>
FORM
fi)
  <ul id="messages"></ul>
  <script src="main.js"></script>
</body>
</html>
EOF

cat >"$DIR/style.css" <<'EOF'
/* The page fills the device's screen: a watch's is round (360 x 360), a
   phone's 412 x 892. Keep what matters near the middle on a watch. */
body {
  margin: 0;
  padding: 40px 36px;
  font-family: "DejaVu Sans", sans-serif;
  background: #10151c;
  color: #eef1f5;
  text-align: center;
}
h1 { margin: 0 0 8px; font-size: 22px; }
#state { margin: 0 0 10px; color: #8fd3ff; }
#banner { padding: 6px; border-radius: 6px; background: #b3261e; }
#send { display: flex; gap: 6px; margin-bottom: 10px; }
#send input { flex: 1; padding: 6px; }
#messages { margin: 0; padding: 0; list-style: none; font-size: 14px; }
#messages li { padding: 3px 0; border-bottom: 1px solid #26303b; }
EOF

# What both roles' scripts begin with: the screen.
PAGE_SCREEN='// The screen: the state line, the error banner, the list of messages.
var screen = {
    state: function (text) {
        document.getElementById("state").textContent = text;
    },
    banner: function (text) {
        var banner = document.getElementById("banner");
        banner.textContent = text;
        banner.hidden = !text;
    },
    message: function (text) {
        var item = document.createElement("li");
        item.textContent = text;
        document.getElementById("messages").appendChild(item);
    }
};

// What the app does goes to the console too (kv-runtime prints it, and
// "./kv pair-run" shows it in its transcript).
var log = function () {
    console.log.apply(console, Array.prototype.slice.call(arguments));
};'

if [ "$ROLE" = provider ]; then
    cat >"$DIR/main.js" <<EOF
// A provider as a page: it offers the service of
// res/xml/accessoryservices.xml, accepts every consumer that asks for a
// connection, sends back whatever it receives on the channel it came on, and
// shows all of that. docs/api.md describes webapis.kv.
$PAGE_SCREEN

// Every callback of webapis.kv runs on a later turn of the main loop, never
// inside the call that caused it.
webapis.kv.requestKvAgent(function (agents) {
    // One agent per serviceProfile of the profile file, in file order.
    var agent = agents[0];
    // Setting this listener registers the agent, so that consumers find it.
    agent.setServiceConnectionListener({
        // A consumer asks for a connection: answer here, inside onrequest.
        onrequest: function (peer) {
            log("connection requested by", peer.appName);
            agent.acceptServiceConnectionRequest(peer);
        },
        // The connection is open: set the data listener now, or data that
        // arrives first is dropped.
        onconnect: function (socket) {
            log("connected to", socket.peerAgent.appName);
            screen.state("connected to " + socket.peerAgent.appName);
            socket.setDataReceiveListener(function (channelId, data) {
                screen.message("echoed: " + data);
                socket.sendData(channelId, data);
            });
            socket.setSocketStatusListener(function (reason) {
                log("connection ended:", reason);
                // A real service would wait for the next consumer; this one
                // ends, so that "./kv pair-run" ends too.
                runtime.exit(0);
            });
        },
        onerror: function (code) {
            screen.banner("connection failed: " + code);
        }
    });
    log("waiting for a consumer");
    screen.state("offering " + agent.name + ", waiting for a consumer");
}, function (error) {
    // ServiceNotAvailableError: the profile file gave no agent.
    screen.banner("no agent: " + error.name);
    console.error("no agent:", error.name, error.message);
    runtime.exit(1);
});
EOF
    exit 0
fi

cat >"$DIR/main.js" <<EOF
// A consumer as a page: it finds the provider of the service of
// res/xml/accessoryservices.xml, connects, sends its arguments (those after
// "--" of "./kv pair-run"), or "hello" without any, shows the echoes, and
// ends once every one came back. Whatever is typed into the field before
// then goes too. docs/api.md describes webapis.kv.
var CHANNEL = 1;
var messages = runtime.args.length > 0 ? runtime.args : ["hello"];
var waiting = 0;
var socket = null;

$PAGE_SCREEN

function send(text) {
    waiting += 1;
    log("sending", text);
    screen.message("sent: " + text);
    socket.sendData(CHANNEL, text);
}

document.getElementById("send").addEventListener("submit", function (event) {
    event.preventDefault();
    var field = /** @type {HTMLInputElement} */ (document.getElementById("text"));
    if (socket && field.value) {
        send(field.value);
        field.value = "";
    }
});

// Every callback of webapis.kv runs on a later turn of the main loop, never
// inside the call that caused it.
webapis.kv.requestKvAgent(function (agents) {
    var agent = agents[0];
    var connecting = false;
    agent.setServiceConnectionListener({
        onconnect: function (connected) {
            socket = connected;
            log("connected to", socket.peerAgent.appName);
            screen.state("connected to " + socket.peerAgent.appName);
            // Set the data listener at once: data that arrives before it is
            // set is dropped.
            socket.setDataReceiveListener(function (channelId, data) {
                log("echo on channel", channelId + ":", data);
                screen.message("echo: " + data);
                if (--waiting === 0) {
                    socket.close();
                    log("done");
                    runtime.exit(0);
                }
            });
            messages.forEach(send);
        },
        // For example PEERAGENT_REJECTED or PEERAGENT_NO_RESPONSE.
        onerror: function (code) {
            screen.banner("connection failed: " + code);
            console.error("connection failed:", code);
            runtime.exit(1);
        }
    });
    var connect = function (peer) {
        if (!connecting) {
            connecting = true;
            log("found", peer.appName, "on", peer.peerAccessory.deviceName);
            screen.state("found " + peer.appName + ", connecting");
            agent.requestServiceConnection(peer);
        }
    };
    agent.setPeerAgentFindListener({
        onpeeragentfound: connect,
        // A provider that starts after the search is heard of here.
        onpeeragentupdated: function (peer, status) {
            if (status === "AVAILABLE") {
                connect(peer);
            }
        },
        // PEER_NOT_FOUND: no provider yet; wait for it to appear.
        onerror: function (code) {
            screen.state("no provider yet (" + code + "), waiting for one");
        }
    });
    // The first search registers the agent with the accessory service.
    agent.findPeerAgents();
    screen.state("looking for a provider");
}, function (error) {
    screen.banner("no agent: " + error.name);
    console.error("no agent:", error.name, error.message);
    runtime.exit(1);
});
EOF
