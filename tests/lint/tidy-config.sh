#!/usr/bin/env bash
# Checks the project's clang-tidy configuration (.clang-tidy) itself, on
# snippets written into a scratch folder:
#   tidy-config.sh SOURCE_DIR
# 1. A clean file passes.
# 2. A warning fails the run (warnings are errors), and an exception that can
#    leave a function marked noexcept is one of them.
# 3. Our headers are checked, the generated Protocol Buffers headers (".pb.h")
#    are not, even in a folder of ours.
# Exits with 77 (skipped) when the lint's clang-tidy is not installed.
set -euo pipefail

SOURCE="$(cd "${1:?usage: tidy-config.sh SOURCE_DIR}" && pwd)"
TIDY="$SOURCE/tools/tidy.sh"
"$TIDY" --version >/dev/null 2>&1 || { echo "the lint's clang-tidy is not installed"; exit 77; }

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/build/accessory" "$scratch/accessory"
failures=0

# Runs clang-tidy with the project's configuration; prints its output and
# returns its exit status.
tidy() {
    "$TIDY" --config-file="$SOURCE/.clang-tidy" "$@" -- -std=c++20 \
        -I"$scratch/accessory" -I"$scratch/build/accessory" 2>&1
}

expect() {
    local what="$1" wanted="$2" file="$3" pattern="${4:-}" output status=0
    output="$(tidy "$file")" || status=$?
    if [ "$wanted" = pass ] && [ "$status" -ne 0 ]; then
        echo "FAIL: $what: clang-tidy failed:"; echo "$output"; failures=$((failures + 1))
    elif [ "$wanted" = fail ] && [ "$status" -eq 0 ]; then
        echo "FAIL: $what: clang-tidy passed:"; echo "$output"; failures=$((failures + 1))
    elif [ -n "$pattern" ] && ! grep -q -- "$pattern" <<<"$output"; then
        echo "FAIL: $what: no '$pattern' in:"; echo "$output"; failures=$((failures + 1))
    else
        echo "ok: $what"
    fi
}

cat >"$scratch/clean.cpp" <<'CPP'
#include <string>
std::string greeting(const std::string& name) { return "hello " + name; }
CPP
expect "a clean file passes" pass "$scratch/clean.cpp"

cat >"$scratch/escape.cpp" <<'CPP'
#include <stdexcept>
extern "C" void callback() noexcept { throw std::runtime_error("into C"); }
CPP
expect "an exception escaping into C fails the lint" fail "$scratch/escape.cpp" \
    "bugprone-exception-escape"

# A header of ours and a generated one, each with a statement without braces.
for header in accessory/Ours.h build/accessory/wire.pb.h; do
    name="$(basename "$header" | tr '.' '_')"
    cat >"$scratch/$header" <<CPP
inline int ${name}(int x) {
    if (x > 0) return x;
    return -x;
}
CPP
done
printf '#include "Ours.h"\nint use(int x) { return Ours_h(x); }\n' >"$scratch/ours.cpp"
expect "a warning in a header of ours fails the lint" fail "$scratch/ours.cpp" \
    "readability-braces-around-statements"
printf '#include "wire.pb.h"\nint use(int x) { return wire_pb_h(x); }\n' >"$scratch/generated.cpp"
expect "a generated header is not checked" pass "$scratch/generated.cpp"

exit $((failures > 0))
