#!/usr/bin/env bash
# Builds the sample update packages from sample/ with the real tools: gpasm for the PIC, the armhf cross
# compiler for the application and the kernel modules, mkimage for the kernel, mkfs.ubifs and ubinize for
# the NAND root image, depmod and tar for the modules (scripts/payload-tools.sh has their command lines).
#   scripts/make-packages.sh <output dir>
# Writes:
#   <out>/good/OrsinaM_firmware_update_5.2.tar.bz2     every payload, all commands succeed
#   <out>/failing/OrsinaM_firmware_update_5.2f.tar.bz2 a missing file, a bad line, an ESA line
#   <out>/nand/OrsinaM_firmware_update_5.2n.tar.bz2    a NAND instrument's kernel and UBI root image
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/payload-tools.sh"
repo=$payload_repo
out=${1:?usage: make-packages.sh <output dir>}
sample="$repo/sample"
for tool in gpasm python3 bzip2; do
    command -v "$tool" >/dev/null || { echo "make-packages: '$tool' is missing (scripts/setup.sh installs it)" >&2; exit 2; }
done
payload_need_tools

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
pkg="$work/firmware_update"
mkdir -p "$pkg/etc"

gpasm -p18f4620 -o "$work/board.hex" "$sample/pic/board.asm" >/dev/null \
    || { echo "make-packages: gpasm failed on sample/pic/board.asm" >&2; exit 1; }
cp "$work/board.hex" "$pkg/board.hex"
arm_program "$sample/app/mainApp.cpp" "$pkg/mainApp"
cp "$sample/rootfs/etc/instrument.conf" "$pkg/etc/instrument.conf"
install -m 755 "$sample/scripts/post-update.sh" "$pkg/post-update.sh"

# The kernel: a stand-in for the zImage of a realistic size, wrapped by mkimage as the boot loader takes it.
python3 - "$work/zImage" <<'PY'
import hashlib, sys
open(sys.argv[1], "wb").write(b"".join(hashlib.sha256(b"kernel-5.2-%d" % i).digest() for i in range(48 * 1024 // 32 * 20)))
PY
kernel_uimage "$work/zImage" "$pkg/uImage"
modules="$work/modroot/lib/modules/$payload_release"
for m in keypad display_rot psu_link; do
    arm_module "$m" "$payload_vermagic" "$modules/extra/$m.ko"
done
modules_tar "$work/modroot" "$pkg/modules.tar"

make_package() { # <config> <dir> <name> <package folder>
    cp "$1" "$4/update_config"
    mkdir -p "$out/$2"
    rm -f "$out/$2"/*.tar.bz2
    tar -cjf "$out/$2/$3" -C "$(dirname "$4")" firmware_update
    echo "make-packages: $out/$2/$3"
}
mkdir -p "$out"
cp "$work/board.hex" "$out/board.hex"
make_package "$sample/update_config" good OrsinaM_firmware_update_5.2.tar.bz2 "$pkg"
# The failing package lacks the calibration file and the IO board image its list names.
make_package "$sample/update_config.failing" failing OrsinaM_firmware_update_5.2f.tar.bz2 "$pkg"

# The NAND package: the kernel and a whole root image (the application and settings in it) for the NAND's
# 2048-byte pages and 128 KiB erase blocks.
nand="$work/nand/firmware_update"
mkdir -p "$nand" "$work/rootfs/home" "$work/rootfs/etc"
cp "$pkg/uImage" "$nand/uImage"
cp "$pkg/mainApp" "$work/rootfs/home/mainApp"
cp "$sample/rootfs/etc/instrument.conf" "$work/rootfs/etc/instrument.conf"
ubi_image "$work/rootfs" "$nand/rootfs.ubi"
make_package "$sample/update_config.nand" nand OrsinaM_firmware_update_5.2n.tar.bz2 "$nand"
