#!/usr/bin/env bash
# Checks apps' scripts against the type declarations of webapis.kv and of the
# runtime, with the TypeScript compiler: a script app against
# types/index.d.ts, an app that is a page (its config.xml's content is an
# HTML page) against types/page.d.ts with the DOM library.
#
#   kv check APP_FOLDER...
#   kv check --help | --version
#
# Prints what the compiler finds, with files and lines. Exits with 0 when
# every app passes, 1 when one does not, 2 on a usage error, and 77 when no
# TypeScript compiler is installed (./kv setup installs it into
# tools/node_modules).
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
CLI_PROGRAM="kv check"
CLI_COMMAND="./kv check"
CLI_SCRIPT="${BASH_SOURCE[0]}"
# shellcheck source=tools/cli.sh
. "$ROOT/tools/cli.sh"
cli_answer_help_and_version "$@"

[ $# -gt 0 ] || cli_usage_error "an app folder is needed"
for app in "$@"; do
    case "$app" in
        -*) cli_usage_error "unknown option '$app'" ;;
    esac
    [ -f "$app/config.xml" ] || cli_usage_error "$app is no app folder (it has no config.xml)"
done

if [ -x "$ROOT/tools/node_modules/.bin/tsc" ]; then
    TSC="$ROOT/tools/node_modules/.bin/tsc"
elif command -v tsc >/dev/null 2>&1; then
    TSC="$(command -v tsc)"
else
    echo "kv check: no TypeScript compiler; ./kv setup installs it into tools/node_modules" >&2
    exit 77
fi

# Whether the app folder's content is an HTML page.
is_page() {
    grep -Eq '<content[^>]+src="[^"]+\.(html|htm|xhtml)"' "$1/config.xml"
}

# Each kind of app in one run of the compiler (it is slow to start): its
# scripts, each a module of its own, with the kind's declarations.
page_scripts=()
script_scripts=()
for app in "$@"; do
    mapfile -t scripts < <(find "$app" -name '*.js' -not -path '*/node_modules/*' | sort)
    if is_page "$app"; then
        page_scripts+=("${scripts[@]}")
    else
        script_scripts+=("${scripts[@]}")
    fi
done

status=0
if [ "${#script_scripts[@]}" -gt 0 ]; then
    "$TSC" --noEmit --checkJs --allowJs --lib es2020 --target es2020 --moduleDetection force \
        --pretty false "$ROOT/types/index.d.ts" "${script_scripts[@]}" || status=1
fi
if [ "${#page_scripts[@]}" -gt 0 ]; then
    "$TSC" --noEmit --checkJs --allowJs --lib es2020,dom --target es2020 --moduleDetection force \
        --pretty false "$ROOT/types/page.d.ts" "${page_scripts[@]}" || status=1
fi
exit "$status"
