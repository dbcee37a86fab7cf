#!/usr/bin/env bash
# Lint of a package whose PIC HEX fills the whole 64 KB flash: wall time of the command, median of N runs.
#   bench/packagetool/run.sh [build dir] [runs]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup packagetool "${1:-}" tools/update-package/update-package
runs=${2:-9}
tool="$build/tools/update-package/update-package"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/pkg"
# 0x0000..0xFFFD: all of the flash the updater writes, in 16-byte records (4096 lines, about 180 KB of text).
srec_cat -generate 0 0xFFFE -repeat-string "PSU supervisor firmware 2.7 " -o "$work/pkg/board.hex" -Intel -obs=16
echo "PIC:/board.hex" >"$work/pkg/update_config"
"$tool" build "$work/pkg" -o "$work/BenchM_firmware_update_1.tar.bz2" >/dev/null
"$tool" lint "$work/BenchM_firmware_update_1.tar.bz2" >/dev/null

times=()
for _ in $(seq "$runs"); do
    start=$(date +%s%N)
    "$tool" lint "$work/BenchM_firmware_update_1.tar.bz2" >/dev/null
    times+=($(( ($(date +%s%N) - start) / 1000 )))
done
printf '%s\n' "${times[@]}" | sort -n | awk -v hex="$(stat -c %s "$work/pkg/board.hex")" '
    { t[NR] = $1 }
    END { printf "lint of a package with a 64 KB HEX (%d bytes of text): median %.1f ms (min %.1f, max %.1f, %d runs)\n",
          hex, t[int((NR + 1) / 2)] / 1000, t[1] / 1000, t[NR] / 1000, NR }'
