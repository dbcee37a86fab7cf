#!/usr/bin/env bash
# Lint of a package whose PIC HEX fills the whole 64 KB flash: wall time of the command, median of N runs.
# Then the payload checks against payload size: the sample packages, and packages whose APP, KERNEL, IMAGE
# and MODULES payloads are each about 1, 4, 16 and 64 MiB (made by the real tools, random contents): the
# time to read the package as lint does and to check its payloads, for folders and, up to 16 MiB (bzip2
# takes seconds per 16 MiB of random data, one run each), for archives; and the whole lint command on the
# samples and on those folders. About four minutes.
#   bench/packagetool/run.sh [build dir] [runs]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../common.sh"
bench_setup packagetool "${1:-}" tools/update-package/update-package bench/packagetool/bench_payload
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

# ---- payload checks against payload size
. "$repo/scripts/payload-tools.sh"
payload_need_tools
bash "$repo/scripts/make-packages.sh" "$work/samples" >/dev/null
random_bytes() { # <bytes> <seed> <file>
    python3 -c 'import random, sys; sys.stdout.buffer.write(random.Random(int(sys.argv[2])).randbytes(int(sys.argv[1])))' "$1" "$2" >"$3"
}
arm_program "$repo/sample/app/mainApp.cpp" "$work/app"
arm_module big "$payload_vermagic" "$work/module.ko"
folders=() archives=()
for mib in 1 4 16 64; do
    bytes=$((mib * 1024 * 1024 - 256 * 1024)) # each payload just under the size, the largest within lint's 64 MiB
    dir="$work/payloads-$mib/firmware_update"
    mkdir -p "$dir" "$work/root-$mib" "$work/mods-$mib/lib/modules/$payload_release/extra"
    random_bytes "$bytes" "$mib" "$work/blob"
    arm-linux-gnueabihf-objcopy --add-section .blob="$work/blob" "$work/app" "$dir/mainApp"
    kernel_uimage "$work/blob" "$dir/uImage"
    head -c $((bytes * 9 / 10)) "$work/blob" >"$work/root-$mib/data"
    ubi_image "$work/root-$mib" "$dir/rootfs.ubi"
    for part in $(seq 0 $(((bytes - 1) / (4 * 1024 * 1024)))); do # modules of up to 4 MiB
        dd if="$work/blob" of="$work/chunk" bs=1M skip=$((part * 4)) count=4 status=none
        arm-linux-gnueabihf-objcopy --add-section .blob="$work/chunk" "$work/module.ko" \
            "$work/mods-$mib/lib/modules/$payload_release/extra/big$part.ko"
    done
    modules_tar "$work/mods-$mib" "$dir/modules.tar"
    printf 'APP:/mainApp\nKERNEL:/uImage\nIMAGE:/rootfs.ubi\nMODULES:/modules.tar\n' >"$dir/update_config"
    folders+=("$dir")
    [ "$mib" -gt 16 ] || {
        tar -cjf "$work/PayloadM_firmware_update_$mib.tar.bz2" -C "$work/payloads-$mib" firmware_update
        archives+=("$work/PayloadM_firmware_update_$mib.tar.bz2")
    }
done
# The whole lint command against payload size: the sample packages, then the folders (each of APP, KERNEL,
# IMAGE and MODULES about N MiB); exit 1 (errors found: a kernel larger than its partition) is a result.
lint_median() { # <runs> <package or folder>: prints the median, min and max wall time in ms
    local times=() start status
    for _ in $(seq "$1"); do
        start=$(date +%s%N)
        status=0
        "$tool" lint "$2" >/dev/null || status=$?
        [ "$status" -le 1 ] || { echo "packagetool bench: lint of $2 failed ($status)" >&2; exit 1; }
        times+=($(( ($(date +%s%N) - start) / 1000 )))
    done
    printf '%s\n' "${times[@]}" | sort -n |
        awk '{ t[NR] = $1 } END { printf "median %.1f ms (min %.1f, max %.1f, %d runs)", t[int((NR + 1) / 2)] / 1000, t[1] / 1000, t[NR] / 1000, NR }'
}
for sample in "$work"/samples/{good,nand}/*.tar.bz2; do
    echo "lint of the sample package $(basename "$sample") ($(stat -c %s "$sample") bytes): $(lint_median "$runs" "$sample")"
done
for dir in "${folders[@]}"; do
    mib=$(du -sm --apparent-size "$dir" | cut -f1)
    largest=$(find "$dir" -type f -printf '%s\n' | sort -n | tail -n 1)
    echo "lint of a folder with payloads up to $(awk -v b="$largest" 'BEGIN { printf "%.1f", b / 1048576 }') MiB" \
        "($mib MiB in all): $(lint_median 3 "$dir")"
done

echo "payload checks (read: the package as lint reads it; check: every payload against the default profile)"
{
    "$build/bench/packagetool/bench_payload" "$runs" "$work"/samples/{good,nand}/*.tar.bz2 "${folders[@]}"
    "$build/bench/packagetool/bench_payload" 1 "${archives[@]}"
} | sed "s|^firmware_update |folder          |"
