#!/usr/bin/env bash
# Runs two apps on a fresh pair of emulated devices and shows what they did.
#
#   kv pair-run [OPTIONS] APP_A APP_B [-- ARGUMENT...]
#   kv pair-run --chaos N [CHAOS OPTIONS] [OPTIONS] APP_A APP_B [-- ARGUMENT...]
#   kv pair-run --help | --version
#
# APP_A is installed on a fresh "watch" (a round 360x360 screen), APP_B on a
# fresh "phone" (412x892); the two devices are paired and their accessory
# services linked over TLS on loopback. Each app runs with the ARGUMENTs as
# runtime.args. The app whose service profile declares a provider starts
# first, and the other once the provider's agents are registered with its
# device's service, so that the consumer's first search finds them (when both
# or neither declare one, or with --together, both start at once). An app whose content is an HTML page runs as a
# page, in a window the size of its device's screen: with a display, the two
# windows stand side by side; without one, each goes to a virtual display.
# When both have ended, one transcript of their output is printed, in time
# order (milliseconds since the start, device, app, line), followed by the
# results: each app's exit code, the files in the devices' media folders with
# their sizes and SHA-256 checksums, and where the devices and logs are.
#
# Options:
#   --build DIR            the build folder, or an installed prefix, whose programs run (default:
#                          $KV_BUILD, else the prefix of an installed copy of this tool, else
#                          build/ of the repository)
#   --work DIR             the folder for the devices and logs (default: a new one under /tmp);
#                          its watch/ and phone/ folders are made afresh
#   --timeout SECONDS      stop an app that runs longer (default 60; exit code 124)
#   --watch-file FILE PATH put a copy of FILE at the device path PATH of the watch before
#   --phone-file FILE PATH   the apps start (e.g. /opt/usr/media/Documents/report.txt)
#   --insecure             link the devices over plain TCP instead of TLS
#   --link-profile NAME    emulate that link: unlimited (default), wifi, usb, bt, ble
#   --keylog FILE          both services append the link's TLS secrets to FILE, to read a
#                          capture of the link (docs/debugging.md); for debugging only
#   --fault LINE           make one link fault while the apps run (tools/link-fault.sh
#                          says how LINE reads, e.g. "long-stall phone messages 12 104");
#                          what happened goes to fault.txt in the work folder
#   --keep-devices         leave both devices' services running at the end
#   --trace FILE           follow both services while the apps run (kv-accessory trace) and
#                          write their merged timeline to FILE, in the trace-event JSON that
#                          Perfetto and chrome://tracing open; each device's trace stays
#                          in the work folder as watch.trace.jsonl and phone.trace.jsonl
#   --screenshots DIR      write PNGs of the screens of page apps: DIR/watch.png and
#                          DIR/phone.png when each app ends
#   --every MS             and one every MS milliseconds, DIR/watch/<ms>.png, DIR/phone/<ms>.png
#   --together             start both apps at once, whatever their roles (to test what
#                          a consumer does when its first search finds nothing)
#   --verbose              platform logs go into the transcript instead of log files
#   --no-check             do not check the apps' scripts against the type declarations first
#                          (./kv check; a mistake it finds stops the run before the devices start)
#
# With --chaos N the pair runs once without a fault, then goes through N
# trials, each on fresh devices, with one random fault at a random point of
# what it did in that first run (tools/pair-chaos.sh; --chaos --help lists
# its options).
#
# Exits with 0 when both apps ended with 0, 1 when one did not, 2 on a usage
# error (one line that names it).
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

CLI_PROGRAM="kv pair-run"
CLI_COMMAND="./kv pair-run"
CLI_SCRIPT="${BASH_SOURCE[0]}"
# shellcheck source=tools/cli.sh
. "$ROOT/tools/cli.sh"
for argument in "$@"; do
    [ "$argument" != -- ] || break
    [ "$argument" != --chaos ] || exec "$ROOT/tools/pair-chaos.sh" "$@"
done
cli_answer_help_and_version "$@"
# shellcheck source=tools/link-fault.sh
. "$ROOT/tools/link-fault.sh"
# shellcheck source=tools/app-profile.sh
. "$ROOT/tools/app-profile.sh"
# shellcheck source=tools/programs.sh
. "$ROOT/tools/programs.sh"

# A value an option needs: "needs" says what it must be.
need() {
    local option="$1" count="$2" needs="$3"
    [ "$count" -ge 2 ] || cli_usage_error "$option needs $needs"
}
fail() {
    printf 'pair-run: %s\n' "$*" >&2
    exit 1
}

BUILD="$(kv_default_programs)"
WORK=""
TIMEOUT=60
INSECURE=()
LINK_PROFILE=()
KEYLOG=()
FAULT=""
KEEP_DEVICES=0
TRACE=""
LINK_BOUND_SECONDS="${KV_LINK_BOUND_SECONDS:-10}"
VERBOSE=0
TOGETHER=0
CHECK=1
SCREENSHOTS=""
EVERY=""
WATCH_FILES=()
PHONE_FILES=()
APPS=()
ARGS=()

while [ $# -gt 0 ]; do
    case "$1" in
        --build) need "$1" $# "a build folder or an installed prefix"; BUILD="$2"; shift 2 ;;
        --work) need "$1" $# "a folder"; WORK="$2"; shift 2 ;;
        --timeout)
            need "$1" $# "a whole number of seconds"
            [[ "$2" =~ ^[0-9]+$ ]] || cli_usage_error "--timeout needs a whole number of seconds, not '$2'"
            TIMEOUT="$2"; shift 2 ;;
        --watch-file | --phone-file)
            [ $# -ge 3 ] || cli_usage_error "$1 needs a FILE and a device PATH"
            if [ "$1" = --watch-file ]; then WATCH_FILES+=("$2" "$3"); else PHONE_FILES+=("$2" "$3"); fi
            shift 3 ;;
        --insecure) INSECURE=(--insecure); shift ;;
        --link-profile) need "$1" $# "a link profile"; LINK_PROFILE=(--link-profile "$2"); shift 2 ;;
        --keylog) need "$1" $# "a file"; KEYLOG=(--keylog "$2"); shift 2 ;;
        --fault) need "$1" $# "a fault line"; FAULT="$2"; shift 2 ;;
        --keep-devices) KEEP_DEVICES=1; shift ;;
        --trace) need "$1" $# "a file for the timeline"; TRACE="$2"; shift 2 ;;
        --screenshots) need "$1" $# "a folder"; SCREENSHOTS="$2"; shift 2 ;;
        --every)
            need "$1" $# "a number of milliseconds"
            [[ "$2" =~ ^[0-9]+$ ]] || cli_usage_error "--every needs a number of milliseconds, not '$2'"
            EVERY="$2"; shift 2 ;;
        --verbose) VERBOSE=1; shift ;;
        --together) TOGETHER=1; shift ;;
        --no-check) CHECK=0; shift ;;
        --) shift; ARGS=("$@"); break ;;
        -*) cli_usage_error "unknown option '$1'" ;;
        *) APPS+=("$1"); shift ;;
    esac
done
[ "${#APPS[@]}" -eq 2 ] ||
    cli_usage_error "two app folders are needed (a watch app and a phone app), not ${#APPS[@]}"
[ -z "$EVERY" ] || [ -n "$SCREENSHOTS" ] || cli_usage_error "--every goes with --screenshots DIR"

for app in "${APPS[@]}"; do
    [ -f "$app/config.xml" ] || fail "$app is no app folder (it has no config.xml)"
done

say() { printf '==> %s\n' "$*"; }

# A mistake in an app's scripts stops the run before anything starts.
if [ "$CHECK" = 1 ]; then
    check_status=0
    "$ROOT/tools/check-apps.sh" "${APPS[@]}" || check_status=$?
    case "$check_status" in
        0) ;;
        77) say "type check skipped: no TypeScript compiler (./kv setup installs it)" ;;
        *) fail "the apps do not pass the type check above (./kv check; --no-check runs them all the same)" ;;
    esac
fi

kv_use_programs "$BUILD"
for program in "$RUNTIME" "$ACCESSORY" "$DEVICE_TOOL"; do
    [ -x "$program" ] || fail "$program is missing: build first (./kv build)"
done

if [ -z "$WORK" ]; then
    WORK="$(mktemp -d "${TMPDIR:-/tmp}/kv-pair.XXXXXX")"
fi
mkdir -p "$WORK"
WORK="$(cd "$WORK" && pwd)"
WATCH="$WORK/watch"
PHONE="$WORK/phone"

TRACERS=()
stop_devices() {
    [ "${#TRACERS[@]}" -eq 0 ] || kill "${TRACERS[@]}" 2>/dev/null || true
    [ "$KEEP_DEVICES" = 1 ] || "$ACCESSORY" stop "$WATCH" "$PHONE" >/dev/null 2>&1 || true
}
trap stop_devices EXIT

# Follows both services into <device>.trace.jsonl until the apps have ended.
start_tracers() {
    local label device
    for label in watch phone; do
        device="$WORK/$label"
        "$ACCESSORY" trace "$device" --json >"$WORK/$label.trace.jsonl" 2>"$WORK/$label.trace.err" &
        TRACERS+=($!)
        # The trace starts with a line that says so.
        for _ in $(seq 100); do
            [ ! -s "$WORK/$label.trace.jsonl" ] || break
            sleep 0.02
        done
    done
}

# Stops the tracers once what the apps' ends caused has been traced, and
# merges both traces into the timeline.
write_timeline() {
    sleep 0.3
    kill "${TRACERS[@]}" 2>/dev/null || true
    wait "${TRACERS[@]}" 2>/dev/null || true
    TRACERS=()
    "$ACCESSORY" timeline "$WORK/watch.trace.jsonl" "$WORK/phone.trace.jsonl" --output "$TRACE" \
        2>"$WORK/timeline.txt" || fail "cannot write the timeline: $(cat "$WORK/timeline.txt")"
}


# Puts the host files of a FILE PATH list into a device.
put_files() {
    local device="$1"
    shift
    while [ $# -ge 2 ]; do
        [ -f "$1" ] || fail "no such file: $1"
        mkdir -p "$(dirname "$device/fs$2")"
        cp "$1" "$device/fs$2"
        shift 2
    done
}

rm -rf "$WATCH" "$PHONE" "$WORK"/*.out "$WORK"/*.log "$WORK"/*.exit "$WORK/fault.txt"
"$ACCESSORY" create "$WATCH" "$PHONE" >/dev/null || fail "cannot create the devices"
"$ACCESSORY" pair "$WATCH" "$PHONE" "${INSECURE[@]}" "${LINK_PROFILE[@]}" "${KEYLOG[@]}" >/dev/null ||
    fail "cannot pair the devices"
"$DEVICE_TOOL" --device "$WATCH" screen watch >/dev/null
"$DEVICE_TOOL" --device "$PHONE" screen phone >/dev/null
watch_app="$("$RUNTIME" --device "$WATCH" install "${APPS[0]}")" || fail "cannot install ${APPS[0]} on the watch"
phone_app="$("$RUNTIME" --device "$PHONE" install "${APPS[1]}")" || fail "cannot install ${APPS[1]} on the phone"
put_files "$WATCH" "${WATCH_FILES[@]}"
put_files "$PHONE" "${PHONE_FILES[@]}"
say "watch: ${APPS[0]} ($watch_app); phone: ${APPS[1]} ($phone_app)"

[ -z "$TRACE" ] || start_tracers
START_US="${EPOCHREALTIME//[!0-9]/}"

# Prefixes each line of its input with the microseconds since the start.
stamp() {
    local line now
    while IFS= read -r line || [ -n "$line" ]; do
        now="${EPOCHREALTIME//[!0-9]/}"
        printf '%d\t%s\n' "$((now - START_US))" "$line"
    done
}

# Whether the app folder's content is an HTML page.
is_page() {
    grep -Eq '<content[^>]+src="[^"]+\.(html|htm|xhtml)"' "$1/config.xml"
}

# The options of a page app's run: its screenshots, and its window's place
# when there is a display to show it on.
page_options() {
    local label="$1" x="$2"
    if [ -n "$SCREENSHOTS" ]; then
        printf '%s\n' --screenshot "$SCREENSHOTS/$label.png"
        [ -z "$EVERY" ] || printf '%s\n' --screenshots "$SCREENSHOTS/$label" --every "$EVERY"
    fi
    if [ -n "${DISPLAY:-}" ] && [ "${KV_PAGE_DISPLAY:-}" != virtual ]; then
        printf '%s\n' --position "$x,40"
    fi
}

# Runs one app; its stamped output goes to <label>.out, its exit code to
# <label>.exit.
run_app() {
    local label="$1" device="$2" app="$3" folder="$4" x="$5" status=0
    local environment=() options=()
    [ "$VERBOSE" = 1 ] || environment=(KV_LOG_FILE="$WORK/$label.log")
    if is_page "$folder"; then
        mapfile -t options < <(page_options "$label" "$x")
    fi
    env "${environment[@]}" "$RUNTIME" --device "$device" run "$app" "${PLUGIN_OPTIONS[@]}" \
        --timeout "$TIMEOUT" "${options[@]}" -- "${ARGS[@]}" 2>&1 | stamp >"$WORK/$label.out" ||
        status=$?
    echo "$status" >"$WORK/$label.exit"
}

# Waits until the app has a provider agent registered with the device's
# service (as its status reports), the app has ended, or 20 s have passed.
wait_for_provider() {
    local label="$1" device="$2" app="$3" tries
    for ((tries = 0; tries < 400; tries++)); do
        "$ACCESSORY" status "$device" --json 2>/dev/null | tr -d ' \n' |
            grep -q "\"app\":\"$app\",\"profile\":\"[^\"]*\",\"role\":\"provider\"" && return 0
        [ ! -f "$WORK/$label.exit" ] || return 0
        sleep 0.05
    done
    say "$label: $app registered no provider agent within 20 s; the other app starts all the same"
}

# The provider's side, when exactly one app declares a provider: "watch",
# "phone" or nothing.
first_side() {
    [ "$TOGETHER" = 0 ] || return 0
    local watch_provides=0 phone_provides=0
    app_declares_provider "${APPS[0]}" && watch_provides=1
    app_declares_provider "${APPS[1]}" && phone_provides=1
    if [ "$watch_provides" = 1 ] && [ "$phone_provides" = 0 ]; then echo watch; fi
    if [ "$watch_provides" = 0 ] && [ "$phone_provides" = 1 ]; then echo phone; fi
}

[ -z "$SCREENSHOTS" ] || { mkdir -p "$SCREENSHOTS" && SCREENSHOTS="$(cd "$SCREENSHOTS" && pwd)"; }
start_watch() {
    run_app watch "$WATCH" "$watch_app" "${APPS[0]}" 40 &
    watch_runner=$!
}
start_phone() {
    run_app phone "$PHONE" "$phone_app" "${APPS[1]}" 440 &
    phone_runner=$!
}
case "$(first_side)" in
    watch) start_watch; wait_for_provider watch "$WATCH" "$watch_app"; start_phone ;;
    phone) start_phone; wait_for_provider phone "$PHONE" "$phone_app"; start_watch ;;
    *) start_watch; start_phone ;;
esac
fault_runner=""
if [ -n "$FAULT" ]; then
    # shellcheck disable=SC2086 # the fault line is words
    run_fault $FAULT >"$WORK/fault.txt" 2>&1 &
    fault_runner=$!
fi
wait "$watch_runner" "$phone_runner" || true
[ -z "$fault_runner" ] || wait "$fault_runner" || true
[ -z "$TRACE" ] || write_timeline

# The transcript: both outputs merged by time (a stable sort keeps each
# app's own order), with the milliseconds, the device and the app in front of
# each line.
{
    awk -F '\t' -v OFS='\t' -v app="$watch_app" '{ print $1, "watch", app, substr($0, length($1) + 2) }' "$WORK/watch.out"
    awk -F '\t' -v OFS='\t' -v app="$phone_app" '{ print $1, "phone", app, substr($0, length($1) + 2) }' "$WORK/phone.out"
} | sort -s -t "$(printf '\t')" -k1,1n |
    awk -F '\t' -v width="$(( ${#watch_app} > ${#phone_app} ? ${#watch_app} : ${#phone_app} ))" \
        '{ printf "%7d ms  %-5s  %-*s  %s\n", $1 / 1000, $2, width, $3, substr($0, length($1 $2 $3) + 4) }' |
    tee "$WORK/transcript.txt"

watch_status="$(cat "$WORK/watch.exit")"
phone_status="$(cat "$WORK/phone.exit")"

# The files of a device's media folders: path, size, checksum.
list_files() {
    local label="$1" device="$2" file size sum
    while IFS= read -r -d '' file; do
        size="$(stat -c %s "$file")"
        sum="$(sha256sum "$file" | cut -d' ' -f1)"
        printf '  %-5s  %s  %s bytes  sha256 %s\n' "$label" "${file#"$device/fs"}" "$size" "$sum"
    done < <(find "$device/fs/opt/usr/media" -type f -print0 2>/dev/null | sort -z)
}

echo
say "results"
printf '  watch  %s  exit %s\n' "$watch_app" "$watch_status"
printf '  phone  %s  exit %s\n' "$phone_app" "$phone_status"
files="$(list_files watch "$WATCH"; list_files phone "$PHONE")"
if [ -n "$files" ]; then
    echo "  files in the media folders:"
    printf '%s\n' "$files" | sed 's/^/  /'
fi
for label in watch phone; do
    if [ -n "$SCREENSHOTS" ] && [ -f "$SCREENSHOTS/$label.png" ]; then
        echo "  $label's screen at its end: $SCREENSHOTS/$label.png"
    fi
done
echo "  transcript: $WORK/transcript.txt"
[ -z "$TRACE" ] || echo "  timeline: $TRACE ($(cat "$WORK/timeline.txt"))"
if [ "$VERBOSE" = 1 ]; then
    echo "  platform logs: in the transcript"
else
    echo "  platform logs: $WORK/watch.log, $WORK/phone.log"
fi
echo "  accessory service logs: $WATCH/accessoryd.log, $PHONE/accessoryd.log"
echo "  devices: $WATCH, $PHONE"
if [ "${#KEYLOG[@]}" -gt 0 ]; then
    echo "  link: port $(cat "$WATCH/accessoryd.port"), TLS secrets in ${KEYLOG[1]} (docs/debugging.md)"
fi

[ "$watch_status" = 0 ] && [ "$phone_status" = 0 ]
