#!/usr/bin/env bash
# Writes a new app folder to start from.
#
#   kv new NAME --provider|--consumer [--page] [--profile ID] [DIR]
#   kv new --help | --version
#
# NAME: letters, digits, "-" and "_", starting with a letter (e.g. my-watch).
# --provider: the app offers the service: it accepts every connection and
#   echoes what it receives. --consumer: the app uses it: it finds the
#   provider, connects, sends its arguments (or "hello") and waits for the
#   echoes.
# --page: the app is a web page (index.html, style.css, main.js) shown on its
#   device's screen, rather than a script for the script host; it does the
#   same and shows what it does.
# --profile ID: the service-profile id that a provider and its consumers
#   share (default /kv/hello).
# DIR: the folder to write (default ./NAME); it must not exist or be empty.
#
# The folder holds config.xml (with the accessory privilege and the
# AccessoryServicesLocation metadata), res/xml/accessoryservices.xml and a
# commented main.js (with --page also index.html and style.css). Run a pair
# with: ./kv pair-run PROVIDER_DIR CONSUMER_DIR
set -euo pipefail

CLI_PROGRAM="kv new"
CLI_COMMAND="./kv new"
CLI_SCRIPT="${BASH_SOURCE[0]}"
# shellcheck source=tools/cli.sh
. "$(dirname "${BASH_SOURCE[0]}")/cli.sh"
cli_answer_help_and_version "$@"

fail() {
    printf 'kv new: %s\n' "$*" >&2
    exit 1
}

NAME=""
ROLE=""
PAGE=0
PROFILE="/kv/hello"
DIR=""
while [ $# -gt 0 ]; do
    case "$1" in
        --provider) ROLE=provider; shift ;;
        --consumer) ROLE=consumer; shift ;;
        --page) PAGE=1; shift ;;
        --profile) [ $# -ge 2 ] || cli_usage_error "--profile needs a profile id"; PROFILE="$2"; shift 2 ;;
        -*) cli_usage_error "unknown option '$1'" ;;
        *)
            if [ -z "$NAME" ]; then
                NAME="$1"
            elif [ -z "$DIR" ]; then
                DIR="$1"
            else
                cli_usage_error "unexpected argument '$1'"
            fi
            shift
            ;;
    esac
done
[ -n "$NAME" ] || cli_usage_error "a NAME is needed"
[ -n "$ROLE" ] || cli_usage_error "say --provider or --consumer"
[[ "$NAME" =~ ^[A-Za-z][A-Za-z0-9_-]{0,40}$ ]] ||
    fail "bad name \"$NAME\": use letters, digits, - and _, starting with a letter"
[[ "$PROFILE" =~ ^[^[:space:]\"\<\>\&]{1,255}$ ]] ||
    fail "bad profile id \"$PROFILE\": no blanks, quotes, <, > or &, at most 255 characters"
DIR="${DIR:-$NAME}"
if [ -e "$DIR" ] && [ -n "$(ls -A "$DIR")" ]; then
    fail "$DIR exists and is not empty"
fi

# The package: the name's letters and digits, lower case (1 to 32 of them);
# the app id: the package, a dot and the name in camel case.
PACKAGE="$(printf '%s' "$NAME" | tr -cd 'A-Za-z0-9' | tr 'A-Z' 'a-z' | cut -c1-32)"
TITLE="$(printf '%s' "$NAME" | sed -E 's/(^|[-_])([a-z])/\U\2/g; s/[-_]//g')"
APP_ID="$PACKAGE.$TITLE"

mkdir -p "$DIR/res/xml"
CONTENT=main.js
[ "$PAGE" = 0 ] || CONTENT=index.html

cat >"$DIR/config.xml" <<EOF
<?xml version="1.0" encoding="UTF-8"?>
<widget id="http://example.org/$NAME" version="1.0">
  <name>$TITLE</name>
  <!-- The package names the app's folder on the device; the app id is what
       "kv-runtime run" takes. -->
  <application id="$APP_ID" package="$PACKAGE"/>
  <!-- Without this privilege webapis.kv refuses the app (SecurityError). -->
  <privilege name="http://kv-project.org/privilege/accessory"/>
  <!-- Where the app declares its accessory services (docs/service-profile.md). -->
  <metadata key="AccessoryServicesLocation" value="res/xml/accessoryservices.xml"/>
  <!-- What runs: a script for the script host, or an HTML page. -->
  <content src="$CONTENT"/>
</widget>
EOF

cat >"$DIR/res/xml/accessoryservices.xml" <<EOF
<?xml version="1.0" encoding="UTF-8"?>
<!-- The accessory services of $TITLE (docs/service-profile.md). A provider and
     its consumers share the profile id and the channel ids. -->
<resources>
  <application name="$TITLE">
    <serviceProfile id="$PROFILE" name="$TITLE" role="$ROLE"
                    serviceLimit="any" serviceTimeout="10">
      <supportedTransports><transport type="transport_wifi"/></supportedTransports>
      <serviceChannel id="1" dataRate="low" priority="high" reliability="enable"/>
    </serviceProfile>
  </application>
</resources>
EOF

if [ "$PAGE" = 1 ]; then
    "$(dirname "${BASH_SOURCE[0]}")/new-page.sh" "$DIR" "$ROLE" "$TITLE"
elif [ "$ROLE" = provider ]; then
    cat >"$DIR/main.js" <<'EOF'
// A provider: it offers the service of res/xml/accessoryservices.xml,
// accepts every consumer that asks for a connection and sends back whatever
// it receives, on the channel it came on. docs/api.md describes webapis.kv.
var log = function () {
    console.log.apply(console, Array.prototype.slice.call(arguments));
};

// Every callback of webapis.kv runs on a later turn of the main loop, never
// inside the call that caused it.
webapis.kv.requestKvAgent(function (agents) {
    // One agent per serviceProfile of the profile file, in file order.
    var agent = agents[0];
    log('offering', agent.id, 'as', agent.role, 'on channels', agent.channelIds.join(', '));

    // Setting this listener registers the agent with the accessory service,
    // so that consumers can find it.
    agent.setServiceConnectionListener({
        // A consumer asks for a connection: answer here, inside onrequest.
        onrequest: function (peer) {
            log('connection requested by', peer.appName);
            agent.acceptServiceConnectionRequest(peer);
        },
        // The connection is open: set the data listener now, or data that
        // arrives first is dropped.
        onconnect: function (socket) {
            log('connected to', socket.peerAgent.appName);
            socket.setDataReceiveListener(function (channelId, data) {
                log('received on channel', channelId + ':', data);
                socket.sendData(channelId, data);
            });
            socket.setSocketStatusListener(function (reason) {
                // PEER_DISCONNECTED: the consumer closed it; DEVICE_DETACHED:
                // the link between the devices went.
                log('connection ended:', reason);
                // A real service would stay and wait for the next consumer;
                // this one ends, so that "./kv pair-run" ends too.
                runtime.exit(0);
            });
        },
        onerror: function (code) {
            log('connection failed:', code);
        }
    });
    log('waiting for a consumer');
}, function (error) {
    // ServiceNotAvailableError: the profile file gave no agent.
    console.error('no agent:', error.name, error.message);
    runtime.exit(1);
});
EOF
else
    cat >"$DIR/main.js" <<'EOF'
// A consumer: it finds the provider of the service of
// res/xml/accessoryservices.xml, connects, sends its arguments (those after
// "--" of "./kv pair-run"), or "hello" without any, waits for every echo,
// closes the connection and ends. docs/api.md describes webapis.kv.
var CHANNEL = 1;
var messages = runtime.args.length > 0 ? runtime.args : ['hello'];

var log = function () {
    console.log.apply(console, Array.prototype.slice.call(arguments));
};
var fail = function (what) {
    console.error(what);
    runtime.exit(1);
};

// Every callback of webapis.kv runs on a later turn of the main loop, never
// inside the call that caused it.
webapis.kv.requestKvAgent(function (agents) {
    // One agent per serviceProfile of the profile file, in file order.
    var agent = agents[0];
    var connecting = false;

    function connect(peer) {
        if (!connecting) {
            connecting = true;
            log('found', peer.appName, 'on', peer.peerAccessory.deviceName);
            agent.requestServiceConnection(peer);
        }
    }

    agent.setServiceConnectionListener({
        onconnect: function (socket) {
            log('connected to', socket.peerAgent.appName);
            var waiting = messages.length;
            // Set the data listener at once: data that arrives before it is
            // set is dropped.
            socket.setDataReceiveListener(function (channelId, data) {
                log('echo on channel', channelId + ':', data);
                if (--waiting === 0) {
                    socket.close();
                    log('done');
                    runtime.exit(0);
                }
            });
            messages.forEach(function (message) {
                log('sending', message);
                socket.sendData(CHANNEL, message);
            });
        },
        // For example PEERAGENT_REJECTED or PEERAGENT_NO_RESPONSE.
        onerror: function (code) {
            fail('connection failed: ' + code);
        }
    });

    agent.setPeerAgentFindListener({
        onpeeragentfound: connect,
        // A provider that starts after the search is heard of here.
        onpeeragentupdated: function (peer, status) {
            if (status === 'AVAILABLE') {
                connect(peer);
            }
        },
        // PEER_NOT_FOUND: no provider yet; wait for it to appear.
        onerror: function (code) {
            log('no provider yet (' + code + '), waiting for one');
        }
    });
    // The first search registers the agent with the accessory service.
    agent.findPeerAgents();
}, function (error) {
    // ServiceNotAvailableError: the profile file gave no agent.
    fail('no agent: ' + error.name + ' ' + error.message);
});
EOF
fi

echo "$DIR: $APP_ID, the $ROLE of $PROFILE$([ "$PAGE" = 1 ] && echo ', a page')"
