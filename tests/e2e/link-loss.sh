#!/usr/bin/env bash
# Two linked devices whose apps hold a connection; then the link goes, by a
# detach (MODE=detach) or by killing the phone's accessory daemon (MODE=kill).
# Both apps must see their connection end with DEVICE_DETACHED and exit 0;
# nothing may hang.
#   link-loss.sh BUILD_DIR WORK_DIR MODE
set -uo pipefail

BUILD="$(cd "${1:?usage: link-loss.sh BUILD_DIR WORK_DIR detach|kill}" && pwd)"
WORK="${2:?work folder}"
MODE="${3:?detach or kill}"
APPS="$(cd "$(dirname "${BASH_SOURCE[0]}")/apps" && pwd)"
RUNTIME="$BUILD/runtime/kv-runtime"
ACCESSORY="$BUILD/accessory/kv-accessory"
WATCH="$WORK/watch"
PHONE="$WORK/phone"

fail() { printf 'link loss test failed: %s\n' "$*" >&2; exit 1; }
stop_devices() { "$ACCESSORY" stop "$WATCH" "$PHONE" >/dev/null 2>&1 || true; }
trap stop_devices EXIT

rm -rf "$WATCH" "$PHONE"
"$ACCESSORY" create "$WATCH" "$PHONE" >/dev/null || fail "create"
"$ACCESSORY" pair "$WATCH" "$PHONE" >/dev/null || fail "pair"
watch_app="$("$RUNTIME" --device "$WATCH" install "$APPS/watch-linkloss")" || fail "install on the watch"
phone_app="$("$RUNTIME" --device "$PHONE" install "$APPS/phone-linkloss")" || fail "install on the phone"

KV_LOG_FILE="$WORK/watch.log" "$RUNTIME" --device "$WATCH" run "$watch_app" --plugins "$BUILD/plugins" \
    --timeout 40 >"$WORK/watch.out" 2>&1 &
watch_pid=$!
KV_LOG_FILE="$WORK/phone.log" "$RUNTIME" --device "$PHONE" run "$phone_app" --plugins "$BUILD/plugins" \
    --timeout 40 >"$WORK/phone.out" 2>&1 &
phone_pid=$!

for _ in $(seq 300); do
    grep -q 'phone: connected' "$WORK/phone.out" && grep -q 'watch: connected' "$WORK/watch.out" && break
    sleep 0.1
done
grep -q 'phone: connected' "$WORK/phone.out" || fail "the apps never connected: $(cat "$WORK/phone.out")"

case "$MODE" in
    detach) "$ACCESSORY" detach "$PHONE" >/dev/null || fail "detach" ;;
    kill) kill -9 "$(cat "$PHONE/accessoryd.pid")" || fail "kill the phone's daemon" ;;
    *) fail "unknown mode $MODE" ;;
esac

wait "$phone_pid"
phone_status=$?
wait "$watch_pid"
watch_status=$?
cat "$WORK/phone.out" "$WORK/watch.out"
[ "$phone_status" -eq 0 ] || fail "the phone app ended with $phone_status"
[ "$watch_status" -eq 0 ] || fail "the watch app ended with $watch_status"
echo "both apps saw the connection end with DEVICE_DETACHED"
