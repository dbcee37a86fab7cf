#!/usr/bin/env bash
# The main job: builds everything and runs a firmware update on the simulated instrument with the real,
# unmodified updater, as a technician would.
#   scripts/demo.sh [--pc] [--failing|--nand|--none] [--package FILE] [--out DIR] [--build DIR] [--window]
#     (default)  memory-stick update with the sample package: F3, F1, wait for the end, F1
#     --pc       the PC job instead: F2, F1, the package copied onto the transfer partition, F1
#     --failing  the sample package that exercises failures (a missing file, a bad line, an ESA line)
#     --nand     the sample package of a NAND instrument: kernel and UBI root image
#     --none     no package on the medium
#     --package  run this package file instead of a sample one (update-package preview does)
#     --out      write the results into DIR (default out/, emptied first)
#     --build    use this build tree as it is: no set-up, no build
#     --window   show the updater in a window on this desktop (needs DISPLAY) and leave it open
# Headless (as in CI) it runs on a virtual display and prints the message view as the technician saw it,
# writes out/end.png (the screen at the end of the job) and prints what the instrument's models say.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
caller=$PWD
cd "$repo"
from_caller() { case "$1" in /*) echo "$1" ;; *) echo "$caller/$1" ;; esac; } # paths given are the caller's

job=stick variant=good window="" package="" out="" build=""
while [ $# -gt 0 ]; do
    case "$1" in
    --pc) job=pc ;;
    --failing) variant=failing ;;
    --nand) variant=nand ;;
    --none) variant=none ;;
    --window) window=--window ;;
    --package) package=$(from_caller "${2:?--package needs a file}"); variant=$(basename "$package"); shift ;;
    --out) out=$(from_caller "${2:?--out needs a folder}"); shift ;;
    --build) build=$(from_caller "${2:?--build needs a build tree}"); shift ;;
    *) echo "demo.sh: unknown option '$1' (see the header of scripts/demo.sh)" >&2; exit 2 ;;
    esac
    shift
done
[ -z "$package" ] || [ -f "$package" ] || { echo "demo.sh: no package file at '$package'" >&2; exit 2; }
if [ -n "$window" ] && [ -z "${DISPLAY:-}" ]; then
    echo "demo.sh: --window needs a display (DISPLAY is not set)" >&2
    exit 2
fi

if [ -z "$build" ]; then
    bash scripts/setup.sh
    build="$repo/build-native"
    cmake -S "$repo" -B "$build" -G Ninja -DUPDATER_SANITIZE=OFF >/dev/null
    cmake --build "$build" -j 2 --target updater sim-instrument probe
fi
build=$(cd "$build" && pwd)
if [ -z "$package" ]; then
    package=none
    if [ "$variant" != none ]; then
        bash scripts/make-packages.sh "$build/packages" >/dev/null
        package=$(ls "$build/packages/$variant/"*.tar.bz2)
    fi
fi

if [ -z "$out" ]; then
    out="$repo/out"
    rm -rf "$out"
fi
mkdir -p "$out"
out=$(cd "$out" && pwd)
if [ "$package" != none ]; then
    # The sandbox sees the output folder, not necessarily the package's: run a copy under its own name.
    mkdir -p "$out/package"
    cp "$package" "$out/package/"
    package="$out/package/$(basename "$package")"
fi
display=()
if [ -n "$window" ]; then
    display=(--bind /tmp/.X11-unix /tmp/.X11-unix --env "DISPLAY=$DISPLAY")
    [ -z "${XAUTHORITY:-}" ] || display+=(--bind "$XAUTHORITY" "$XAUTHORITY" --env "XAUTHORITY=$XAUTHORITY")
fi

echo "== ${job} update with the ${variant} package on the simulated instrument"
set +e
UPDATER_BUILD_DIR="$build" sim/sandbox --build "$build" --instrument --instrument-arg --pic \
    --instrument-arg --serial --instrument-arg esa --cpu 0 --bind "$out" "$out" "${display[@]}" \
    --env "UPDATER_BUILD_DIR=$build" -- bash -c '
        scripts/technician.sh "$1" "$2" "$3" $4 || exit 1
        echo
        echo "== the message view at the end of the job"
        cat "$3/view.txt"
        echo
        echo "== the instrument after the job"
        [ "$2" = none ] || sim/tools/verify-update | tee "$3/verify.txt"' \
    demo "$job" "$package" "$out" "$window"
status=$?
set -e
echo
echo "screenshots: $out/end.png (end of the job), $out/menu.png (back at the menu)"
exit $status
