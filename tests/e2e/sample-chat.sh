#!/usr/bin/env bash
# The chat sample (examples/watch-chat, examples/phone-chat) on a fresh pair
# of devices, run by tools/pair-run.sh, without anybody typing.
#   sample-chat.sh BUILD_DIR WORK_DIR secure|insecure
# secure: the watch refuses the first request and drops the first connection
# after one answer, and the test takes the link away for a second once the
# secret line (sent with sendSecureData after the authentication) has been
# answered; the phone must connect again after each loss and every line must
# be answered. insecure: over a plain TCP link the authentication fails with
# TokenNotGeneratedError and the phone skips the secret line.
set -euo pipefail

BUILD="$(cd "${1:?usage: sample-chat.sh BUILD_DIR WORK_DIR secure|insecure}" && pwd)"
WORK="${2:?work folder}"
MODE="${3:?secure or insecure}"
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
ACCESSORY="$BUILD/accessory/kv-accessory"

fail() {
    printf 'sample test failed: %s\n' "$*" >&2
    exit 1
}
expect() {
    grep -qF -- "$1" "$WORK/transcript.txt" || fail "the transcript lacks: $1"
}

rm -rf "$WORK"
mkdir -p "$WORK"
LINES=(hello "secret: the door code is 4711" "how is the weather?" bye)

if [ "$MODE" = insecure ]; then
    status=0
    "$ROOT/tools/pair-run.sh" --build "$BUILD" --work "$WORK" --no-check --timeout 60 --insecure \
        "$ROOT/examples/watch-chat" "$ROOT/examples/phone-chat" -- "${LINES[@]}" || status=$?
    [ "$status" -eq 0 ] || fail "pair-run ended with $status"
    expect "phone: not authenticated: TokenNotGeneratedError"
    expect "phone: skipping line 2 (secret, but the link is not authenticated)"
    expect "phone: watch: you said \"how is the weather?\""
    expect "phone: watch: bye!"
    expect "watch: done"
    expect "phone: done"
    echo "the chat went on without its secret line over the insecure link"
    exit 0
fi
[ "$MODE" = secure ] || fail "unknown mode $MODE"

"$ROOT/tools/pair-run.sh" --build "$BUILD" --work "$WORK" --no-check --timeout 60 \
    "$ROOT/examples/watch-chat" "$ROOT/examples/phone-chat" -- \
    --reject-first --drop-after 1 --interval 400 "${LINES[@]}" >"$WORK/pair-run.txt" 2>&1 &
runner=$!

# The link goes for a second while the third connection is open.
for _ in $(seq 300); do
    grep -q "phone: watch: I keep your secret" "$WORK/phone.out" 2>/dev/null && break
    sleep 0.1
done
if grep -q "phone: watch: I keep your secret" "$WORK/phone.out" 2>/dev/null; then
    "$ACCESSORY" detach "$WORK/phone" >/dev/null || fail "cannot detach the phone"
    sleep 1
    "$ACCESSORY" attach "$WORK/phone" >/dev/null || fail "cannot attach the phone"
fi
status=0
wait "$runner" || status=$?
cat "$WORK/pair-run.txt"
[ "$status" -eq 0 ] || fail "pair-run ended with $status"

expect "watch: busy: rejecting the first request of Phone chat"
expect "phone: connection failed: PEERAGENT_REJECTED"
expect "watch: closing the connection after 1 answer(s), as --drop-after asks"
expect "phone: connection ended: PEER_DISCONNECTED"
expect "phone: authenticated Watch chat: AUTHENTICATION_TYPE_CERTIFICATE_X509 key "
expect "phone: sent securely line 2: secret: the door code is 4711"
expect "watch: line 2: secret: the door code is 4711"
expect "phone: connection ended: DEVICE_DETACHED"
expect "phone: device DETACHED"
expect "phone: device ATTACHED"
expect "watch: device ATTACHED"
expect "phone: watch: you said \"how is the weather?\""
expect "phone: watch: bye!"
expect "watch: done"
expect "phone: done"
echo "the chat survived a refusal, a dropped connection and a lost link"
