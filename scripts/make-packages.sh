#!/usr/bin/env bash
# Builds the sample update packages from sample/ with the real tools (gpasm, the host compiler, tar).
#   scripts/make-packages.sh <output dir>
# Writes:
#   <out>/good/OrsinaM_firmware_update_5.2.tar.bz2     every payload, all commands succeed
#   <out>/failing/OrsinaM_firmware_update_5.2f.tar.bz2 a missing file, a bad line, an ESA line
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
out=${1:?usage: make-packages.sh <output dir>}
sample="$repo/sample"
for tool in gpasm c++ tar python3; do
    command -v "$tool" >/dev/null || { echo "make-packages: '$tool' is missing (scripts/setup.sh installs it)" >&2; exit 2; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
pkg="$work/firmware_update"
mkdir -p "$pkg/etc"

gpasm -p18f4620 -o "$work/board.hex" "$sample/pic/board.asm" >/dev/null \
    || { echo "make-packages: gpasm failed on sample/pic/board.asm" >&2; exit 1; }
cp "$work/board.hex" "$pkg/board.hex"
c++ -O2 -o "$pkg/mainApp" "$sample/app/mainApp.cpp"
cp "$sample/rootfs/etc/instrument.conf" "$pkg/etc/instrument.conf"
install -m 755 "$sample/scripts/post-update.sh" "$pkg/post-update.sh"

# A kernel image of a realistic size with a recognisable header, and a modules tree for /lib/modules.
python3 - "$pkg/uImage" <<'PY'
import hashlib, struct, sys
body = b"".join(hashlib.sha256(b"kernel-5.2-%d" % i).digest() for i in range(48 * 1024 // 32 * 20))
header = struct.pack(">4sI", b"KIMG", len(body)) + b"Linux-4.19.0-instrument".ljust(56, b"\0")
open(sys.argv[1], "wb").write(header + body)
PY
modules="$work/modroot/lib/modules/4.19.0-instrument"
mkdir -p "$modules/extra"
for m in keypad display_rot psu_link; do
    printf 'ELF stand-in for %s.ko\n' "$m" >"$modules/extra/$m.ko"
    echo "extra/$m.ko:" >>"$modules/modules.dep"
done
# Files only: a directory entry for lib/ would replace a /lib that is a link on the machine unpacking it.
(cd "$work/modroot" && find lib -type f | sort | tar -cf "$pkg/modules.tar" --no-recursion -T -)

make_package() { # <config> <dir> <name>
    cp "$1" "$pkg/update_config"
    mkdir -p "$out/$2"
    rm -f "$out/$2"/*.tar.bz2
    tar -cjf "$out/$2/$3" -C "$work" firmware_update
    echo "make-packages: $out/$2/$3"
}
mkdir -p "$out"
cp "$work/board.hex" "$out/board.hex"
make_package "$sample/update_config" good OrsinaM_firmware_update_5.2.tar.bz2
# The failing package lacks the calibration file and the IO board image its list names.
make_package "$sample/update_config.failing" failing OrsinaM_firmware_update_5.2f.tar.bz2
