#!/usr/bin/env bash
# Regenerates the HEX differential's seed files in seeds/ from real tools: gpasm for programs with their
# configuration words and EEPROM data, srec_cat for seeded data laid out across the PIC's regions (flash
# below and above 64 KB, the 0xFFFE edge, configuration, ID locations, EEPROM) in linear, segment and
# 16-bit addressing. Deterministic. The generator mutates these; fuzz/corpus/hex adds its own.
#   fuzz/hexdiff/make-seeds.sh
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
for tool in gpasm srec_cat python3; do
    command -v "$tool" >/dev/null || { echo "make-seeds: '$tool' is missing (scripts/setup.sh installs it)" >&2; exit 2; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
seeds="$here/seeds"
rm -rf "$seeds"
mkdir -p "$seeds"

seeded() { # <bytes> <seed> <file>
    python3 -c 'import random, sys; r = random.Random(int(sys.argv[2])); sys.stdout.buffer.write(bytes(r.randrange(256) for _ in range(int(sys.argv[1]))))' "$1" "$2" >"$3"
}
# srec <name> <record size> <extra srec_cat output options> -- <bytes> <seed> <address> [<bytes> <seed> <address>]...
srec() {
    local name=$1 size=$2 options=$3 inputs=() n=0
    shift 4
    while [ $# -gt 0 ]; do
        seeded "$1" "$2" "$work/$name-$n.bin"
        inputs+=("$work/$name-$n.bin" -binary -offset "$3")
        n=$((n + 1))
        shift 3
    done
    # shellcheck disable=SC2086
    srec_cat "${inputs[@]}" -o "$seeds/$name.hex" -intel -output_block_size="$size" $options
}
srec flash-rows 16 "" -- 256 11 0x0000
srec flash-32 32 "" -- 300 12 0x1234
srec flash-odd-7 7 "" -- 61 13 0x07C1
srec flash-block-edges 16 "" -- 48 14 0x07F0 48 15 0x3FF0 40 16 0xBFEC
srec flash-edge-fffe 16 "" -- 30 17 0xFFE0
srec flash-edge-fffd 13 "" -- 13 18 0xFFF0
srec above-64k 16 "" -- 16 19 0xFFF0 32 20 0x10000
srec regions 16 "" -- 64 21 0x0100 8 22 0x200000 14 23 0x300000 32 24 0xF00000
srec config-odd 3 "" -- 11 25 0x300003
srec config-one 1 "" -- 1 26 0x30000D
srec segment-above-64k 16 "-address-length=3" -- 32 27 0xFFE0 48 28 0x1FFF0
srec segment-flash 24 "-address-length=3" -- 72 29 0x8000
srec sixteen-bit 16 "-address-length=2" -- 40 30 0x4000
srec record-99 99 "" -- 99 31 0x0201
srec record-101 101 "" -- 101 32 0x0400
srec eeprom-and-flash 16 "" -- 20 33 0xF003F0 20 34 0x2000

asm() { # <name> : the source on stdin
    cat >"$work/$1.asm"
    (cd "$work" && gpasm -q -p18f4620 -o "$seeds/$1.hex" "$1.asm")
}
asm protected-boot <<'ASM'
    include <p18f4620.inc>
    config OSC = HS, WDT = OFF, LVP = ON, MCLRE = ON
    config CPB = ON, WRTC = ON, WRTB = ON, EBTRB = ON
    org 0x0000
    goto 0x0800
    org 0x0800
    bra $
    end
ASM
asm eeprom-data <<'ASM'
    include <p18f4620.inc>
    config OSC = INTIO67, WDT = OFF, LVP = ON
    org 0x0100
    data 0x1234, 0x5678, 0x9ABC
    org 0xF00000
    de "calibration", 0
    org 0x200000
    db 1, 2, 3, 4, 5, 6, 7, 8
    end
ASM
asm odd-bytes <<'ASM'
    include <p18f4620.inc>
    config WDT = OFF, LVP = ON, CP0 = ON, WRT1 = ON
    org 0x0002
    db 0xAA
    org 0x4000
    db 0x11, 0x22, 0x33
    org 0xFFF8
    db 0xCC, 0xDD
    end
ASM
rm -f "$seeds"/*.cod "$seeds"/*.lst
echo "seeds written: $(find "$seeds" -name "*.hex" | wc -l)"
