#!/usr/bin/env bash
# The ./kv wrapper and its shell tools behave like every program of the
# project (platform/cli/README.md): --help on stdout with 0, --version as
# "<program> <version>" with 0, a usage error as one line on stderr that names
# what is wrong, with 2.
#   kv-command-line.sh SOURCE_DIR
set -uo pipefail

SOURCE="$(cd "${1:?usage: kv-command-line.sh SOURCE_DIR}" && pwd)"
failures=0

# expect WHAT CODE STREAM PATTERN -- COMMAND...: the command exits with CODE
# and its stdout or stderr (STREAM) matches the extended regular expression.
expect() {
    local what="$1" code="$2" stream="$3" pattern="$4"
    shift 5
    local out err status
    out="$("$@" 2>/tmp/kv-cli-err.$$)"
    status=$?
    err="$(cat /tmp/kv-cli-err.$$)"
    rm -f /tmp/kv-cli-err.$$
    local text="$out"
    [ "$stream" = stderr ] && text="$err"
    if [ "$status" -ne "$code" ] || ! grep -Eq -- "$pattern" <<<"$text"; then
        printf 'FAIL: %s: exit %s (wanted %s)\n  stdout: %s\n  stderr: %s\n' \
            "$what" "$status" "$code" "$out" "$err"
        failures=$((failures + 1))
    else
        printf 'ok: %s\n' "$what"
    fi
}

cd "$SOURCE"
version="$(sed -n 's/^project(kv VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)"
expect "./kv --help" 0 stdout '^One entry point' -- ./kv --help
expect "./kv -h" 0 stdout '\./kv demo' -- ./kv -h
expect "./kv --version" 0 stdout "^kv $version\$" -- ./kv --version
expect "./kv alone" 2 stderr "^kv: a command is needed; try '\./kv --help'\$" -- ./kv
expect "./kv frob" 2 stderr "^kv: unknown command 'frob'; try '\./kv --help'\$" -- ./kv frob
expect "./kv test --frob" 2 stderr "^kv: unknown option '--frob' for test; try" -- ./kv test --frob
expect "./kv fuzz" 2 stderr "^kv: fuzz needs a whole number of SECONDS" -- ./kv fuzz
expect "./kv repeat" 2 stderr "^kv: repeat needs a number of RUNS" -- ./kv repeat
expect "./kv repeat 0" 2 stderr "^kv: repeat needs a number of RUNS" -- ./kv repeat 0
expect "./kv repeat 3 --frob" 2 stderr "^kv: unknown option '--frob' for repeat; try" -- ./kv repeat 3 --frob
expect "./kv soak frob" 2 stderr "^kv: soak has no part 'frob' \(parts: delivery files recovery sessions chaos faults\)" -- ./kv soak chaos frob
expect "./kv pair-run --help" 0 stdout '^Runs two apps' -- ./kv pair-run --help
expect "./kv pair-run --version" 0 stdout "^kv pair-run $version\$" -- ./kv pair-run --version
expect "./kv pair-run one app" 2 stderr "^kv pair-run: two app folders are needed.*try '\./kv pair-run --help'" -- ./kv pair-run examples/watch-sensor
expect "./kv pair-run --timeout x" 2 stderr "^kv pair-run: --timeout needs a whole number of seconds, not 'x'" -- ./kv pair-run --timeout x a b
expect "./kv pair-run --frob" 2 stderr "^kv pair-run: unknown option '--frob'" -- ./kv pair-run --frob a b
expect "./kv new --help" 0 stdout '^Writes a new app folder' -- ./kv new --help
expect "./kv new --version" 0 stdout "^kv new $version\$" -- ./kv new --version
expect "./kv new x" 2 stderr "^kv new: say --provider or --consumer; try '\./kv new --help'\$" -- ./kv new x
expect "./kv new --frob" 2 stderr "^kv new: unknown option '--frob'" -- ./kv new x --frob

if [ "$failures" -gt 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "the wrapper and its tools answer as every program does"
