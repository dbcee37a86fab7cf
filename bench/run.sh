#!/usr/bin/env bash
# Every performance figure of the project in one table (about ten minutes; the PIC runs dominate).
#   bench/run.sh [build dir]        builds the benchmarks first; details of each run go to out/bench/
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="${1:-$repo/build-native}"
bash "$repo/scripts/setup.sh"
cmake -S "$repo" -B "$build" -G Ninja -DUPDATER_SANITIZE=OFF >/dev/null
cmake --build "$build" -j 2 --target updater sim-instrument probe bench_gpio bench_esa bench_pic update-package bench_payload hex-differential >&2
build=$(cd "$build" && pwd)
details="$repo/out/bench"
mkdir -p "$details"

run() { # <name> <script...>: keeps the full output, fails loudly
    local name=$1
    shift
    echo "bench: running $name" >&2
    "$@" >"$details/$name.txt" 2>&1 || { cat "$details/$name.txt" >&2; echo "bench: $name failed" >&2; exit 1; }
}
run startup bash "$repo/bench/startup/run.sh" "$build" 9
run gpio bash "$repo/bench/gpio/run.sh" "$build"
run esa bash "$repo/bench/esa/run.sh" "$build"
run pic bash "$repo/bench/pic/run.sh" "$build"
run packagetool bash "$repo/bench/packagetool/run.sh" "$build"
run preview bash "$repo/bench/preview/run.sh" "$build"
run instrument bash "$repo/bench/instrument/run.sh" "$build" 30
run hexdiff "$build/fuzz/hexdiff/hex-differential" --files 5000 --seed 1 --out "$details/hex-differential"

field() { grep -m1 "$2" "$details/$1.txt" || echo "(missing: see $details/$1.txt)"; }
startup=$(field startup 'first painted menu' | sed -E 's/.*median ([0-9.]+) ms.*/\1 ms/')
rss=$(field startup 'resident memory' | sed -E 's/.*median ([0-9]+) KiB.*/\1/')
gpio_pinned=$(field gpio '^write ' | awk '{ printf "%.0f ops/s (%.2f us/op)", 1e6 / $2, $2 }')
gpio_free=$(field gpio '^write ' | awk '{ printf "%.0f ops/s (%.2f us/op)", 1e6 / $4, $4 }')
esa=$(field esa '^median' | sed -E 's/median: ([0-9.]+) bytes\/s = ([0-9.]+) %.*/\2 % of the line limit (\1 bytes\/s)/')
pic=$(field pic 'wall / (waits + ops)' | awk '{ print $6 }')
pic_wall=$(field pic '^wall time' | awk '{ print $3 " s" }')
violations=$(field pic 'violations' | head -n 1)
per_record=$(field pic '^operations per record' | awk '{ print $4 }')
delays=$(awk '/^P[0-9]/ { n++; if ($NF == "met") met++; if ($4 > worst) worst = $4 }
    END { printf "worst median %d ns over nominal, %d of %d met", worst, met, n }' "$details/pic.txt")

printf '| figure | measured | goal |\n|---|---|---|\n'
printf '| PIC 64 KB program + verify: wall / (mandated waits + operations x cost) | %s (wall %s) | <= 1.05 |\n' "$pic" "$pic_wall"
printf '| PIC timing violations seen by the model | %s | 0 |\n' "$(echo "$violations" | grep -oE '[0-9]+' | head -n 1)"
printf '| PIC protocol operations per 16-byte record | %s | |\n' "$per_record"
printf '| PIC named delays: overshoot of the busy waits | %s | <= 2 %% + 5 us, never short |\n' "$delays"
printf '| ESA 64 KB image on a 115200 baud 8N1 line | %s | >= 95 %% |\n' "$esa"
printf '| start-up to first painted menu (median of 9) | %s | |\n' "$startup"
printf '| resident memory of the running updater | %s KiB | |\n' "$rss"
printf '| GPIO value writes through the simulated sysfs, pinned to one CPU | %s | |\n' "$gpio_pinned"
printf '| GPIO value writes, not pinned | %s | |\n' "$gpio_free"
printf '| update-package lint of a package with a 64 KB HEX (median) | %s | < 1 s |\n' \
    "$(field packagetool 'median' | sed -E 's/.*median ([0-9.]+ ms).*/\1/')"
printf '| update-package lint of the sample package, whole command (median) | %s | < 1 s |\n' \
    "$(field packagetool '^lint of the sample package' | sed -E 's/.*median ([0-9.]+ ms).*/\1/')"
printf '| sample package preview, PIC included, end to end (median of 3) | %s | < 30 s |\n' \
    "$(field preview '^sample package preview' | sed -E 's/.*median ([0-9.]+ s) (.*)/\1 \2/')"
median() { field preview "$1" | sed -E 's/.*median ([0-9.]+ s).*/\1/'; }
printf '| its PIC erase (64 KB blank check) and programming (medians) | %s and %s | |\n' \
    "$(median '^PIC erase')" "$(median '^PIC programming')"
printf '| packages on the virtual instrument, one batch, no PIC line | %s per minute | >= 20 |\n' \
    "$(field instrument '^batch of' | sed -E 's/.* ([0-9.]+) packages per minute.*/\1/')"
printf '| one job of the sample package as preview runs it | %s | |\n' \
    "$(field instrument '^one job' | sed -E 's/.*: ([0-9.]+ s)$/\1/')"
printf '| HEX files through the tool'"'"'s prediction and the updater'"'"'s programmer on the PIC model, in-process | %s | thousands |\n' \
    "$(field hexdiff 'files per minute' | sed -E 's/ \(.*//')"
echo
echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), $(uname -r), load $(cut -d' ' -f1-3 /proc/loadavg)"
