#!/usr/bin/env bash
# ./kv pair-run --chaos on the sample pairs: every trial passes its checks,
# the faults fire and the report names each trial's seed; the demo's file
# arrives whole after a detach in its middle; a pair that cannot finish
# fails the rehearsal without a fault; a failed trial is named with its
# reason and the lines that repeat it; wrong options are usage errors.
#   pair-chaos.sh BUILD_DIR WORK_DIR
set -euo pipefail

BUILD="$(cd "${1:?usage: pair-chaos.sh BUILD_DIR WORK_DIR}" && pwd)"
WORK="${2:?work folder}"
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
CHAT=("$ROOT/examples/watch-chat" "$ROOT/examples/phone-chat")
LINES=(hello "how is the weather?" "what time is it?" bye)

fail() {
    printf 'chaos test failed: %s\n' "$*" >&2
    exit 1
}

chaos() {
    "$ROOT/tools/pair-run.sh" --chaos "$@"
}

rm -rf "$WORK"
mkdir -p "$WORK"

status=0
chaos 4 --seed 4242 --build "$BUILD" --work "$WORK/good" --no-check --timeout 60 \
    --faults drop,stall,long-stall,detach "${CHAT[@]}" -- --interval 700 "${LINES[@]}" \
    >"$WORK/good.txt" 2>&1 || status=$?
cat "$WORK/good.txt"
[ "$status" -eq 0 ] || fail "the chat sample did not pass (exit $status)"
[ "$(grep -c '^trial [0-9]/4  seed 424[2-5] .*: ok$' "$WORK/good.txt")" -eq 4 ] ||
    fail "not four passing trials, each with its seed"
grep -q 'fired at' "$WORK/good.txt" || fail "no fault fired in four trials"
grep -q '^==> rehearsal over unlimited, without a fault: ok; ' "$WORK/good.txt" ||
    fail "no rehearsal before the trials"
grep -q '^==> all 4 trials passed (seed 4242)' "$WORK/good.txt" || fail "no total"

# The demo: a detach in the middle of the report file, which goes again.
head -c 300000 /dev/urandom >"$WORK/report.txt"
status=0
chaos 1 --seed 940 --build "$BUILD" --work "$WORK/demo" --no-check --timeout 60 \
    --phone-file "$WORK/report.txt" /opt/usr/media/Documents/report.txt \
    "$ROOT/examples/watch-sensor" "$ROOT/examples/phone-monitor" >"$WORK/demo.txt" 2>&1 || status=$?
cat "$WORK/demo.txt"
[ "$status" -eq 0 ] || fail "the demo did not pass (exit $status)"
grep -q '^trial 1/1  seed 940  ble        detach watch file-bytes .*fired at .*: ok$' "$WORK/demo.txt" ||
    fail "the demo's trial did not detach mid-file"
cmp -s "$WORK/report.txt" "$WORK/demo/trial-1/watch/fs/opt/usr/media/Downloads/report.txt" ||
    fail "the report did not arrive whole after the detach"

# Apps that are stopped before they end fail the rehearsal without a fault,
# which says why, and no trial runs.
status=0
chaos 2 --seed 7 --build "$BUILD" --work "$WORK/bad" --no-check --timeout 1 \
    --faults stall "${CHAT[@]}" -- --interval 700 "${LINES[@]}" >"$WORK/bad.txt" 2>&1 || status=$?
cat "$WORK/bad.txt"
[ "$status" -eq 1 ] || fail "a failed rehearsal gave exit code $status, not 1"
grep -q '^==> rehearsal over unlimited, without a fault: FAILED$' "$WORK/bad.txt" ||
    fail "the failed rehearsal is not named"
grep -q 'the watch app ended with 124' "$WORK/bad.txt" || fail "the reason is not named"
! grep -q '^trial ' "$WORK/bad.txt" || fail "trials ran after a failed rehearsal"

# A trial whose link must be back at once (a bound of 0 s) fails once its
# detach fires; seed 2 draws a detach after some of the messages the
# rehearsal counted, so it fires. The report says how to repeat the trial
# and how to make its fault alone.
status=0
chaos 1 --seed 2 --build "$BUILD" --work "$WORK/unbound" --no-check --timeout 60 \
    --profiles unlimited --faults detach --link-bound 0 "${CHAT[@]}" -- --interval 700 "${LINES[@]}" \
    >"$WORK/unbound.txt" 2>&1 || status=$?
cat "$WORK/unbound.txt"
[ "$status" -eq 1 ] || fail "a failed trial gave exit code $status, not 1"
grep -q '^==> rehearsal over unlimited, without a fault: ok; both apps ran together for [0-9]* ms; messages on channel [0-9]*: [0-9]*' \
    "$WORK/unbound.txt" || fail "the rehearsal does not say what the pair did"
grep -q '^trial 1/1  seed 2  unlimited  detach [a-z]* messages [0-9]* [0-9]* .*fired at .*: FAILED$' \
    "$WORK/unbound.txt" || fail "the drawn messages trigger did not fire and fail the trial"
grep -q '^    not linked again within 0 s$' "$WORK/unbound.txt" || fail "the reason is not named"
grep -q '^==> 1 of 1 trial failed: 1' "$WORK/unbound.txt" || fail "no total of the failures"
grep -q 'repeat trial 1: ./kv pair-run --chaos 1 --seed 2 ' "$WORK/unbound.txt" ||
    fail "no line to repeat a failed trial"
grep -q 'or its fault alone: ./kv pair-run --link-profile unlimited --fault detach\\ [a-z]*\\ messages' \
    "$WORK/unbound.txt" || fail "no line to make the failed trial's fault alone"

for wrong in "0" "2 --faults drop,bogus" "2 --profiles lte" "two"; do
    status=0
    # shellcheck disable=SC2086 # the words are options
    chaos $wrong "${CHAT[@]}" >"$WORK/usage.txt" 2>&1 || status=$?
    [ "$status" -eq 2 ] || fail "--chaos $wrong gave $status, not a usage error"
done
grep -q "needs a whole number, not 'two'" "$WORK/usage.txt" || fail "a bad count is not named"
echo "the chat sample passed its chaos trials, and failures are reported"
