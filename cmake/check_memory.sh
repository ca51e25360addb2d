#!/usr/bin/env bash
# Checks what the library and the daemon take of a machine's memory: pages that are a process's own, which no other
# process shares. What the simulated board takes is taken off as it is in a program that makes one call and waits.
#
# usage: check_memory.sh BUILD_DIR CAMERA_BOARD CLIENT PLAIN
set -euo pipefail
export LC_ALL=C

build=$1 board=$2 client=$3 plain=$4
most_of_client=40 most_of_daemon=140  # KiB: above a program that does nothing; in all
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Where the stack begins within its page and the like are left to chance otherwise.
fixed_addresses=()
if setarch -R true 2>/dev/null; then fixed_addresses=(setarch -R); fi

# own_pages TEXT COMMAND...: KiB once the text is in the journal or was printed.
own_pages() {
    local text=$1 pid tries=0
    shift
    rm -f "$work/journal" "$work/output"  # or the last one's text would be taken for this one's
    MARL_SIM_BOARD=$board MARL_SIM_TIME=real MARL_SIM_JOURNAL=$work/journal "${fixed_addresses[@]}" "$@" \
        </dev/null >"$work/output" 2>&1 &
    pid=$!
    until grep -qsF "$text" "$work/journal" "$work/output" || [ $((tries += 1)) -gt 600 ]; do sleep 0.1; done
    awk '/^Anonymous:/ { sum += $2 } END { print sum }' "/proc/$pid/smaps"
    kill "$pid"
    wait "$pid" 2>/dev/null || true
}

bare=$(own_pages waiting "$plain")
idle=$(own_pages waiting "$build/sim-launch" "$plain")
linked=$(own_pages waiting "$build/sim-launch" "$client")
daemon=$(own_pages /tmp/mediaguard_to_sentrel "$build/sim-launch" "$build/sentrel")
more=$((linked - idle)) loop=$((daemon - idle + bare))
printf 'a program pays %d KiB for the library (at most %d), sentrel has %d KiB (at most %d)\n' \
    "$more" $most_of_client "$loop" $most_of_daemon
[ "$more" -gt 0 ] && [ "$more" -le $most_of_client ] && [ "$loop" -gt 0 ] && [ "$loop" -le $most_of_daemon ]
