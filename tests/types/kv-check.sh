#!/usr/bin/env bash
# ./kv check: a page app and a script app written by ./kv new pass; the same
# apps with a misspelled listener attribute fail, naming the file and line;
# pair-run stops before the devices start on such an app. Skipped (77)
# without a TypeScript compiler.
#   kv-check.sh SOURCE_DIR
set -uo pipefail

SOURCE="$(cd "${1:?usage: kv-check.sh SOURCE_DIR}" && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() {
    printf 'FAIL: %s\n' "$*"
    failures=$((failures + 1))
}

"$SOURCE/tools/new-app.sh" page-phone --consumer --page "$scratch/page-phone" >/dev/null
"$SOURCE/tools/new-app.sh" script-phone --consumer "$scratch/script-phone" >/dev/null
"$SOURCE/tools/check-apps.sh" "$scratch/page-phone" "$scratch/script-phone"
status=$?
[ "$status" -eq 77 ] && { echo "skipped: no TypeScript compiler"; exit 77; }
[ "$status" -eq 0 ] || fail "the scaffold's apps do not pass (exit $status)"

for app in page-phone script-phone; do
    sed -i 's/onpeeragentupdated/onPeerAgentUpdated/' "$scratch/$app/main.js"
    output="$("$SOURCE/tools/check-apps.sh" "$scratch/$app" 2>&1)"
    status=$?
    [ "$status" -eq 1 ] || fail "$app with a misspelled attribute: exit $status, not 1"
    grep -Eq "$app/main.js\([0-9]+,[0-9]+\): error TS2561: .*onPeerAgentUpdated" <<<"$output" ||
        fail "$app: the error does not name the file, the line and the attribute: $output"
done

output="$("$SOURCE/tools/pair-run.sh" --build /nonexistent "$scratch/page-phone" "$scratch/page-phone" 2>&1)"
grep -q "the apps do not pass the type check" <<<"$output" ||
    fail "pair-run went on with an app that does not pass: $output"

"$SOURCE/tools/check-apps.sh" "$scratch/none" >/dev/null 2>&1
[ $? -eq 2 ] || fail "a folder without config.xml is not a usage error"

if [ "$failures" -gt 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "./kv check passes the scaffold's apps and names each mistake"
