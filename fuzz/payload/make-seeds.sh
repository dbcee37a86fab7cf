#!/usr/bin/env bash
# Seeds of the payload targets, made by the real tools: programs and modules from the compilers, kernels
# from mkimage, UBI images from ubinize, archives from tar (tests/payload/make-payloads.sh and
# scripts/payload-tools.sh), kept small so that the fuzzer mutates headers rather than padding.
#   fuzz/payload/make-seeds.sh     (fuzz/make-seeds.sh runs it)
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(cd "$here/../.." && pwd)
. "$repo/scripts/payload-tools.sh"
payload_need_tools
corpus="$here/../corpus"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bash "$repo/tests/payload/make-payloads.sh" "$work/p" >/dev/null
rm -rf "${corpus:?}"/payload_{elf,uimage,ubi,modules}
mkdir -p "$corpus"/payload_{elf,uimage,ubi,modules}

for f in arm-dynamic arm-soft-float arm-object arm-truncated arm-missing-loader x86-64; do
    cp "$work/p/elf/$f" "$corpus/payload_elf/$f"
done
for f in sh crlf env-python3 relative; do cp "$work/p/script/$f" "$corpus/payload_elf/script-$f"; done

head -c 4096 /dev/zero | tr '\0' 'k' >"$work/zImage"
kernel_uimage "$work/zImage" "$corpus/payload_uimage/kernel.uImage"
kernel_uimage "$work/zImage" "$corpus/payload_uimage/ramdisk-x86.uImage" -A x86 -O linux -T ramdisk -C none -a 0 -e 0
head -c 2000 "$corpus/payload_uimage/kernel.uImage" >"$corpus/payload_uimage/truncated.uImage"

# Small geometry (512-byte pages, 16 KiB blocks) and a static volume keep the images at a few blocks.
printf 'instrument root\n' >"$work/volume"
for name in rootfs data; do
    printf '[%s]\nmode=ubi\nimage=%s\nvol_id=0\nvol_type=static\nvol_name=%s\n' "$name" "$work/volume" "$name" >"$work/$name.ini"
    ubinize -o "$corpus/payload_ubi/$name-16k.ubi" -p 16KiB -m 512 -Q 1 "$work/$name.ini" >/dev/null
done
head -c 20000 "$corpus/payload_ubi/rootfs-16k.ubi" >"$corpus/payload_ubi/cut.ubi"

for f in good folders vermagic x86-module huge-sparse truncated; do
    cp "$work/p/modules/$f.tar" "$corpus/payload_modules/$f.tar"
done
mkdir -p "$here/../regressions"/payload_{elf,uimage,ubi,modules}
touch "$here/../regressions"/payload_{elf,uimage,ubi,modules}/.keep
echo "make-seeds (payload): $(find "$corpus"/payload_* -type f | wc -l) seeds"
