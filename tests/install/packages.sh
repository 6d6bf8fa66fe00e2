#!/usr/bin/env bash
# Builds the Debian packages as "./kv package" does (CPack), into OUT (made
# afresh), and checks that the five packages are there.
#   packages.sh BUILD_DIR OUT
set -euo pipefail

BUILD="$(cd "${1:?usage: packages.sh BUILD_DIR OUT}" && pwd)"
OUT="${2:?output folder}"

fail() {
    printf 'package test failed: %s\n' "$*" >&2
    exit 1
}

rm -rf "$OUT"
mkdir -p "$OUT"
cpack --config "$BUILD/CPackConfig.cmake" -B "$OUT" >"$OUT/cpack.log" 2>&1 ||
    fail "cpack failed: $(tail -20 "$OUT/cpack.log")"
for package in kv-accessory libkvp-client-stub-api1 libkvp-client-stub-api-dev kv-runtime kv-samples; do
    compgen -G "$OUT/${package}_*.deb" >/dev/null || fail "no package $package in $OUT"
done
ls "$OUT"/*.deb
