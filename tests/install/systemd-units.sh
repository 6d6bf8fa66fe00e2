#!/usr/bin/env bash
# The installed systemd units pass "systemd-analyze verify" (for an instance
# of the template, with the system unit's hardening drop-in), start the
# installed tool in the foreground on the instance's device folder, and
# bring the service back after a failure.
#   systemd-units.sh PREFIX
set -euo pipefail

PREFIX="$(cd "${1:?usage: systemd-units.sh PREFIX}" && pwd)"

fail() {
    printf 'systemd unit test failed: %s\n' "$*" >&2
    exit 1
}

command -v systemd-analyze >/dev/null || fail "systemd-analyze is missing (./kv setup installs systemd)"
WORK="$(mktemp -d "${TMPDIR:-/tmp}/kv-units.XXXXXX")"
trap 'rm -rf "$WORK"' EXIT
# An instance for the device folder /srv/kv/watch, next to its template and
# drop-in as systemd finds them.
instance="kv-accessoryd@$(systemd-escape --path /srv/kv/watch).service"
for manager in system user; do
    folder="$PREFIX/lib/systemd/$manager"
    unit="$folder/kv-accessoryd@.service"
    [ -f "$unit" ] || fail "no $manager unit at $unit"
    grep -qx "ExecStart=$PREFIX/bin/kv-accessory start %f --foreground" "$unit" ||
        fail "the $manager unit does not start the installed tool: $(grep ExecStart "$unit")"
    grep -qx 'Restart=on-failure' "$unit" || fail "the $manager unit does not restart on failure"
    mkdir -p "$WORK/$manager"
    cp -r "$folder/." "$WORK/$manager/"
    cp "$unit" "$WORK/$manager/$instance"
    options=()
    [ "$manager" = system ] || options=(--user)
    # verify also opens the units' Documentation= pages: the installed ones.
    report="$(XDG_RUNTIME_DIR="$WORK" MANPATH="$PREFIX/share/man" systemd-analyze "${options[@]}" verify \
        "$WORK/$manager/$instance" 2>&1)" || fail "systemd-analyze verify of the $manager unit: $report"
    [ -z "$report" ] || fail "systemd-analyze verify of the $manager unit says: $report"
done
# The system unit's drop-in is what makes it hardened; a key systemd does not
# know would only be warned about, so the check above catches it.
grep -qx 'ProtectSystem=strict' "$PREFIX/lib/systemd/system/kv-accessoryd@.service.d/hardening.conf" ||
    fail "the system unit's drop-in does not protect the system"
echo "verified $instance for the system and the user manager"
