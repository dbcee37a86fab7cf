#!/bin/sh
# Prints the instrument profile of a root file system (docs/instrument-profile.md): its platform, its
# flash and a listing of its entries as lstat sees them.
#   capture-profile.sh [--kernel-release R] [--leave-out PATH]... [ROOT]
# On an instrument, as root and without ROOT: the running system, its kernel release and flash sizes.
# With ROOT (a folder holding an image's root): that image; the kernel release is --kernel-release or the
# only folder under ROOT/lib/modules, the flash is not known (the profile then has no flash lines).
# --leave-out PATH leaves PATH and everything below it out of the listing. The contents of /proc, /sys,
# /dev, /run and /tmp are never listed. POSIX sh with GNU find, sed and od (Debian's).
set -eu

die() { echo "capture-profile: $*" >&2; exit 2; }

release="" leave_out="" root=/
while [ $# -gt 0 ]; do
    case "$1" in
    --kernel-release) [ $# -ge 2 ] || die "--kernel-release needs a value"; release=$2; shift 2 ;;
    --leave-out)
        [ $# -ge 2 ] || die "--leave-out needs a path"
        case "$2" in /*) ;; *) die "--leave-out takes an absolute path, got '$2'" ;; esac
        leave_out="$leave_out $2"
        shift 2
        ;;
    -*) die "unknown option '$1' (see the header of $0)" ;;
    *) root=$1; shift ;;
    esac
done
[ -d "$root" ] || die "'$root' is not a folder"
root=$(cd "$root" && pwd -P)
prefix=$root
[ "$root" = / ] && prefix=""

# Unsigned little-endian number of N bytes at OFFSET of FILE.
number() {
    od -An -v -t u1 -j "$2" -N "$3" "$1" | awk '{ for (i = 1; i <= NF; i++) b[n++] = $i }
        END { v = 0; for (i = n - 1; i >= 0; i--) v = v * 256 + b[i]; printf "%.0f\n", v }'
}

# The platform, from the ELF header and program headers of the first of these programs the root has.
elf=""
for candidate in usr/bin/dash bin/dash usr/bin/bash bin/bash bin/busybox usr/bin/busybox usr/bin/ls bin/ls; do
    if [ -f "$prefix/$candidate" ]; then elf=$prefix/$candidate; break; fi
done
[ -n "$elf" ] || die "no program to read the platform from in $root (looked for dash, bash, busybox, ls)"
[ "$(od -An -c -N 4 "$elf" | tr -d ' ')" = '177ELF' ] || die "$elf is not an ELF file"
[ "$(number "$elf" 5 1)" = 1 ] || die "$elf is big-endian: not supported"
case $(number "$elf" 4 1) in
1) class=32 phoff=$(number "$elf" 28 4) phentsize=$(number "$elf" 42 2) phnum=$(number "$elf" 44 2)
    flags=$(number "$elf" 36 4) field=4 width=4 sizeat=16 ;;
2) class=64 phoff=$(number "$elf" 32 8) phentsize=$(number "$elf" 54 2) phnum=$(number "$elf" 56 2)
    flags=$(number "$elf" 48 4) field=8 width=8 sizeat=32 ;;
*) die "$elf has an unknown ELF class" ;;
esac
case $(number "$elf" 18 2) in
40) machine=arm ;; 183) machine=aarch64 ;; 62) machine=x86-64 ;; 3) machine=i386 ;;
*) die "$elf is for an ELF machine this profile cannot name ($(number "$elf" 18 2))" ;;
esac
float=""
if [ $machine = arm ]; then
    float=soft
    [ $((flags & 1024)) = 0 ] || float=hard # EF_ARM_ABI_FLOAT_HARD
fi
loader="" i=0
while [ $i -lt "$phnum" ]; do
    header=$((phoff + i * phentsize))
    if [ "$(number "$elf" $header 4)" = 3 ]; then # PT_INTERP: a NUL-terminated path
        offset=$(number "$elf" $((header + field)) $width)
        size=$(number "$elf" $((header + sizeat)) $width)
        loader=$(dd if="$elf" bs=1 skip="$offset" count=$((size - 1)) 2>/dev/null)
    fi
    i=$((i + 1))
done

if [ -z "$release" ]; then
    if [ -z "$prefix" ]; then
        release=$(uname -r)
    elif [ -d "$prefix/lib/modules" ] && [ "$(ls "$prefix/lib/modules" | wc -l)" = 1 ]; then
        release=$(ls "$prefix/lib/modules")
    fi
fi

echo "# Instrument profile of $root, captured by scripts/capture-profile.sh"
echo "format 1"
if [ -n "$release" ]; then echo "kernel-release $release"; else echo "# kernel release not known"; fi
echo "machine $machine"
echo "elf-class $class"
[ -z "$float" ] || echo "float-abi $float"
[ -z "$loader" ] || echo "loader $loader"
for updater in /usr/bin/updater /usr/local/bin/updater /usr/sbin/updater; do
    if [ -f "$prefix$updater" ]; then echo "updater $updater"; break; fi
done
if [ -z "$prefix" ] && [ -r /sys/class/mtd/mtd0/writesize ]; then
    echo "nand-page $(cat /sys/class/mtd/mtd0/writesize)"
    echo "nand-erase-block $(cat /sys/class/mtd/mtd0/erasesize)"
    for mtd in mtd0 mtd1; do
        [ -r /sys/class/mtd/$mtd/size ] && echo "partition /dev/$mtd $(cat /sys/class/mtd/$mtd/size)"
    done
    [ -r /sys/block/mmcblk0/size ] && echo "partition /dev/mmcblk0 $(($(cat /sys/block/mmcblk0/size) * 512))"
fi

# The listing: find prints kind, mode, owner, group and size, then the path and a link's target as
# NUL-terminated fields; sed escapes what the format escapes, and the fields are joined a line each.
prune=""
for path in /proc /sys /dev /run /tmp; do prune="$prune $path/*"; done
set -f # the patterns are find's
set --
for pattern in $prune; do set -- "$@" -path "$prefix$pattern" -prune -o; done
for path in $leave_out; do set -- "$@" -path "$prefix$path" -prune -o; done
set +f
find "$root" "$@" -printf '%y:%m:%U:%G:%s\0/%P\0%l\0' |
    sed -z 's/\\/\\134/g; s/ /\\040/g; s/\t/\\011/g; s/\n/\\012/g' | tr '\0' '\n' | paste -d ' ' - - - |
    awk '{ split($1, f, ":"); size = f[1] == "f" ? f[5] : 0; mode = f[2]
           while (length(mode) < 4) mode = "0" mode
           line = "entry " f[1] " " mode " " f[3] " " f[4] " " size " " $2
           if (f[1] == "l") line = line " " $3
           print line }' |
    LC_ALL=C sort -k7,7
