#!/usr/bin/env bash
# The payloads of the package tool's base test package, each made by the real tool as the sample's are
# (scripts/payload-tools.sh): the application cross-built for the instrument, a small kernel wrapped by
# mkimage, a kernel module with the instrument's vermagic packed with depmod's modules.dep, a UBI root image.
#   tests/packagetool/make-base-payloads.sh <output folder>
# Writes mainApp, uImage, modules.tar, rootfs.ubi and modroot/ (the tree modules.tar was packed from), and
# for the faulty variants mainApp-x86-64 (the host compiler's build) and zImage (the kernel without mkimage).
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/payload-tools.sh"
payload_need_tools
out=${1:?usage: make-base-payloads.sh <output folder>}
mkdir -p "$out"
out=$(cd "$out" && pwd) # modules_tar packs from inside the tree
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

arm_program "$payload_repo/sample/app/mainApp.cpp" "$out/mainApp"
g++ -O2 -o "$out/mainApp-x86-64" "$payload_repo/sample/app/mainApp.cpp"
# A 4 KiB stand-in for the zImage: the payload is judged by its U-Boot header, not by what it boots.
head -c 4096 /dev/zero | tr '\0' 'k' >"$out/zImage"
kernel_uimage "$out/zImage" "$out/uImage"
arm_module keypad "$payload_vermagic" "$out/modroot/lib/modules/$payload_release/extra/keypad.ko"
modules_tar "$out/modroot" "$out/modules.tar"
mkdir -p "$work/rootfs/etc"
echo "instrument root" >"$work/rootfs/etc/issue"
ubi_image "$work/rootfs" "$out/rootfs.ubi"
