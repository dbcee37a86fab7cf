#!/usr/bin/env bash
# Regenerates the seed corpora in fuzz/corpus/ from real inputs: HEX files assembled by gpasm and
# converted by srec_cat from seeded data, the power board's frames, ESA board replies and the sample
# command lists. Deterministic: the same files every time. Run it after changing a seed's source.
#   fuzz/make-seeds.sh
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(cd "$here/.." && pwd)
for tool in gpasm srec_cat python3; do
    command -v "$tool" >/dev/null || { echo "make-seeds: '$tool' is missing (scripts/setup.sh installs it)" >&2; exit 2; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
corpus="$here/corpus"
rm -rf "${corpus:?}"/{hex,powerboard,esa,commandlist}
mkdir -p "$corpus"/{hex,powerboard,esa,commandlist}

# ---- HEX: the assembler's output, and srec_cat records of seeded data at the region limits
gpasm -q -p18f4620 -o "$corpus/hex/gpasm-board.hex" "$repo/sample/pic/board.asm"
gpasm -q -p18f4620 -o "$corpus/hex/gpasm-app.hex" "$repo/tests/pic/data/app.asm"
rm -f "$corpus"/hex/*.cod "$corpus"/hex/*.lst
seeded() { # <bytes> <seed> <file>
    python3 -c 'import random, sys; r = random.Random(int(sys.argv[2])); sys.stdout.buffer.write(bytes(r.randrange(256) for _ in range(int(sys.argv[1]))))' "$1" "$2" >"$3"
}
srec() { # <name> <bytes> <seed> <address> <record size>
    seeded "$2" "$3" "$work/$1.bin"
    srec_cat "$work/$1.bin" -binary -offset "$4" -o "$corpus/hex/$1.hex" -intel -output_block_size="$5"
}
srec srec-odd-13 96 1 0x0101 13         # odd addresses and lengths, rows split
srec srec-top-of-flash 64 2 0xFFC0 16   # the last records touch 0xFFFE/0xFFFF
srec srec-longest-record 100 3 0x0200 100
srec srec-too-long 130 4 0x0300 130     # longer than the record buffer
srec srec-config 14 5 0x300000 14       # configuration bytes after an extended address
srec srec-config-tail 6 6 0x30000A 6    # runs past 0x30000D
srec srec-id-eeprom 8 7 0x200000 8
srec srec-eeprom 16 8 0xF00000 16

# ---- power board: operations as the target reads them (see fuzz_powerboard.cpp)
python3 - "$corpus/powerboard" <<'PY'
import os, sys
out = sys.argv[1]
def frame_op(id_, payload, split):  # a frame the target builds itself, split over two reads
    return bytes([2, id_, len(payload)]) + payload + bytes([split])
def raw(data):  # one read of raw bytes, 1..32 of them
    return bytes([4 + 8 * (len(data) - 1)]) + data
def ack(id_): return raw(bytes([2, 6, id_, 3]))
def nak(id_): return raw(bytes([2, 0x15, id_, 3]))
send = lambda which, arg=b"": bytes([0, which]) + arg
timeout = bytes([1])
seeds = {
    "version-acked": send(0) + ack(4) + frame_op(5, b"V1.07", 3),
    "cal-data-nak-then-timeouts": send(2, b"\x10") + nak(4) + timeout + timeout + timeout + timeout,
    "start-test-and-data": send(3, b"\x02") + ack(4) + send(5) + ack(5) + frame_op(9, b"D\x7f\xf2\x02\x03" * 3, 7),
    "repeated-frame": frame_op(7, b"SV", 0) + frame_op(7, b"SV", 4),
    "split-raw-frame": raw(bytes([2, 8, 0x7f, 0xf2, 0, 0x41, 0x42])) + raw(bytes([0x8e, 0, 3])),
    "two-stx-dropped": raw(bytes([2, 2, 9, 3])) + send(1) + timeout,
}
for name, data in seeds.items():
    open(os.path.join(out, name), "wb").write(data)
PY

# ---- ESA boards: loads and replies as the target reads them (see fuzz_esa.cpp)
python3 - "$corpus/esa" <<'PY'
import os, sys
out = sys.argv[1]
C, ACK = b"\x00", b"\x01"
def raw(data): return bytes([2 + 4 * (len(data) - 1)]) + data  # 1..8 bytes as one read
def load(kind, size): return bytes([kind, size >> 8, size & 0xFF])
seeds = {
    "io-app-300-bytes": bytes([0]) + load(0, 300) + C + ACK * 3,
    "measurement-eeprom-empty": bytes([0]) + load(3, 0) + C,
    "nak-ends-the-load": bytes([0]) + load(2, 500) + C + ACK + raw(b"\x15"),
    "app-then-eeprom-same-board": bytes([1]) + load(0, 128) + load(2, 129) + C + ACK * 2 + C + ACK * 2,
    "block-255-then-0": bytes([0]) + load(1, 257 * 128) + C + ACK * 257,
    "ack-and-nak-in-one-read": bytes([0]) + load(0, 200) + C + raw(b"\x06\x15") + raw(b"\x43\x06") + ACK,
}
for name, data in seeds.items():
    open(os.path.join(out, name), "wb").write(data)
PY

# ---- command lists: the sample lists and one line of every kind; the first byte picks failing commands
for list in update_config update_config.failing; do
    { printf '\000'; cat "$repo/sample/$list"; } >"$corpus/commandlist/sample-$list"
done
{ printf '\045'; cat "$repo/sample/update_config"; } >"$corpus/commandlist/sample-with-failures"
printf '\000%s\n' "SYSTEM:SDCARD" "KERNEL:/uImage" "IMAGE:/rootfs.ubi" "SYSTEM:NAND" "KERNEL:/uImage" \
    "UPDATER:/usr/bin/updater" "PIC1x:/b.hex" "ESA_M_EEP:/m.eep" "APP :/x" "APP:/a:b" "" >"$corpus/commandlist/every-kind"
# ---- the package tool's payloads (their own script: they need the cross compiler, mkimage and ubinize)
bash "$here/payload/make-seeds.sh"
echo "make-seeds: $(find "$corpus" -type f | wc -l) seeds in $corpus"
