#!/usr/bin/env bash
# The system unit's hardening leaves the daemon what it needs: run as the
# unit runs it (its ExecStart, as root, with only the capabilities of the
# drop-in's CapabilityBoundingSet, no new privileges, and the system
# read-only but for the device folder, as ProtectSystem=strict with
# ReadWritePaths=%f makes it), the daemon enters its device (its /opt is the
# device's), serves, and ends cleanly on SIGTERM. Exits 77 (skipped) when not
# root, or where no mount namespace can be made.
#   systemd-hardening.sh PREFIX
set -euo pipefail

PREFIX="$(cd "${1:?usage: systemd-hardening.sh PREFIX}" && pwd)"
DROP_IN="$PREFIX/lib/systemd/system/kv-accessoryd@.service.d/hardening.conf"

fail() {
    printf 'systemd hardening test failed: %s\n' "$*" >&2
    exit 1
}

if [ "$(id -u)" != 0 ] || ! unshare --mount true 2>/dev/null; then
    echo "systemd hardening test skipped: it needs root and a mount namespace"
    exit 77
fi
# The bounding set in setpriv's words: CAP_SYS_ADMIN becomes +sys_admin.
capabilities="$(sed -n 's/^CapabilityBoundingSet=//p' "$DROP_IN")"
[ -n "$capabilities" ] || fail "the drop-in sets no CapabilityBoundingSet"
bounding="-all"
for capability in $capabilities; do
    name="${capability#CAP_}"
    bounding+=",+${name,,}"
done
grep -qx 'NoNewPrivileges=yes' "$PREFIX/lib/systemd/system/kv-accessoryd@.service" ||
    fail "the unit does not set NoNewPrivileges"

WORK="$(mktemp -d "${TMPDIR:-/tmp}/kv-hardening.XXXXXX")"
trap 'rm -rf "$WORK"' EXIT
device="$WORK/watch"
"$PREFIX/bin/kv-accessory" create "$device" "$WORK/phone" >/dev/null || fail "cannot create the device"

# Inside a mount namespace: the device folder writable, the rest read-only,
# then the unit's command with its privileges; prints how many mounts the
# daemon sees on /opt, and its exit code after SIGTERM.
run_as_unit='
    mount --bind "$1" "$1" && mount -o remount,bind,ro / || exit 1
    setpriv --no-new-privs --bounding-set "$2" --inh-caps=-all \
        "$3" start "$1" --foreground >"$1/unit.log" 2>&1 &
    daemon=$!
    for _ in $(seq 100); do [ -f "$1/accessoryd.pid" ] && break; sleep 0.05; done
    grep -c " /opt " "/proc/$daemon/mountinfo" || true
    kill -TERM "$daemon"
    status=0
    wait "$daemon" || status=$?
    echo "$status"
'
mapfile -t report < <(unshare --mount --propagation private bash -c "$run_as_unit" run-as-unit \
    "$device" "$bounding" "$PREFIX/bin/kv-accessory")
[ "${#report[@]}" -eq 2 ] || fail "the run reported: ${report[*]}"
grep -q 'accessory service of watch ready' "$device/unit.log" ||
    fail "the daemon did not serve: $(cat "$device/unit.log")"
! grep -q 'running outside the device' "$device/unit.log" ||
    fail "the daemon could not enter its device: $(grep 'outside' "$device/unit.log")"
[ "${report[0]}" -ge 1 ] || fail "the daemon's /opt is not the device's"
[ "${report[1]}" = 0 ] || fail "the daemon ended with ${report[1]} on SIGTERM"
echo "with $capabilities alone and a read-only system, the daemon entered its device"
