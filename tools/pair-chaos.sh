#!/usr/bin/env bash
# Puts an app pair through trials of random link faults and says, per trial
# and in total, what an app developer needs to know from outside the apps.
#
#   kv pair-run --chaos N [--seed S] [--profiles LIST] [--faults LIST]
#               [--link-bound SECONDS] [OPTIONS] APP_A APP_B [-- ARGUMENT...]
#
# First the pair runs once without a fault, traced, over the first profile
# of LIST: the rehearsal. A pair that fails it has nothing to learn from
# faults, so the command stops there. Otherwise the rehearsal tells what
# the trials' triggers are drawn from: how long both apps ran, how many
# messages crossed each channel and the largest file.
#
# Each trial then runs the pair as `kv pair-run` does, on fresh devices, over
# a link profile drawn from LIST, with one fault drawn from LIST on a device
# drawn at random, fired at a random point of what the rehearsal did: a
# moment while both apps ran (half the trials), after some of the messages
# of a channel the apps used, or after some of the bytes of a file the size
# of their largest (tools/link-fault.sh). After each trial it checks:
#   apps          both apps ended by themselves with exit code 0
#   losses        every app that was running when a service lost the link
#                 was told (the device's detach, or the service's error)
#   files         no partial file is left on either device
#   link          both services had the link up again within the bound
#                 after the fault was over
# and prints one line per trial with its seed; `--chaos 1 --seed SEED` with
# the same lists repeats that trial (when the pair does the same again), and
# `pair-run --link-profile P --fault LINE` makes its fault alone. A fault
# whose trigger never came (the apps ended before it, say) is reported as
# not fired; the trial is still checked.
#
# Options:
#   --chaos N              the number of trials
#   --seed S               the first trial's seed; trial i has seed S+i-1
#                          (default: drawn from the clock, and printed)
#   --profiles LIST        link profiles to draw from, comma-separated
#                          (default unlimited,wifi,usb,bt,ble)
#   --faults LIST          faults to draw from: drop, stall, long-stall, detach
#                          (default all four)
#   --link-bound SECONDS   how soon the link must be up again after a fault
#                          (default 10)
#   --work DIR             keep the trials in DIR/trial-<i> (default: a new
#                          folder under /tmp)
# and these of pair-run, for every trial: --build, --timeout, --watch-file,
# --phone-file, --insecure, --together, --no-check.
#
# Exits with 0 when every trial passed, 1 when one did not, 2 on a usage
# error.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
CLI_PROGRAM="kv pair-run --chaos"
CLI_COMMAND="./kv pair-run --chaos"
CLI_SCRIPT="${BASH_SOURCE[0]}"
# shellcheck source=tools/cli.sh
. "$ROOT/tools/cli.sh"
cli_answer_help_and_version "$@"
# shellcheck source=tools/programs.sh
. "$ROOT/tools/programs.sh"

need() {
    [ "$2" -ge 2 ] || cli_usage_error "$1 needs $3"
}
whole_number() {
    [[ "$2" =~ ^[0-9]+$ ]] || cli_usage_error "$1 needs a whole number, not '$2'"
}

TRIALS=""
SEED=""
PROFILES="unlimited,wifi,usb,bt,ble"
FAULTS="drop,stall,long-stall,detach"
LINK_BOUND=10
WORK=""
BUILD="$(kv_default_programs)"
CHECK=1
PASS=()
APPS=()
ARGS=()
while [ $# -gt 0 ]; do
    case "$1" in
        --chaos) need "$1" $# "a number of trials"; whole_number "$1" "$2"; TRIALS="$2"; shift 2 ;;
        --seed) need "$1" $# "a seed"; whole_number "$1" "$2"; SEED="$2"; shift 2 ;;
        --profiles) need "$1" $# "a list of link profiles"; PROFILES="$2"; shift 2 ;;
        --faults) need "$1" $# "a list of faults"; FAULTS="$2"; shift 2 ;;
        --link-bound) need "$1" $# "a number of seconds"; whole_number "$1" "$2"; LINK_BOUND="$2"; shift 2 ;;
        --work) need "$1" $# "a folder"; WORK="$2"; shift 2 ;;
        --no-check) CHECK=0; shift ;;
        --build) need "$1" $# "a build folder or an installed prefix"; BUILD="$2"; PASS+=("$1" "$2"); shift 2 ;;
        --timeout) need "$1" $# "a number of seconds"; whole_number "$1" "$2"; PASS+=("$1" "$2"); shift 2 ;;
        --watch-file | --phone-file)
            [ $# -ge 3 ] || cli_usage_error "$1 needs a FILE and a device PATH"
            PASS+=("$1" "$2" "$3"); shift 3 ;;
        --insecure | --together) PASS+=("$1"); shift ;;
        --) shift; ARGS=("$@"); break ;;
        -*) cli_usage_error "unknown option '$1' (with --chaos)" ;;
        *) APPS+=("$1"); shift ;;
    esac
done
[ -n "$TRIALS" ] && [ "$TRIALS" -ge 1 ] || cli_usage_error "--chaos needs at least one trial"
[ "${#APPS[@]}" -eq 2 ] ||
    cli_usage_error "two app folders are needed (a watch app and a phone app), not ${#APPS[@]}"
IFS=, read -r -a PROFILE_LIST <<<"$PROFILES"
IFS=, read -r -a FAULT_LIST <<<"$FAULTS"
for profile in "${PROFILE_LIST[@]}"; do
    case "$profile" in
        unlimited | wifi | usb | bt | ble) ;;
        *) cli_usage_error "unknown link profile '$profile' in --profiles" ;;
    esac
done
for fault in "${FAULT_LIST[@]}"; do
    case "$fault" in
        drop | stall | long-stall | detach) ;;
        *) cli_usage_error "unknown fault '$fault' in --faults" ;;
    esac
done
[ -n "$SEED" ] || SEED=$((${EPOCHREALTIME//[!0-9]/} % 1000000))
[ -n "$WORK" ] || WORK="$(mktemp -d "${TMPDIR:-/tmp}/kv-chaos.XXXXXX")"
mkdir -p "$WORK"
WORK="$(cd "$WORK" && pwd)"
kv_use_programs "$BUILD"

say() { printf '==> %s\n' "$*"; }

if [ "$CHECK" = 1 ]; then
    status=0
    "$ROOT/tools/check-apps.sh" "${APPS[@]}" || status=$?
    case "$status" in
        0 | 77) ;;
        *) printf 'pair-run: the apps do not pass the type check above\n' >&2; exit 1 ;;
    esac
fi

# What the rehearsal did, which the triggers are drawn from: "CHANNEL COUNT"
# for each channel with messages (either way), the largest file's bytes, and
# the milliseconds during which both apps ran.
REHEARSED_CHANNELS=()
REHEARSED_FILE=0
REHEARSED_MS=0

# The fault line of a trial, drawn with the trial's seed, into FAULT_LINE
# (in this shell: a subshell would draw from a generator of its own).
draw_fault() {
    local fault="${FAULT_LIST[RANDOM % ${#FAULT_LIST[@]}]}" side=watch channel
    [ $((RANDOM % 2)) = 0 ] || side=phone
    # Half the faults at a moment, a quarter after messages, a quarter
    # within a file; a pair that sent no message or no file gets a moment.
    case $((RANDOM % 4)) in
        2)
            if [ "${#REHEARSED_CHANNELS[@]}" -gt 0 ]; then
                read -r -a channel <<<"${REHEARSED_CHANNELS[RANDOM % ${#REHEARSED_CHANNELS[@]}]}"
                FAULT_LINE="$fault $side messages $((1 + RANDOM % channel[1])) ${channel[0]}"
                return
            fi
            ;;
        3)
            if [ "$REHEARSED_FILE" -gt 0 ]; then
                FAULT_LINE="$fault $side file-bytes $((1 + (RANDOM * 32768 + RANDOM) % REHEARSED_FILE))"
                return
            fi
            ;;
    esac
    FAULT_LINE="$fault $side moment $((100 + RANDOM % REHEARSED_MS))"
}

# The time of a log line, "HH:MM:SS.mmm", which sorts as text within a day.
line_time() { cut -d' ' -f1 <<<"$1"; }

# Problems with the losses on one device: each time its service took the
# link down while the app had a session with it (opened before) and was still
# running (it logged after), the app must have been told (the plug-in routes
# the library's device status or service error).
check_losses() {
    local label="$1" device="$2" log="$3" down told
    [ -f "$log" ] || return 0
    while IFS= read -r down; do
        down="$(line_time "$down")"
        awk -v t="$down" '$1 < t && /session with the accessory service opened/ { found = 1 }
                          END { exit !found }' "$log" || continue
        awk -v t="$down" '$1 > t { found = 1 } END { exit !found }' "$log" || continue
        told="$(awk -v t="$down" '$1 >= t && /<<<<<< (OnDeviceStatus|OnError)$/ { print; exit }' "$log")"
        [ -n "$told" ] || echo "the $label app was not told that the link went down at $down"
    done < <(grep -- 'link: down' "$device/accessoryd.log" 2>/dev/null || true)
}

check_partial_files() {
    local label="$1" device="$2" left
    left="$(find "$device/fs" -name '.*.part-*' 2>/dev/null; find "$device/partial" -type f 2>/dev/null)"
    [ -z "$left" ] || echo "partial files left on the $label: $(echo $left)"
}

# Every problem of a trial, one per line; nothing when it passed.
check_trial() {
    local dir="$1" label code
    for label in watch phone; do
        code="$(cat "$dir/$label.exit" 2>/dev/null || echo none)"
        [ "$code" = 0 ] || echo "the $label app ended with $code"
        check_losses "$label" "$dir/$label" "$dir/$label.log"
        check_partial_files "$label" "$dir/$label"
    done
    ! grep -qs '^not linked again' "$dir/fault.txt" || grep '^not linked again' "$dir/fault.txt"
}

# What happened to the fault, in a few words.
fault_outcome() {
    local file="$1" fired over linked
    fired="$(sed -n 's/^fired: //p' "$file")"
    [ -n "$fired" ] || { echo "not fired"; return; }
    over="$(sed -n 's/^over: //p' "$file")"
    linked="$(sed -n 's/^linked again: //p' "$file")"
    if [ -n "$linked" ]; then
        echo "fired at ${fired} ms, linked again $((linked - over)) ms after it was over"
    else
        echo "fired at ${fired} ms"
    fi
}

# Runs the pair once into the folder DIR over PROFILE, with the further
# pair-run options given (a fault, a trace); its services stay up for the
# checks, until stop_pair.
run_pair() {
    local dir="$1" profile="$2"
    shift 2
    KV_LINK_BOUND_SECONDS="$LINK_BOUND" "$ROOT/tools/pair-run.sh" --no-check --keep-devices \
        --work "$dir" --link-profile "$profile" "$@" "${PASS[@]}" \
        "${APPS[@]}" -- "${ARGS[@]}" >"$dir.txt" 2>&1 || true
}

stop_pair() {
    "$ACCESSORY" stop "$1/watch" "$1/phone" >/dev/null 2>&1 || true
}

# The microseconds of an app's stamped output line, the first (ADDRESS 1p)
# or the last ($p); 0 when it wrote none.
output_stamp() {
    local line
    line="$(sed -n "$1" "$2" 2>/dev/null)"
    line="${line%%$'\t'*}"
    if [[ "$line" =~ ^[0-9]+$ ]]; then echo "$line"; else echo 0; fi
}

# Reads what the rehearsal in DIR did into REHEARSED_*: the messages of each
# channel from both services' traces (a message is counted by the service
# that sends it and by the one that delivers it, as a trigger counts it), the
# largest file offered, and the time from the later app's first line to the
# earlier app's last (at least 200 ms).
read_rehearsal() {
    local dir="$1" traces=("$1/watch.trace.jsonl" "$1/phone.trace.jsonl") first last
    mapfile -t REHEARSED_CHANNELS < <(sed -n '/"kind":"DATA_SENT"/s/.*"channel_id":\([0-9]*\).*/\1/p' \
        "${traces[@]}" 2>/dev/null | sort -n | uniq -c | awk '{ print $2, $1 }')
    REHEARSED_FILE="$(sed -n '/"kind":"FILE_OFFERED"/s/.*"size":"\([0-9]*\)".*/\1/p' "${traces[@]}" 2>/dev/null |
        sort -n | tail -n 1)"
    REHEARSED_FILE="${REHEARSED_FILE:-0}"
    local watchFirst phoneFirst watchLast phoneLast
    watchFirst="$(output_stamp 1p "$dir/watch.out")"
    phoneFirst="$(output_stamp 1p "$dir/phone.out")"
    watchLast="$(output_stamp '$p' "$dir/watch.out")"
    phoneLast="$(output_stamp '$p' "$dir/phone.out")"
    first=$((watchFirst > phoneFirst ? watchFirst : phoneFirst))
    last=$((watchLast < phoneLast ? watchLast : phoneLast))
    REHEARSED_MS=$(((last - first) / 1000))
    [ "$REHEARSED_MS" -ge 200 ] || REHEARSED_MS=200
}

# What read_rehearsal found, in a few words.
rehearsal_summary() {
    local channels="" entry
    for entry in "${REHEARSED_CHANNELS[@]}"; do
        channels+="${channels:+, }${entry% *}: ${entry#* }"
    done
    printf 'both apps ran together for %d ms; messages on channel %s; ' "$REHEARSED_MS" "${channels:-(none)}"
    if [ "$REHEARSED_FILE" -gt 0 ]; then echo "the largest file $REHEARSED_FILE bytes"; else echo "no file"; fi
}

# The pair once without a fault, traced; stops the command with 1 when the
# pair does not pass it.
rehearse() {
    local dir="$WORK/rehearsal" problems
    run_pair "$dir" "${PROFILE_LIST[0]}" --trace "$WORK/rehearsal.json"
    problems="$(check_trial "$dir")"
    stop_pair "$dir"
    if [ -n "$problems" ]; then
        say "rehearsal over ${PROFILE_LIST[0]}, without a fault: FAILED"
        sed 's/^/    /' <<<"$problems"
        say "the pair must pass without a fault before faults can tell anything; its run is in $dir.txt"
        exit 1
    fi
    read_rehearsal "$dir"
    say "rehearsal over ${PROFILE_LIST[0]}, without a fault: ok; $(rehearsal_summary)"
}

# "N trials", or "1 trial".
trials() {
    if [ "$1" = 1 ]; then echo "1 trial"; else echo "$1 trials"; fi
}

say "chaos: $(trials "$TRIALS") of $(basename "${APPS[0]}") (watch) and $(basename "${APPS[1]}") (phone), seed $SEED"
say "profiles $PROFILES; faults $FAULTS; the link must be up again within $LINK_BOUND s"
rehearse
failed=()
trial_profiles=()
trial_faults=()
for ((trial = 1; trial <= TRIALS; trial++)); do
    seed=$((SEED + trial - 1))
    RANDOM=$seed
    profile="${PROFILE_LIST[RANDOM % ${#PROFILE_LIST[@]}]}"
    draw_fault
    fault="$FAULT_LINE"
    trial_profiles[trial]="$profile"
    trial_faults[trial]="$fault"
    dir="$WORK/trial-$trial"
    run_pair "$dir" "$profile" --fault "$fault"
    problems="$(check_trial "$dir")"
    stop_pair "$dir"
    outcome="$(fault_outcome "$dir/fault.txt" 2>/dev/null || echo "not fired")"
    if [ -z "$problems" ]; then
        verdict="ok"
    else
        verdict="FAILED"
        failed+=("$trial")
    fi
    printf 'trial %d/%d  seed %d  %-9s  %-40s  %s: %s\n' "$trial" "$TRIALS" "$seed" "$profile" \
        "$fault" "$outcome" "$verdict"
    [ -z "$problems" ] || sed 's/^/    /' <<<"$problems"
done

echo
if [ "${#failed[@]}" -eq 0 ]; then
    if [ "$TRIALS" = 1 ]; then
        say "the trial passed (seed $SEED); it is in $WORK"
    else
        say "all $TRIALS trials passed (seed $SEED); the trials are in $WORK"
    fi
    exit 0
fi
say "${#failed[@]} of $(trials "$TRIALS") failed: ${failed[*]}; the trials are in $WORK"
for trial in "${failed[@]}"; do
    repeat=(./kv pair-run --chaos 1 --seed $((SEED + trial - 1)) --profiles "$PROFILES"
        --faults "$FAULTS" --link-bound "$LINK_BOUND" "${PASS[@]}" "${APPS[@]}")
    alone=(./kv pair-run --link-profile "${trial_profiles[trial]}" --fault "${trial_faults[trial]}"
        "${PASS[@]}" "${APPS[@]}")
    if [ "${#ARGS[@]}" -gt 0 ]; then
        repeat+=(-- "${ARGS[@]}")
        alone+=(-- "${ARGS[@]}")
    fi
    echo "  repeat trial $trial: $(printf '%q ' "${repeat[@]}")"
    echo "    or its fault alone: $(printf '%q ' "${alone[@]}")"
done
exit 1
