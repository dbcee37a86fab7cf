#!/usr/bin/env bash
# The payloads of the payload tests, each made by the real tool (cross and host compilers, mkimage,
# mkfs.ubifs and ubinize, depmod, tar); the faults no tool makes on purpose (a cut file, a flipped byte)
# are made from their output.
#   tests/payload/make-payloads.sh <output folder>
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/payload-tools.sh"
payload_need_tools
out=${1:?usage: make-payloads.sh <output folder>}
export TAR_OPTIONS="--owner=0 --group=0 --mtime=@$SOURCE_DATE_EPOCH --sort=name" # the same archives every time
mkdir -p "$out"/{elf,script,kernel,ubi,modules}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cut_to() { head -c "$1" "$2" >"$3"; }        # <bytes> <file> <output>
flip() { printf '\377' | dd of="$1" bs=1 seek="$2" conv=notrunc status=none; } # <file> <offset>

# ---- programs
app=$payload_repo/sample/app/mainApp.cpp
printf 'void _start(void) { for (;;) ; }\n' >"$work/start.c"
printf 'int answer(void) { return 42; }\n' >"$work/lib.c"
arm_program "$app" "$out/elf/arm-dynamic"
arm_program "$app" "$out/elf/arm-static" -static
arm_program "$app" "$out/elf/arm-other-loader" -Wl,--dynamic-linker=/lib/ld-linux.so.3
arm_program "$app" "$out/elf/arm-missing-loader" -Wl,--dynamic-linker=/lib/ld-missing.so.1
arm-linux-gnueabihf-gcc -mfloat-abi=soft -nostdlib -static -o "$out/elf/arm-soft-float" "$work/start.c"
arm-linux-gnueabihf-gcc -c -o "$out/elf/arm-object" "$work/lib.c"
arm-linux-gnueabihf-gcc -shared -fPIC -o "$out/elf/arm-library" "$work/lib.c"
g++ -O2 -o "$out/elf/x86-64" "$app"
cut_to 2000 "$out/elf/arm-dynamic" "$out/elf/arm-truncated"

# ---- scripts
printf '#!/bin/sh\necho done\n' >"$out/script/sh"
printf '#!/bin/sh\r\necho done\r\n' >"$out/script/crlf"
printf '#!/bin/bash\necho done\n' >"$out/script/bash"
printf '#!/usr/bin/env python3\nprint("done")\n' >"$out/script/env-python3"
printf '#!/usr/bin/env sh\necho done\n' >"$out/script/env-sh"
printf '#!/sbin/sh -e\necho done\n' >"$out/script/sbin-sh"
printf '#!sh\necho done\n' >"$out/script/relative"
printf 'echo done\n' >"$out/script/no-header"

# ---- kernels: a 1 MiB stand-in for the zImage, wrapped by mkimage
head -c $((1024 * 1024)) /dev/zero | tr '\0' 'k' >"$work/zImage"
head -c $((3 * 1024 * 1024)) /dev/zero | tr '\0' 'k' >"$work/zImage-3M"
k=$out/kernel
kernel_uimage "$work/zImage" "$k/good.uImage"
kernel_uimage "$work/zImage" "$k/noload.uImage" -A arm -O linux -T kernel_noload -C none -a 0 -e 0
kernel_uimage "$work/zImage" "$k/x86.uImage" -A x86 -O linux -T kernel -C none -a 0x100000 -e 0x100000
kernel_uimage "$work/zImage" "$k/netbsd.uImage" -A arm -O netbsd -T kernel -C none -a 0x80008000 -e 0x80008000
kernel_uimage "$work/zImage" "$k/ramdisk.uImage" -A arm -O linux -T ramdisk -C none -a 0 -e 0
kernel_uimage "$work/zImage-3M" "$k/big.uImage"
cp "$work/zImage" "$k/raw"
cp "$out/elf/arm-static" "$k/vmlinux"
cut_to $((64 + 1024 * 1024 - 100)) "$k/good.uImage" "$k/truncated.uImage"
cp "$k/good.uImage" "$k/header-crc.uImage" && flip "$k/header-crc.uImage" 40
cp "$k/good.uImage" "$k/data-crc.uImage" && flip "$k/data-crc.uImage" 5000
{ cat "$k/good.uImage"; printf 'left over'; } >"$k/trailing.uImage"

# ---- UBI root images
mkdir -p "$work/rootfs/etc" "$work/bigfs"
echo "instrument root" >"$work/rootfs/etc/issue"
head -c $((9 * 1024 * 1024)) /dev/urandom >"$work/bigfs/blob"
u=$out/ubi
ubi_image "$work/rootfs" "$u/good.ubi"
ubi_image "$work/rootfs" "$u/subpage.ubi" 2048 131072 rootfs 512
ubi_image "$work/rootfs" "$u/block-256k.ubi" 2048 262144
ubi_image "$work/rootfs" "$u/page-4096.ubi" 4096 131072
ubi_image "$work/rootfs" "$u/data-volume.ubi" 2048 131072 data
ubi_image "$work/bigfs" "$u/big.ubi"
mkfs.ubifs -r "$work/rootfs" -m 2048 -e 126976 -c 64 -o "$u/rootfs.ubifs"
printf '[rootfs]\nmode=ubi\nimage=%s\nvol_id=0\nvol_type=dynamic\nvol_name=rootfs\nvol_size=10MiB\n' \
    "$u/rootfs.ubifs" >"$work/reserved.ini"
ubinize -o "$u/reserved.ubi" -p 131072 -m 2048 -Q 1 "$work/reserved.ini"
cp "$u/good.ubi" "$u/corrupt.ubi" && flip "$u/corrupt.ubi" $((131072 + 8))
cut_to $(($(stat -c %s "$u/good.ubi") - 1000)) "$u/good.ubi" "$u/cut.ubi"

# ---- modules archives
m=$out/modules
tree() { rm -rf "$work/mod"; mkdir -p "$work/mod/lib/modules/$payload_release/extra"; echo "$work/mod/lib/modules/$payload_release/extra"; }
extra=$(tree); arm_module keypad "$payload_vermagic" "$extra/keypad.ko"
modules_tar "$work/mod" "$m/good.tar"
(cd "$work/mod" && tar -cf "$m/folders.tar" lib)
mkdir -p "$work/mod/etc/modules-load.d" && echo keypad >"$work/mod/etc/modules-load.d/instrument.conf"
(cd "$work/mod" && find lib etc -type f | sort | tar -cf "$m/outside.tar" --no-recursion -T -)
chmod 700 "$work/mod/etc" && (cd "$work/mod" && tar -cf "$m/folder-mode.tar" lib/modules/"$payload_release" etc)
arm_module keypad "5.10.0-other SMP mod_unload ARMv7 p2v8 " "$work/mod/lib/modules/5.10.0-other/extra/keypad.ko"
(cd "$work/mod" && find lib -type f | sort | tar -cf "$m/other-release.tar" --no-recursion -T -)
(cd "$work/mod" && find lib/modules/5.10.0-other -type f | tar -cf "$m/only-other-release.tar" --no-recursion -T -)
extra=$(tree); arm_module keypad "5.10.0-other SMP mod_unload ARMv7 p2v8 " "$extra/keypad.ko"
modules_tar "$work/mod" "$m/vermagic.tar"
extra=$(tree); arm-linux-gnueabihf-gcc -c -o "$extra/keypad.ko" "$work/lib.c"
modules_tar "$work/mod" "$m/no-vermagic.tar"
extra=$(tree); arm_module keypad "$payload_vermagic" "$extra/keypad.ko" gcc
modules_tar "$work/mod" "$m/x86-module.tar"
extra=$(tree); cp "$out/elf/arm-static" "$extra/keypad.ko"
modules_tar "$work/mod" "$m/program-module.tar"
extra=$(tree); arm_module keypad "$payload_vermagic" "$extra/keypad.ko"
(cd "$work/mod" && tar -cf "$m/no-dep.tar" "lib/modules/$payload_release/extra/keypad.ko")
cut_to 3000 "$m/good.tar" "$m/truncated.tar"
# A 4 GiB member: stored sparse (the archive stays small), and stored whole but cut after 1 MiB.
extra=$(tree); truncate -s 4G "$extra/huge.ko"
(cd "$work/mod" && tar -cSf "$m/huge-sparse.tar" lib/modules)
(cd "$work/mod" && tar -cf - lib/modules | head -c $((1024 * 1024)) >"$m/huge-cut.tar") || true
echo "make-payloads: $(find "$out" -type f | wc -l) payloads in $out"
