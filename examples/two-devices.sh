#!/usr/bin/env bash
# Runs the demo: two emulated devices, a watch and a phone, linked through
# their accessory services; the watch runs the sensor app, the phone the
# monitor app, and the two find each other, connect, talk on every channel,
# pass a file and close. Exits non-zero when anything of that goes wrong.
#   two-devices.sh BUILD_DIR [WORK_DIR]
set -uo pipefail

BUILD="$(cd "${1:?usage: two-devices.sh BUILD_DIR [WORK_DIR]}" && pwd)"
EXAMPLES="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
WORK="${2:-$(mktemp -d "${TMPDIR:-/tmp}/kv-demo.XXXXXX")}"
RUNTIME="$BUILD/runtime/kv-runtime"
ACCESSORY="$BUILD/accessory/kv-accessory"
WATCH="$WORK/watch"
PHONE="$WORK/phone"
TIMEOUT="${KV_DEMO_TIMEOUT:-60}"

step() { printf '\n--- %s\n' "$*"; }
fail() { printf 'demo failed: %s\n' "$*" >&2; exit 1; }

stop_devices() { "$ACCESSORY" stop "$WATCH" "$PHONE" >/dev/null 2>&1 || true; }
trap stop_devices EXIT

step "two devices, paired: their accessory services linked over TLS on loopback"
rm -rf "$WATCH" "$PHONE"
"$ACCESSORY" create "$WATCH" "$PHONE" || fail "cannot create the devices"
"$ACCESSORY" pair "$WATCH" "$PHONE" || fail "cannot link the devices"

step "installing the apps"
watch_app="$("$RUNTIME" --device "$WATCH" install "$EXAMPLES/watch-sensor")" || fail "install on the watch"
phone_app="$("$RUNTIME" --device "$PHONE" install "$EXAMPLES/phone-monitor")" || fail "install on the phone"
echo "watch: $watch_app"
echo "phone: $phone_app"
mkdir -p "$PHONE/fs/opt/usr/media/Documents"
printf 'heart rate 72, steps 4211\n' >"$PHONE/fs/opt/usr/media/Documents/report.txt"

step "running both apps"
KV_LOG_FILE="$WORK/watch.log" "$RUNTIME" --device "$WATCH" run "$watch_app" \
    --plugins "$BUILD/plugins" --timeout "$TIMEOUT" >"$WORK/watch.out" 2>&1 &
watch_pid=$!
KV_LOG_FILE="$WORK/phone.log" "$RUNTIME" --device "$PHONE" run "$phone_app" \
    --plugins "$BUILD/plugins" --timeout "$TIMEOUT" >"$WORK/phone.out" 2>&1
phone_status=$?
wait "$watch_pid"
watch_status=$?
cat "$WORK/phone.out" "$WORK/watch.out"

step "results"
received="$WATCH/fs/opt/usr/media/Downloads/report.txt"
echo "phone exit $phone_status, watch exit $watch_status"
[ "$phone_status" -eq 0 ] || fail "the phone app failed (log: $WORK/phone.log)"
[ "$watch_status" -eq 0 ] || fail "the watch app failed (log: $WORK/watch.log)"
cmp -s "$PHONE/fs/opt/usr/media/Documents/report.txt" "$received" ||
    fail "the file did not arrive whole at $received"
echo "the watch holds the phone's report at /opt/usr/media/Downloads/report.txt: $(cat "$received")"
echo "logs and devices: $WORK"
