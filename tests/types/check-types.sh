#!/usr/bin/env bash
# Checks the type declarations of webapis.kv (types/index.d.ts) against the
# apps of the repository with the TypeScript compiler, and checks that they
# catch mistakes.
#   check-types.sh SOURCE_DIR
#
# 1. The sample apps (examples/*/main.js), the two-device test apps
#    (tests/e2e/apps/*/main.js), the apps that "./kv new" writes, and the
#    host's script test apps (tests/host/apps/*/main.js, with the test
#    plug-ins' globals of tests/types/test-globals.d.ts) must compile without
#    an error. The plug-in's script tests (tests/plugin/apps) are left out: they
#    call methods with wrong arguments on purpose, to test the errors that
#    answer them.
# 2. Each snippet of tests/types/wrong/ must fail to compile with the error
#    code that its first line names ("// expect TS2367: ...").
#
# Exits with 77 (skipped) when no TypeScript compiler is installed: "./kv
# setup" installs one into tools/node_modules.
set -euo pipefail

SOURCE="$(cd "${1:?usage: check-types.sh SOURCE_DIR}" && pwd)"
TYPES="$SOURCE/types/index.d.ts"
TEST_GLOBALS="$SOURCE/tests/types/test-globals.d.ts"

if [ -x "$SOURCE/tools/node_modules/.bin/tsc" ]; then
    TSC="$SOURCE/tools/node_modules/.bin/tsc"
elif command -v tsc >/dev/null 2>&1; then
    TSC="$(command -v tsc)"
else
    echo "type check skipped: no TypeScript compiler (tools/node_modules/.bin/tsc or tsc on PATH);"
    echo "./kv setup installs it from the npm registry"
    exit 77
fi
echo "using $TSC ($("$TSC" --version))"

# The host's own globals stand in types/index.d.ts: no DOM library. Every
# file is a module of its own, so that the apps' top-level names don't meet.
OPTIONS=(--noEmit --checkJs --allowJs --lib es2020 --target es2020 --moduleDetection force
    --pretty false)

failures=0
fail() {
    printf 'FAIL: %s\n' "$*"
    failures=$((failures + 1))
}

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

# The apps that the scaffold writes.
"$SOURCE/tools/new-app.sh" scaffold-provider --provider "$scratch/provider" >/dev/null
"$SOURCE/tools/new-app.sh" scaffold-consumer --consumer "$scratch/consumer" >/dev/null

apps=("$SOURCE"/examples/*/main.js "$SOURCE"/tests/e2e/apps/*/main.js "$scratch"/*/main.js)
echo "checking ${#apps[@]} apps"
if ! "$TSC" "${OPTIONS[@]}" "$TYPES" "${apps[@]}"; then
    fail "the apps do not compile against types/index.d.ts"
fi

host_apps=("$SOURCE"/tests/host/apps/*/main.js)
echo "checking ${#host_apps[@]} host test apps"
if ! "$TSC" "${OPTIONS[@]}" "$TYPES" "$TEST_GLOBALS" "${host_apps[@]}"; then
    fail "the host test apps do not compile against types/index.d.ts"
fi

for snippet in "$SOURCE"/tests/types/wrong/*.js; do
    expected="$(sed -n '1s/^\/\/ expect \(TS[0-9]*\):.*/\1/p' "$snippet")"
    name="$(basename "$snippet")"
    if [ -z "$expected" ]; then
        fail "$name names no expected error on its first line"
        continue
    fi
    if output="$("$TSC" "${OPTIONS[@]}" "$TYPES" "$snippet" 2>&1)"; then
        fail "$name compiled, but must fail with $expected"
    elif ! grep -q "error $expected:" <<<"$output"; then
        fail "$name failed without $expected:"
        printf '%s\n' "$output"
    else
        echo "$name fails as it must: $(grep -m1 "error $expected:" <<<"$output" | sed 's/^.*error //')"
    fi
done

if [ "$failures" -gt 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "the declarations fit every app and catch every wrong snippet"
