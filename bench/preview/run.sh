#!/usr/bin/env bash
# The sample package's preview (update-package preview: the memory-stick job with the real updater on the
# virtual instrument, PIC included), end to end, and its PIC step as the updater's own debug lines time
# it: the erase (bulk erase and the blank check of the whole 64 KB) and the programming after it.
# Prints one line per run, then medians (min, max) and the load average around the runs.
#   bench/preview/run.sh [build dir] [runs]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup preview "${1:-}" tools/update-package/update-package updater/updater \
    sim/instrument/sim-instrument sim/probe/plugins/generic/libprobe.so
runs=${2:-3}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bash "$repo/scripts/make-packages.sh" "$work/packages" >/dev/null
package=$(ls "$work/packages/good/"*.tar.bz2)

# Seconds since the updater started, in front of each debug line of updater.log.
export QT_MESSAGE_PATTERN='%{time process} %{message}'
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
for i in $(seq "$runs"); do
    out="$work/run$i"
    start=$(date +%s%N)
    UPDATER_BUILD_DIR="$build" "$build/tools/update-package/update-package" preview "$package" --out-dir "$out" \
        >"$work/preview$i.txt" 2>&1 || { cat "$work/preview$i.txt" >&2; echo "preview bench: run $i failed" >&2; exit 1; }
    wall=$(( ($(date +%s%N) - start) / 1000000 ))
    # The erase starts with "enter ev_pic_begin_erase", ends with "... erase done"; "erase completed" follows
    # the programming and its verify.
    awk -v wall="$wall" -v run="$i" '
        / enter ev_pic_begin_erase$/ { begin = $1 }
        / ev_pic_erase_next_block erase done$/ { erased = $1 }
        / erase completed$/ { done = $1 }
        END {
            if (begin == "" || erased == "" || done == "") {
                print "preview bench: no PIC step in the updater log of run " run > "/dev/stderr"
                exit 1
            }
            printf "run %d: preview %.1f s, PIC erase %.1f s, PIC programming %.1f s\n",
                run, wall / 1000, erased - begin, done - erased
        }' "$out/updater.log"
done | tee "$work/runs.txt"
load_after=$(cut -d' ' -f1-3 /proc/loadavg)

summary() { # <field number> <name>: median (min, max) of one column of runs.txt
    awk -v f="$1" '{ gsub(/,/, ""); print $f }' "$work/runs.txt" | sort -n | awk -v name="$2" '
        { v[NR] = $1 }
        END { printf "%s: median %.1f s (min %.1f, max %.1f, %d runs)\n", name, v[int((NR + 1) / 2)], v[1], v[NR], NR }'
}
summary 4 "sample package preview, end to end"
summary 8 "PIC erase (64 KB blank check)"
summary 12 "PIC programming and verify"
echo "load average: $load_before before, $load_after after; $(nproc) cores"
