#!/usr/bin/env bash
# Checks the type declarations of webapis.kv (types/index.d.ts) against the
# apps of the repository with the TypeScript compiler, and checks that they
# catch mistakes.
#   check-types.sh SOURCE_DIR
#
# 1. The sample apps (examples/*), the two-device test apps (tests/e2e/apps/*),
#    the apps that "./kv new" writes (scripts and pages), and the host's test
#    apps (tests/host/apps/*, tests/page/apps/*, with the test plug-ins'
#    globals of tests/types/test-globals.d.ts) must compile without an error:
#    script apps against types/index.d.ts, apps that are pages (their
#    config.xml's content is an HTML page) against types/page.d.ts with the
#    DOM library. The plug-in's script tests (tests/plugin/apps) are left out: they
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
PAGE_TYPES="$SOURCE/types/page.d.ts"
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

# The script host's own globals stand in types/index.d.ts: no DOM library;
# pages have the engine's. Every file is a module of its own, so that the
# apps' top-level names don't meet.
OPTIONS=(--noEmit --checkJs --allowJs --lib es2020 --target es2020 --moduleDetection force
    --pretty false)
PAGE_OPTIONS=(--noEmit --checkJs --allowJs --lib es2020,dom --target es2020
    --moduleDetection force --pretty false)

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
"$SOURCE/tools/new-app.sh" scaffold-page-provider --provider --page "$scratch/page-provider" >/dev/null
"$SOURCE/tools/new-app.sh" scaffold-page-consumer --consumer --page "$scratch/page-consumer" >/dev/null

# Whether the app folder's content is an HTML page.
is_page() {
    grep -Eq '<content[^>]+src="[^"]+\.(html|htm|xhtml)"' "$1/config.xml"
}

# The scripts of the app folders given, those of pages or of script apps.
scripts_of() {
    local kind="$1" folder
    shift
    for folder in "$@"; do
        if { [ "$kind" = page ] && is_page "$folder"; } || { [ "$kind" = script ] && ! is_page "$folder"; }; then
            find "$folder" -name '*.js' -not -path '*/node_modules/*' | sort
        fi
    done
}

# Checks the scripts of one kind of app with the declarations of that kind.
check_apps() {
    local what="$1" kind="$2" globals="$3"
    shift 3
    local scripts types=("$TYPES") options=("${OPTIONS[@]}")
    mapfile -t scripts < <(scripts_of "$kind" "$@")
    [ "${#scripts[@]}" -gt 0 ] || return 0
    if [ "$kind" = page ]; then
        types=("$PAGE_TYPES")
        options=("${PAGE_OPTIONS[@]}")
    fi
    [ -z "$globals" ] || types+=("$globals")
    echo "checking ${#scripts[@]} scripts of $what ($kind apps)"
    if ! "$TSC" "${options[@]}" "${types[@]}" "${scripts[@]}"; then
        fail "the $kind apps of $what do not compile against ${types[0]#"$SOURCE/"}"
    fi
}

apps=("$SOURCE"/examples/*/ "$SOURCE"/tests/e2e/apps/*/ "$scratch"/*/)
check_apps "the samples, the two-device tests and the scaffold" script "" "${apps[@]}"
check_apps "the samples, the two-device tests and the scaffold" page "" "${apps[@]}"
host_apps=("$SOURCE"/tests/host/apps/*/ "$SOURCE"/tests/page/apps/*/)
check_apps "the host tests" script "$TEST_GLOBALS" "${host_apps[@]}"
check_apps "the host tests" page "$TEST_GLOBALS" "${host_apps[@]}"

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
