#!/usr/bin/env bash
# Programs and verifies a 64 KB image on the simulated PIC18F4620 with the instrument and the benchmark
# pinned to one CPU, and prints where the time goes (several minutes).
#   bench/pic/run.sh [build dir]
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$(cd "${1:-$repo/build-native}" && pwd)
for f in "$build/bench/pic/bench_pic" "$build/sim/instrument/sim-instrument"; do
    [ -x "$f" ] || { echo "pic bench: '$f' is missing; build the project first" >&2; exit 2; }
done
exec "$repo/sim/sandbox" --build "$build" --instrument --instrument-arg --pic --cpu 0 -- "$build/bench/pic/bench_pic"
