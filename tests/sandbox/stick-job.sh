#!/usr/bin/env bash
# Inside sim/sandbox --instrument: starts the updater at its installed path on a virtual display with
# the probe, puts the package on a memory stick and presses F3 F1; then only waits. Nothing runs after the
# keys, so a package that breaks the root's programs cannot stop the job: the caller reads the view from
# the probe's report and ends the sandbox.
#   stick-job.sh <package> <output dir>
set -euo pipefail
package=${1:?package} out=${2:?output dir}
build=${UPDATER_BUILD_DIR:?UPDATER_BUILD_DIR names the build tree}
mkdir -p "$SIM_STATE/media/sda1" "$out"
cp "$package" "$SIM_STATE/media/sda1/"
poll() { # <seconds> <command...>
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        [ $SECONDS -lt $deadline ] || { echo "stick-job: timed out waiting for: $*" >&2; exit 1; }
        sleep 0.1
    done
}

Xvfb -displayfd 3 -screen 0 470x268x24 -nolisten tcp -nolisten local 3>"$out/display" >"$out/xvfb.log" 2>&1 &
poll 120 grep -qE '^[0-9]+$' "$out/display"
DISPLAY=":$(<"$out/display")"
export DISPLAY
probe=$out/probe.txt
QT_QPA_PLATFORM=xcb QT_PLUGIN_PATH="$build/sim/probe/plugins" QT_QPA_GENERIC_PLUGINS=probe PROBE_OUT="$probe" \
    PROBE_DUMP_MS=250 /usr/bin/updater >"$out/updater.log" 2>&1 &
window() { window=$(xdotool search --onlyvisible --class updater 2>/dev/null | head -n 1) && [ -n "$window" ]; }
poll 120 window
poll 120 grep -qx 'painted UpdaterMainScreen' "$probe"
xdotool windowfocus --sync "$window" key F3
poll 60 grep -q 'Insert a memory stick' "$probe"
xdotool windowfocus --sync "$window" key F1
echo "stick-job: pressed F3 F1" >&2
wait
