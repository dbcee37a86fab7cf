#!/usr/bin/env bash
# Runs inside the sandbox with the simulated instrument: plays the technician at the real updater.
#   technician.sh <stick|pc> <package file|none> <output dir> [--window]
# stick: F3, F1, waits for the end, F1 back to the menu.
# pc:    F2, F1 (gadget), copies the package onto the transfer partition as the PC would, F1, waits, F1.
# Headless it starts its own virtual display; --window uses $DISPLAY and leaves the keys to you after
# the run. Writes to the output dir: view.txt (the message view as the technician saw it at the end),
# end.png (the screen at the end of the job), menu.png (after F1), probe.txt, updater.log, xvfb.log.
set -euo pipefail
job=${1:?usage: technician.sh <stick|pc> <package|none> <output dir>}
package=${2:?package file or none}
out=${3:?output directory}
window_mode=${4:-}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=${UPDATER_BUILD_DIR:?UPDATER_BUILD_DIR names the build tree}
timeout_s=${TECHNICIAN_TIMEOUT:-1200}
: "${SIM_STATE:?run inside sim/sandbox}"
say() { echo "technician: $*" >&2; }
fail() { say "$*"; exit 1; }
# The folder may be a test's temporary one, gone by the time anyone looks: the reason goes to stderr too.
updater_alive() {
    kill -0 "$updater" 2>/dev/null && return 0
    tail -n 20 "$out/updater.log" >&2
    fail "the updater ended unexpectedly (its log: $out/updater.log, last lines above)"
}

case "$job" in stick | pc) ;; *) fail "unknown job '$job' (stick or pc)" ;; esac
[ "$package" = none ] || [ -f "$package" ] || fail "no package at '$package'"
mkdir -p "$out"

# The medium: a stick with one partition, or the transfer partition the PC will see.
if [ "$job" = stick ]; then
    mkdir -p "$SIM_STATE/media/sda1"
    [ "$package" = none ] || cp "$package" "$SIM_STATE/media/sda1/"
else
    mkdir -p "$SIM_STATE/media/mmcblk0p6"
fi

pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true' EXIT
if [ "$window_mode" != --window ]; then
    # Xvfb picks a free display itself, and listens only on the sandbox's private /tmp (no abstract
    # socket, which every sandbox shares), so runs side by side do not meet. The number of an earlier run in
    # the same folder must not be taken for this one's before Xvfb has truncated the file.
    rm -f "$out/display"
    Xvfb -displayfd 3 -screen 0 470x268x24 -nolisten tcp -nolisten local 3>"$out/display" >"$out/xvfb.log" 2>&1 &
    xvfb=$!
    pids+=("$xvfb")
    deadline=$((SECONDS + 60))
    until number=$(cat "$out/display" 2>/dev/null) && [[ $number =~ ^[0-9]+$ ]]; do
        kill -0 "$xvfb" 2>/dev/null || { tail -n 20 "$out/xvfb.log" >&2; fail "the virtual display ended at start"; }
        [ $SECONDS -lt $deadline ] || fail "the virtual display did not start within 60 s"
        sleep 0.1
    done
    export DISPLAY=":$number"
fi

probe="$out/probe.txt"
: >"$probe"
QT_QPA_PLATFORM=xcb QT_PLUGIN_PATH="$build/sim/probe/plugins" QT_QPA_GENERIC_PLUGINS=probe \
    PROBE_OUT="$probe" PROBE_DUMP_MS=250 "$build/updater/updater" >"$out/updater.log" 2>&1 &
updater=$!
pids+=("$updater")

window=""
deadline=$((SECONDS + 120))
until window=$(xdotool search --onlyvisible --class updater 2>/dev/null | head -n 1) && [ -n "$window" ]; do
    updater_alive
    [ $SECONDS -lt $deadline ] || fail "the updater window did not appear within 120 s (see $out/updater.log)"
    sleep 0.1
done

key() { # the soft keys arrive as function keys, as from the instrument's keypad
    xdotool windowfocus --sync "$window" key "$1"
    say "pressed $1"
}
last_view() { awk '/^view-begin$/ { text = ""; on = 1; next } /^view-end$/ { on = 0; last = text; next }
    on { text = text $0 "\n" } END { printf "%s", last }' "$probe"; }
wait_until() { # <seconds> <what, for the failure> <command...>: polls the command until it succeeds
    local deadline=$((SECONDS + $1)) what=$2
    shift 2
    until "$@"; do
        updater_alive
        [ $SECONDS -lt $deadline ] || fail "timed out waiting for $what"
        sleep 0.1
    done
}
view_has() { last_view | grep -Eq "$1"; }
wait_for_view() { wait_until "$2" "/$1/ in the view" view_has "$1"; } # <extended regex> <seconds>
# The probe reports "painted NAME" once a screen shown last has been painted: a screenshot then sees it.
last_painted() { [ "$(grep -E '^(shown|painted) ' "$probe" | tail -n 1)" = "painted $1" ]; }
screenshot() { xwd -root -silent | /usr/bin/convert xwd:- "png:$out/$1"; }
wait_until 120 "the main menu on the screen" last_painted UpdaterMainScreen

if [ "$job" = stick ]; then
    key F3
    wait_for_view 'Insert a memory stick' 60
    key F1
else
    key F2
    wait_for_view 'Attach the unit to the PC' 60
    key F1
    wait_for_view 'Copy the firmware_update_tar.bz2 file|Failed to initialise PC connection' 120
    last_view | grep -q 'Failed to initialise' && fail "the USB gadget did not load"
    [ "$package" = none ] || cp "$package" "$SIM_STATE/media/mmcblk0p6/"
    say "copied the package onto the transfer partition"
    key F1
fi

# The probe dumps the view after the line was painted (each line is painted as it is appended).
wait_for_view 'Update complete|Some of the updates failed|Could not find update file|Failed to [a-z]+ (update|PC)' "$timeout_s"
last_view >"$out/view.txt"
screenshot end.png
say "the job ended; the view is in $out/view.txt"

if [ "$window_mode" = --window ]; then
    say "the updater stays open: use F1..F5 and F7 in its window; close it to end"
    wait "$updater" || true
    exit 0
fi
key F1
wait_until 60 "F1 to return to the main menu" last_painted UpdaterMainScreen
screenshot menu.png
say "back at the main menu"
