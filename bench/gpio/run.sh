#!/usr/bin/env bash
# GPIO operations per second through the simulated sysfs, with the instrument and the benchmark pinned to
# one CPU and left to the scheduler. Prints one table.
#   bench/gpio/run.sh [build dir] [operations per kind]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup gpio "${1:-}" bench/gpio/bench_gpio sim/instrument/sim-instrument
count=${2:-20000}

run() { "$repo/sim/sandbox" --build "$build" --instrument "$@" -- "$build/bench/gpio/bench_gpio" "$count"; }
pinned=$(run --cpu 0)
free=$(run)

printf '%-8s %16s %16s\n' operation "pinned (cpu 0)" "not pinned"
# Both runs print "kind count ops us us/op ops ops/s" per line, in the same order.
paste -d' ' <(echo "$pinned") <(echo "$free") |
    awk '{ printf "%-8s %11.2f us/op %10.2f us/op\n", $1, $4, $11 }'
echo "($count operations per kind; toggle = one read and one write)"
