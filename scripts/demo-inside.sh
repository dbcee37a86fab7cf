#!/usr/bin/env bash
# Runs inside the sandbox: starts the updater on a virtual display, takes screenshots of the rotated screen.
#   demo-inside.sh <updater binary> <output dir>
set -euo pipefail
updater=${1:?updater binary}
out=${2:?output directory}

display=:42
Xvfb "$display" -screen 0 470x268x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $updater_pid $xvfb 2>/dev/null || true' EXIT
export DISPLAY=$display QT_QPA_PLATFORM=xcb
for _ in $(seq 50); do xdotool getdisplaygeometry >/dev/null 2>&1 && break; sleep 0.1; done

"$updater" >"$out/updater.log" 2>&1 &
updater_pid=$!
window=""
for _ in $(seq 100); do
    window=$(xdotool search --onlyvisible --class updater 2>/dev/null | head -n 1) && [ -n "$window" ] && break
    sleep 0.1
done
[ -n "$window" ] || { echo "demo: the updater window did not appear" >&2; exit 1; }
sleep 1

shot() { xwd -root -silent | /usr/bin/convert xwd:- "png:$out/$1"; echo "demo: wrote $out/$1"; }
shot main-menu.png
xdotool windowfocus --sync "$window" key F3
sleep 1
shot progress-screen.png
