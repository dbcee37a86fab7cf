#!/usr/bin/env bash
# Programs and verifies a 64 KB image on the simulated PIC18F4620 with the instrument and the benchmark
# pinned to one CPU, and prints where the time goes (several minutes).
#   bench/pic/run.sh [build dir]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup pic "${1:-}" bench/pic/bench_pic sim/instrument/sim-instrument
exec "$repo/sim/sandbox" --build "$build" --instrument --instrument-arg --pic --cpu 0 -- "$build/bench/pic/bench_pic"
