#!/usr/bin/env bash
# A C program of another project builds against the installed tree with
# nothing but "pkg-config --cflags --libs kvp-client-stub-api", links the
# installed client library, and talks to a running daemon: the installed
# kv-accessory pairs two devices, and the program sees the watch attached,
# then detached once the phone drops its link.
#   client-program.sh PREFIX PROGRAM_SOURCE WORK_DIR
set -euo pipefail

PREFIX="$(cd "${1:?usage: client-program.sh PREFIX PROGRAM_SOURCE WORK_DIR}" && pwd)"
PROGRAM_SOURCE="${2:?program source}"
WORK="${3:?work folder}"
ACCESSORY="$PREFIX/bin/kv-accessory"

fail() {
    printf 'client program test failed: %s\n' "$*" >&2
    exit 1
}

rm -rf "$WORK"
mkdir -p "$WORK"
pc_file="$(find "$PREFIX" -name kvp-client-stub-api.pc -print -quit)"
[ -n "$pc_file" ] || fail "no kvp-client-stub-api.pc in $PREFIX"
export PKG_CONFIG_PATH="$(dirname "$pc_file")"
read -r -a flags < <(pkg-config --cflags --libs kvp-client-stub-api) ||
    fail "pkg-config does not know kvp-client-stub-api"
cc -std=c99 -Wall -Wextra -Werror -o "$WORK/client-program" "$PROGRAM_SOURCE" "${flags[@]}" ||
    fail "the program does not build with: ${flags[*]}"
LIBDIR="$(pkg-config --variable=libdir kvp-client-stub-api)"

stop_devices() { "$ACCESSORY" stop "$WORK/watch" "$WORK/phone" >/dev/null 2>&1 || true; }
trap stop_devices EXIT
"$ACCESSORY" create "$WORK/watch" "$WORK/phone" >/dev/null || fail "cannot create the devices"
"$ACCESSORY" pair "$WORK/watch" "$WORK/phone" >/dev/null || fail "cannot pair the devices"

# What the program prints on the watch (the library finds the daemon
# through KV_DEVICE; the system finds the library through LD_LIBRARY_PATH,
# as for any library outside its default folders).
ask() {
    KV_DEVICE="$WORK/watch" KV_LOG_LEVEL=SILENT LD_LIBRARY_PATH="$LIBDIR" "$WORK/client-program"
}
answer="$(ask)" || fail "the program failed"
[ "$answer" = attached ] || fail "with both daemons linked the program says '$answer'"
"$ACCESSORY" detach "$WORK/phone" >/dev/null || fail "cannot detach the phone"
for _ in $(seq 50); do
    answer="$(ask)" || fail "the program failed"
    [ "$answer" = detached ] && break
    sleep 0.1
done
[ "$answer" = detached ] || fail "after the detach the program still says '$answer'"
echo "built with: ${flags[*]}; the program saw the watch attached, then detached"
