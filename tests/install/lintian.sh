#!/usr/bin/env bash
# lintian finds nothing in the Debian packages beyond what the packages'
# override files (packaging/lintian-overrides/) explain, each with its
# reason: no error, no warning, no informational tag. An override that no
# longer matches anything is reported too.
#   lintian.sh PACKAGES_DIR
set -euo pipefail

OUT="$(cd "${1:?usage: lintian.sh PACKAGES_DIR}" && pwd)"

fail() {
    printf 'lintian test failed: %s\n' "$*" >&2
    exit 1
}

command -v lintian >/dev/null || fail "lintian is missing (./kv setup installs it)"
# Run as root (as CI runs), lintian says it would rather not be: that line
# is no finding.
status=0
raw="$(lintian --display-info --fail-on error,warning,info "$OUT"/*.deb 2>&1)" || status=$?
report="$(grep -vx 'running with root privileges is not recommended!' <<<"$raw" || true)"
[ "$status" -eq 0 ] && [ -z "$report" ] || fail "lintian (exit $status): $report"
echo "lintian: nothing unexplained in $(ls "$OUT"/*.deb | wc -l) packages"
