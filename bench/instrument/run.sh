#!/usr/bin/env bash
# Packages on the virtual instrument: packages per minute of a batch (one instrument, a fresh root, media
# and instrument state per package, no PIC line, no screenshots), and the wall time of one job of the
# sample package as preview runs it (screenshots, back to the menu, PIC included).
#   bench/instrument/run.sh [build dir] [packages (default 30)] [batches side by side (default 1)]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup instrument "${1:-}" updater/updater sim/instrument/sim-instrument sim/probe/plugins/generic/libprobe.so
count=${2:-30}
parallel=${3:-1}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Seeded variety: each package has 1..5 lines of APP, FILE, KERNEL, MODULES, SCRIPT and SYSTEM.
RANDOM=2718
payload="$work/payload"
mkdir -p "$payload/etc" "$work/modroot/lib/modules/4.19.0-instrument/extra"
printf '\177ELF stand-in\n' >"$payload/mainApp"
head -c 65536 /dev/urandom >"$payload/uImage"
printf 'module\n' >"$work/modroot/lib/modules/4.19.0-instrument/extra/bench.ko"
tar -cf "$payload/modules.tar" -C "$work/modroot" lib/modules/4.19.0-instrument/extra/bench.ko
printf '#!/bin/sh\nexit 0\n' >"$payload/post.sh"
chmod 755 "$payload/post.sh"
lines=("APP:/mainApp" "KERNEL:/uImage" "MODULES:/modules.tar" "SCRIPT:/post.sh" "SYSTEM:NAND")
jobs=()
for i in $(seq "$count"); do
    pkg="$work/p$i/firmware_update"
    mkdir -p "$pkg"
    cp -a "$payload/." "$pkg/"
    echo "setting $i" >"$pkg/etc/bench-$i.conf"
    more=$((RANDOM % 5)) # drawn here: a command substitution would draw in a subshell, unseeded
    {
        echo "FILE:/etc/bench-$i.conf"
        for ((l = 0; l < more; l++)); do echo "${lines[$((RANDOM % ${#lines[@]}))]}"; done
    } >"$pkg/update_config"
    tar -cjf "$work/p$i/BenchM_firmware_update_$i.tar.bz2" -C "$work/p$i" firmware_update
    jobs+=(stick "$work/p$i/BenchM_firmware_update_$i.tar.bz2" "$work/out/$i")
done
total_lines=$(cat "$work"/p*/firmware_update/update_config | wc -l)

start=$(date +%s%N)
pids=()
per=$(((count + parallel - 1) / parallel))
for b in $(seq 0 $((parallel - 1))); do
    part=("${jobs[@]:$((b * per * 3)):$((per * 3))}")
    [ ${#part[@]} -gt 0 ] || continue
    bash "$repo/scripts/technician.sh" --build "$build" --no-screens --timeout 300 "${part[@]}" \
        >"$work/batch-$b.out" 2>"$work/batch-$b.err" &
    pids+=($!)
done
status=0
for pid in "${pids[@]}"; do wait "$pid" || status=1; done
ms=$((($(date +%s%N) - start) / 1000000))
ended=$(cat "$work"/out/*/outcome | grep -c '^ended$' || true)
[ "$status" = 0 ] || { cat "$work"/batch-*.err >&2; echo "instrument bench: a job did not end ($ended of $count ended)" >&2; exit 1; }
awk -v n="$count" -v ms="$ms" -v p="$parallel" -v l="$total_lines" 'BEGIN {
    printf "batch of %d packages without a PIC line (%d command lines), %d batch(es) side by side: %.1f s, %.1f packages per minute (%.2f s a package)\n",
        n, l, p, ms / 1000, n * 60000 / ms, ms / 1000 / n }'

[ "${INSTRUMENT_BENCH_SAMPLE:-1}" = 1 ] || exit 0
bash "$repo/scripts/make-packages.sh" "$work/sample" >/dev/null
start=$(date +%s%N)
bash "$repo/scripts/technician.sh" --build "$build" stick "$work/sample/good/"*.tar.bz2 "$work/sample-out" >/dev/null 2>&1 ||
    { echo "instrument bench: the sample package's job did not end" >&2; exit 1; }
awk -v ms="$((($(date +%s%N) - start) / 1000000))" 'BEGIN {
    printf "one job of the sample package as preview runs it (PIC line, screenshots, back to the menu): %.1f s\n", ms / 1000 }'
echo "machine: $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"
