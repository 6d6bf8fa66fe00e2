#!/usr/bin/env bash
# The demo, run by the copy of two-devices.sh installed in share/kv/examples,
# with nothing but the installed tree: the prefix is copied to another path
# (so nothing can lean on the path it was installed to), and the run happens
# in a mount namespace where the source and build folders are covered by
# empty ones (so nothing can fall back to the build). Exits 77 (skipped)
# where no mount namespace can be made.
#   installed-demo.sh SOURCE_DIR BUILD_DIR PREFIX
set -euo pipefail

SOURCE="$(cd "${1:?usage: installed-demo.sh SOURCE_DIR BUILD_DIR PREFIX}" && pwd)"
BUILD="$(cd "${2:?build folder}" && pwd)"
PREFIX="$(cd "${3:?prefix}" && pwd)"

fail() {
    printf 'installed demo failed: %s\n' "$*" >&2
    exit 1
}

# Root gets a mount namespace of its own; another user gets one inside a
# user namespace in which it is root.
NAMESPACE=(unshare --mount --propagation private)
[ "$(id -u)" = 0 ] || NAMESPACE=(unshare --user --map-root-user --mount --propagation private)
if ! "${NAMESPACE[@]}" true 2>/dev/null; then
    echo "installed demo skipped: no mount namespace can be made here"
    exit 77
fi

WORK="$(mktemp -d "${TMPDIR:-/tmp}/kv-installed-demo.XXXXXX")"
trap 'rm -rf "$WORK"' EXIT
cp -a "$PREFIX" "$WORK/prefix"

# Inside: the build and source folders hidden (the build first, as it may
# lie in the sources), the working folder out of them, then the installed
# demo, with none of the variables that point programs elsewhere.
hide_and_run='
    for folder in "$2" "$1"; do
        mount -t tmpfs -o ro,size=4k kv-hidden "$folder" || exit 1
    done
    cd /
    [ ! -e "$1/CMakeLists.txt" ] && [ ! -e "$2/CMakeCache.txt" ] || exit 1
    exec "$3/share/kv/examples/two-devices.sh" "" "$4"
'
status=0
env -u KV_BUILD -u KV_PLUGIN_DIR -u KV_PAGE_EXTENSION_DIR -u KV_PAGE_HOST -u KV_ACCESSORYD \
    "${NAMESPACE[@]}" bash -c "$hide_and_run" hide-and-run "$SOURCE" "$BUILD" "$WORK/prefix" \
    "$WORK/demo" || status=$?
[ "$status" -eq 0 ] || fail "the installed demo exited with $status"
grep -q 'heart rate 72' "$WORK/demo/watch/fs/opt/usr/media/Downloads/report.txt" ||
    fail "the watch holds no report from the phone"
echo "the demo ran from $WORK/prefix with the source and build folders hidden"
