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
# Headless (as in CI) the updater draws offscreen; the demo prints the message view as the technician saw
# it and what the job left on the instrument (update-package state: root changes, partitions, PIC), and
# writes out/end.png and out/menu.png (the screen at the end of the job and back at the menu).
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
    cmake --build "$build" -j 2 --target updater sim-instrument probe update-package
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
echo "== ${job} update with the ${variant} package on the simulated instrument"
set +e
scripts/technician.sh --build "$build" --cpu 0 ${window:+"$window"} "$job" "$package" "$out" >/dev/null
status=$?
set -e
[ "$status" != 77 ] || exit 77
if [ -f "$out/view.txt" ]; then
    echo
    echo "== the message view at the end of the job"
    cat "$out/view.txt"
fi
echo
echo "== the instrument after the job"
"$build/tools/update-package/update-package" state "$out" | tee "$out/state.txt"
echo
echo "screenshots: $out/end.png (end of the job), $out/menu.png (back at the menu)"
exit $status
