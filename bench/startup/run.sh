#!/usr/bin/env bash
# Start-up of the real updater: time from process start to the first painted main menu, and its
# resident memory at that moment, measured from inside by the probe plugin. Prints the median of N runs.
#   bench/startup/run.sh [build dir] [runs]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup startup "${1:-}" updater/updater sim/probe/plugins/generic/libprobe.so
runs=${2:-9}

inside=$(cat <<'INSIDE'
set -eu
for i in $(seq "$RUNS"); do
    rm -f /tmp/probe.txt
    # Each run starts without settings; the storage area is a mount point of its own.
    find /mnt/data -mindepth 1 -delete
    PROBE_T0=$(date +%s%N) PROBE_OUT=/tmp/probe.txt "$UPDATER" >/dev/null 2>&1 &
    pid=$!
    # Other report lines come first: the run ends at the first painted menu (up to a minute, emulated CPUs are slow).
    for _ in $(seq 1200); do grep -qs '^painted-menu' /tmp/probe.txt && break; sleep 0.05; done
    kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null || true
    cat /tmp/probe.txt
done
INSIDE
)
results=$("$repo/sim/sandbox" --env RUNS="$runs" --env UPDATER="$build/updater/updater" \
    --env QT_QPA_PLATFORM=offscreen --env QT_PLUGIN_PATH="$build/sim/probe/plugins" \
    --env QT_QPA_GENERIC_PLUGINS=probe -- bash -c "$inside")
echo "$results" | grep '^painted-menu' | sort -k2,2n | awk '
    BEGIN { n = 0 }
    { ms[n] = $2; rss[n] = $4; n++ }
    END {
        if (n == 0) { print "startup bench: no run painted the menu" > "/dev/stderr"; exit 1 }
        m = int((n - 1) / 2)
        printf "start-up to first painted menu: median %.1f ms (min %.1f, max %.1f, %d runs, offscreen)\n", ms[m], ms[0], ms[n-1], n
        printf "resident memory at first paint: median %d KiB\n", rss[m]
    }'
