#!/usr/bin/env bash
# The main job: builds the updater and runs it, unmodified, inside the simulated target.
#   scripts/demo.sh            headless (as in CI): a virtual display, screenshots written to out/
#   scripts/demo.sh --window   opens the updater in a window on this desktop (F1..F5, F7 work)
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

mode=headless
case "${1:-}" in
"") ;;
--window) mode=window ;;
*) echo "demo.sh: unknown option '$1' (use --window or nothing)" >&2; exit 2 ;;
esac

bash scripts/setup.sh
build="$repo/build-native"
cmake -S "$repo" -B "$build" -G Ninja -DUPDATER_SANITIZE=OFF >/dev/null
cmake --build "$build" -j 2 --target updater sim-instrument

out="$repo/out"
mkdir -p "$out"
if [ "$mode" = window ]; then
    [ -n "${DISPLAY:-}" ] || { echo "demo.sh: --window needs a display (DISPLAY is not set)" >&2; exit 2; }
    exec sim/sandbox --build "$build" --bind /tmp/.X11-unix /tmp/.X11-unix --env "DISPLAY=$DISPLAY" \
        ${XAUTHORITY:+--bind "$XAUTHORITY" "$XAUTHORITY" --env "XAUTHORITY=$XAUTHORITY"} \
        -- "$build/updater/updater"
fi
sim/sandbox --build "$build" --bind "$out" "$out" -- "$repo/scripts/demo-inside.sh" "$build/updater/updater" "$out"
