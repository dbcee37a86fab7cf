#!/usr/bin/env bash
# The differential check of update-package against the real, unmodified updater: generated packages
# (the command grammar and its near misses, payloads, archive-level faults) run on the virtual instrument,
# each compared with the tool's prediction line by line. Disagreements are shrunk to small packages in
# out/differential/SEED-INDEX/ with replay.sh beside each.
#   scripts/differential.sh [--packages N] [--seed S] [--pic-every K] [--build DIR] [--predict-only]
# Ends with "N packages, L lines, D disagreements (seed S)"; exit 1 on any disagreement.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
packages=100 seed=1 pic_every=0 build="" extra=()
while [ $# -gt 0 ]; do
    case "$1" in
    --packages) packages=${2:?--packages needs a number}; shift 2 ;;
    --seed) seed=${2:?--seed needs a number}; shift 2 ;;
    --pic-every) pic_every=${2:?--pic-every needs a number}; shift 2 ;;
    --build) build=${2:?--build needs a build tree}; shift 2 ;;
    --predict-only) extra+=(--predict-only); shift ;;
    *) echo "differential.sh: unknown option '$1' (see the header of $0)" >&2; exit 2 ;;
    esac
done
if [ -z "$build" ]; then
    build="$repo/build-native"
    cmake -S "$repo" -B "$build" -G Ninja -DUPDATER_SANITIZE=OFF >/dev/null
    cmake --build "$build" -j 2 --target differential update-package updater sim-instrument probe
fi
build=$(cd "$build" && pwd)
mkdir -p "$repo/out/differential"
cd "$repo"
UPDATER_BUILD_DIR="$build" exec "$build/tools/update-package/differential" --packages "$packages" --seed "$seed" \
    --pic-every "$pic_every" --out "$repo/out/differential" "${extra[@]}"
