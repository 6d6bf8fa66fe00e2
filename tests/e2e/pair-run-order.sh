#!/usr/bin/env bash
# tools/pair-run.sh starts the app that declares a provider first and the
# other once the provider's agent is registered, so that a consumer's first
# search finds it, whichever device the provider runs on; --together starts
# both at once.
#   pair-run-order.sh BUILD_DIR WORK_DIR
set -euo pipefail

BUILD="$(cd "${1:?usage: pair-run-order.sh BUILD_DIR WORK_DIR}" && pwd)"
WORK="${2:?work folder}"
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
APPS="$ROOT/tests/e2e/apps"

fail() {
    printf 'pair-run order test failed: %s\n' "$*" >&2
    exit 1
}

# The number of the first transcript line that holds the text.
first_line() {
    grep -nF -- "$1" "$WORK/transcript.txt" | head -n 1 | cut -d: -f1
}

# One run: the watch app, the phone app, and pair-run's own options.
run_pair() {
    local watch="$1" phone="$2" status=0
    shift 2
    "$ROOT/tools/pair-run.sh" --build "$BUILD" --work "$WORK" --no-check --timeout 30 "$@" \
        "$APPS/$watch" "$APPS/$phone" >"$WORK/pair-run.txt" 2>&1 || status=$?
    return "$status"
}

expect_provider_first() {
    local watch="$1" phone="$2" trial="$3" registered consumer
    run_pair "$watch" "$phone" ||
        fail "$watch + $phone, trial $trial: pair-run ended with $? ($(cat "$WORK/pair-run.txt"))"
    grep -qF "consumer: first search found Order provider" "$WORK/transcript.txt" ||
        fail "$watch + $phone, trial $trial: the first search did not find the provider: $(cat "$WORK/transcript.txt")"
    registered="$(first_line "provider: registered")"
    consumer="$(first_line "consumer: ")"
    [ -n "$registered" ] && [ "$registered" -lt "$consumer" ] ||
        fail "$watch + $phone, trial $trial: the consumer ran before the provider registered"
}

rm -rf "$WORK"
mkdir -p "$WORK"
for trial in 1 2 3 4; do
    expect_provider_first order-provider order-consumer "$trial"
done
for trial in 1 2; do
    expect_provider_first order-consumer order-provider "$trial"
done
echo "the consumer's first search found the provider in every run, on either device"

# Together: both start at once; the consumer's first search may or may not
# find the provider, and says which.
status=0
run_pair order-provider order-consumer --together || status=$?
grep -qE "consumer: first search (found|ended)" "$WORK/transcript.txt" ||
    fail "--together: the consumer did not search: $(cat "$WORK/pair-run.txt")"
case "$status" in
    0 | 1) echo "--together started both apps at once" ;;
    *) fail "--together: pair-run ended with $status" ;;
esac
