#!/usr/bin/env bash
# The Debian packages install with dpkg into a throw-away root (dpkg --root,
# no network: Debian's libraries come from this machine, so their
# dependencies are not checked there), and the installed programs run from
# it: they find each other, their libraries, the plug-in and the extension
# under the root's /usr. Then they are removed again, leaving no file.
#   package-root.sh PACKAGES_DIR
set -euo pipefail

OUT="$(cd "${1:?usage: package-root.sh PACKAGES_DIR}" && pwd)"

fail() {
    printf 'package root test failed: %s\n' "$*" >&2
    exit 1
}

ROOT="$(mktemp -d "${TMPDIR:-/tmp}/kv-root.XXXXXX")"
trap 'rm -rf "$ROOT"' EXIT
mkdir -p "$ROOT/var/lib/dpkg/info" "$ROOT/var/lib/dpkg/updates"
touch "$ROOT/var/lib/dpkg/status"
DPKG=(dpkg --root="$ROOT" --force-depends --force-not-root --force-script-chrootless --log=/dev/null)
"${DPKG[@]}" -i "$OUT"/*.deb >"$ROOT.log" 2>&1 || fail "dpkg -i: $(cat "$ROOT.log")"
installed="$("${DPKG[@]}" -l | awk '/^ii/ { print $2 }' | sort | tr '\n' ' ')"
[ "$installed" = "kv-accessory kv-runtime kv-samples libkvp-client-stub-api-dev libkvp-client-stub-api1 " ] ||
    fail "dpkg lists as installed: $installed"

USR="$ROOT/usr"
for program in kv-accessory kv-runtime kv-page-host kv-device kv-vconf; do
    "$USR/bin/$program" --version >/dev/null || fail "$program does not run from the root"
done
"$USR/libexec/kv/kv-accessoryd" --version >/dev/null || fail "the daemon does not run from the root"
device="$ROOT/device"
"$USR/bin/kv-device" --device "$device" create >/dev/null || fail "kv-device create"
app="$("$USR/bin/kv-runtime" --device "$device" install "$USR/share/kv/examples/watch-sensor")" ||
    fail "kv-runtime install of the packaged sample"
[ "$app" = wsensor01.WatchSensor ] || fail "the sample installed as '$app'"
# A script app run from the root gets the packaged plug-in's object: the
# runtime found its plug-in folder under the root's /usr.
hello="$ROOT/hello"
mkdir -p "$hello"
cat >"$hello/config.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<widget id="http://example.org/hello" version="1.0">
  <name>Hello</name>
  <application id="hello0001.Hello" package="hello0001"/>
  <privilege name="http://kv-project.org/privilege/accessory"/>
  <content src="main.js"/>
</widget>
XML
printf '%s\n' "console.log('webapis.kv is', typeof webapis.kv);" 'runtime.exit(0);' >"$hello/main.js"
"$USR/bin/kv-runtime" --device "$device" install "$hello" >/dev/null || fail "kv-runtime install"
said="$(KV_LOG_LEVEL=SILENT "$USR/bin/kv-runtime" --device "$device" run hello0001.Hello --timeout 20 2>&1)" ||
    fail "the app did not run from the root: $said"
grep -q 'webapis.kv is object' <<<"$said" || fail "the app run from the root has no plug-in: $said"

"${DPKG[@]}" -r kv-samples kv-runtime libkvp-client-stub-api-dev libkvp-client-stub-api1 kv-accessory \
    >"$ROOT.log" 2>&1 || fail "dpkg -r: $(cat "$ROOT.log")"
rm -f "$ROOT.log"
left=""
[ ! -d "$USR" ] || left="$(find "$USR" -type f | head -5)"
[ -z "$left" ] || fail "files left after the removal: $left"
echo "installed into a throw-away root, ran from it, removed cleanly"
