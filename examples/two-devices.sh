#!/usr/bin/env bash
# Runs the demo: two emulated devices, a watch and a phone, linked through
# their accessory services; the watch runs the sensor app, the phone the
# monitor app, both web pages on their devices' screens, and the two find
# each other, connect, talk on every channel, stream the watch's readings,
# pass a file and close. Exits non-zero when anything of that goes wrong.
# The screens as each app ended are written to WORK_DIR/screens/; with
# --trace FILE, the timeline of both devices' services to FILE.
#   two-devices.sh [DIR [WORK_DIR]] [--trace FILE]
# DIR is the build folder or the installed prefix whose programs run; without
# it (or when it is empty) pair-run.sh takes its default: build/ of the
# repository, or, for the copy installed in PREFIX/share/kv/examples, PREFIX.
# The apps run under tools/pair-run.sh, which prints their transcript and the
# results; this script adds the report file that the phone sends and checks
# that it arrived whole. The samples' types are checked by the tests, not at
# each run.
set -euo pipefail

TRACE=()
POSITIONAL=()
while [ $# -gt 0 ]; do
    case "$1" in
        --trace) [ $# -ge 2 ] || { echo "two-devices.sh: --trace needs a file" >&2; exit 2; }
            TRACE=(--trace "$2"); shift 2 ;;
        *) POSITIONAL+=("$1"); shift ;;
    esac
done
PROGRAMS=()
if [ -n "${POSITIONAL[0]:-}" ]; then
    PROGRAMS=(--build "$(cd "${POSITIONAL[0]}" && pwd)")
fi
EXAMPLES="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
WORK="${POSITIONAL[1]:-$(mktemp -d "${TMPDIR:-/tmp}/kv-demo.XXXXXX")}"
TIMEOUT="${KV_DEMO_TIMEOUT:-60}"

fail() {
    printf 'demo failed: %s\n' "$*" >&2
    exit 1
}

mkdir -p "$WORK"
report="$WORK/report.txt"
printf 'heart rate 72, steps 4211\n' >"$report"

# On a display a person watches the two windows: they stay a few seconds once
# the apps are done.
APP_ARGS=()
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ "${KV_PAGE_DISPLAY:-}" != virtual ]; then
    APP_ARGS=(-- --linger 4000)
fi

status=0
"$EXAMPLES/../tools/pair-run.sh" "${PROGRAMS[@]}" --work "$WORK" --no-check --timeout "$TIMEOUT" \
    --screenshots "$WORK/screens" "${TRACE[@]}" --phone-file "$report" /opt/usr/media/Documents/report.txt \
    "$EXAMPLES/watch-sensor" "$EXAMPLES/phone-monitor" "${APP_ARGS[@]}" || status=$?
[ "$status" -eq 0 ] || fail "an app failed (see the results above)"

received="$WORK/watch/fs/opt/usr/media/Downloads/report.txt"
cmp -s "$report" "$received" || fail "the file did not arrive whole at $received"
for screen in watch phone; do
    [ -s "$WORK/screens/$screen.png" ] || fail "no picture of the $screen's screen at $WORK/screens/$screen.png"
done
echo
echo "the watch holds the phone's report at /opt/usr/media/Downloads/report.txt: $(cat "$received")"
echo "the screens as the apps ended: $WORK/screens/watch.png (the watch's readings), $WORK/screens/phone.png (the phone's finished transfer)"
