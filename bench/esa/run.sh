#!/usr/bin/env bash
# Loads a 64 KB image into the simulated ESA boards over /dev/ttyS1 paced at 115200 baud 8N1 (each byte
# takes its 10 bit times on the simulated wire, both ways) and prints the transfer rate (about 20 s).
#   bench/esa/run.sh [build dir] [loads]
# On the instrument the loader has the processor to itself. Here other work shares the CPUs, so as root
# the run gets a higher priority (nice -10) and the instrument a real-time one for its paced line;
# without root both run as they are and the figures show the machine's load as well.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup esa "${1:-}" bench/esa/bench_esa sim/instrument/sim-instrument
loads=${2:-3}
boost=()
if [ "$(id -u)" = 0 ]; then
    boost=(nice -n -10)
    echo "priority: nice -10 for the load, real-time for the simulated line"
else
    echo "priority: normal (not root); a busy machine lowers the figures"
fi
exec "${boost[@]}" "$repo/sim/sandbox" --build "$build" --instrument --instrument-arg --serial \
    --instrument-arg esa --instrument-arg --serial-baud --instrument-arg 115200 \
    --env QT_QPA_PLATFORM=offscreen -- "$build/bench/esa/bench_esa" "$loads"
