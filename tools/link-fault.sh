# One link fault during a pair-run, sourced by tools/pair-run.sh.
#
# A fault is given as one line of words:
#   KIND SIDE TRIGGER [VALUE [CHANNEL]]
# KIND     drop        the link drops and is made again at once
#          stall       nothing crosses the link for 1 s (only a delay)
#          long-stall  nothing crosses for 7 s: past the supervision, so
#                      both services give the link up and make it again
#          detach      the side's link goes down; it is allowed again 1 s later
# SIDE     watch or phone: the device whose service makes the fault
# TRIGGER  moment MS            MS milliseconds after both apps started
#          messages N CHANNEL   after N messages on CHANNEL, either way
#          file-bytes N         after N bytes of the next file, either way
#
# run_fault writes what happened to $WORK/fault.txt, one fact per line, the
# times in milliseconds since the apps started:
#   plan: <the fault line>
#   fired: <ms>            or  not fired   (the trigger never came)
#   over: <ms>             the fault's end (the stall over, the link allowed)
#   linked again: <ms>     both services report the link up again
#   not linked again within <s> s
#
# Needs: ACCESSORY, WATCH, PHONE, WORK, START_US (microseconds, as
# ${EPOCHREALTIME//[!0-9]/}) and LINK_BOUND_SECONDS.

fault_now_ms() {
    local now="${EPOCHREALTIME//[!0-9]/}"
    echo $(((now - START_US) / 1000))
}

# The daemon's log line that tells that a fault of the kind has happened.
fault_log_line() {
    case "$1" in
        drop) echo "link: dropped" ;;
        stall | long-stall) echo "link: stalled for" ;;
        detach) echo "link: disabled" ;;
    esac
}

# Whether both apps have ended (pair-run writes <label>.exit at their end).
fault_apps_ended() {
    [ -f "$WORK/watch.exit" ] && [ -f "$WORK/phone.exit" ]
}

# Waits until the device's log holds more than `before` lines with `text`;
# false when the apps end first.
fault_wait_for_log() {
    local log="$1" text="$2" before="$3"
    while [ "$(grep -c -- "$text" "$log" 2>/dev/null || true)" -le "$before" ]; do
        fault_apps_ended && return 1
        sleep 0.02
    done
}

fault_link_up() {
    "$ACCESSORY" status "$1" --json 2>/dev/null | tr -d ' \n' | grep -q '"state":"up"'
}

# Waits until both services report the link up, at most LINK_BOUND_SECONDS.
fault_wait_linked() {
    local deadline=$(($(fault_now_ms) + LINK_BOUND_SECONDS * 1000))
    while [ "$(fault_now_ms)" -lt "$deadline" ]; do
        if fault_link_up "$WATCH" && fault_link_up "$PHONE"; then
            echo "linked again: $(fault_now_ms)"
            return 0
        fi
        sleep 0.05
    done
    echo "not linked again within $LINK_BOUND_SECONDS s"
}

# Arms or makes the fault of the line "$@", then follows it to its end.
run_fault() {
    local kind="$1" side="$2" trigger="$3" value="${4:-0}" channel="${5:-0}"
    local device command=() when=() line before fired seconds=0
    if [ "$side" = watch ]; then device="$WATCH"; else device="$PHONE"; fi
    case "$kind" in
        drop) command=(drop "$device") ;;
        stall) command=(stall "$device" --seconds 1); seconds=1 ;;
        long-stall) command=(stall "$device" --seconds 7); seconds=7 ;;
        detach) command=(detach "$device"); seconds=1 ;;
        *) echo "not fired: unknown fault $kind"; return 0 ;;
    esac
    case "$trigger" in
        moment) sleep "$(printf '%d.%03d' $((value / 1000)) $((value % 1000)))" ;;
        messages) when=(--after-messages "$value" --channel "$channel") ;;
        file-bytes) when=(--after-file-bytes "$value") ;;
    esac
    echo "plan: $*"
    line="$(fault_log_line "$kind")"
    before="$(grep -c -- "$line" "$device/accessoryd.log" 2>/dev/null || true)"
    if fault_apps_ended || ! "$ACCESSORY" "${command[@]}" "${when[@]}" >/dev/null 2>&1 ||
        ! fault_wait_for_log "$device/accessoryd.log" "$line" "$before"; then
        echo "not fired"
        return 0
    fi
    fired="$(fault_now_ms)"
    echo "fired: $fired"
    sleep "$seconds"
    [ "$kind" != detach ] || "$ACCESSORY" attach "$device" >/dev/null 2>&1 || true
    echo "over: $(fault_now_ms)"
    fault_wait_linked
}
