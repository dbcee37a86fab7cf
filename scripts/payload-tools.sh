# shellcheck shell=bash
# The real tools' command lines for the instrument's payloads, shared by the sample packages, the payload
# tests' fixtures, the fuzz seeds and the benchmark (sourced, not run). The instrument: Debian 12 armhf on a
# Cortex-A8, kernel release from the default instrument profile, NAND with 2048-byte pages and 128 KiB
# erase blocks.
payload_repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
payload_release=$(awk '$1 == "kernel-release" { print $2 }' "$payload_repo/sim/profile/instrument.profile")
payload_vermagic="$payload_release SMP mod_unload ARMv7 p2v8 "
export SOURCE_DATE_EPOCH=1700000000 # mkimage's time stamp: the same image every time
PATH=$PATH:/usr/sbin:/sbin          # depmod, mkfs.ubifs and ubinize for a user without them on PATH

payload_need_tools() { # fails with the package that brings a missing tool
    local tool package
    for tool in arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf mkimage:u-boot-tools ubinize:mtd-utils \
        mkfs.ubifs:mtd-utils depmod:kmod tar:tar; do
        command -v "${tool%%:*}" >/dev/null || {
            echo "$(basename "$0"): '${tool%%:*}' is missing: scripts/setup.sh installs it (package ${tool#*:})" >&2
            exit 2
        }
    done
}

# A program for the instrument: hard-float Cortex-A8, libstdc++ linked in, the C library of the instrument.
arm_program() { # <source> <output> [more compiler options...]
    local source=$1 output=$2
    shift 2
    arm-linux-gnueabihf-g++ -O2 -mcpu=cortex-a8 -mfpu=neon -mfloat-abi=hard -static-libstdc++ -static-libgcc \
        -o "$output" "$source" "$@"
}

# A kernel module stand-in: an ARM relocatable object with the .modinfo of sample/modules/module.c.
arm_module() { # <name> <vermagic> <output .ko> [compiler, default the ARM one]
    local name=$1 vermagic=$2 output=$3 cc=${4:-arm-linux-gnueabihf-gcc} object
    object=$(mktemp --suffix=.o)
    local options=(-marm -mcpu=cortex-a8 -mfloat-abi=soft)
    [ "$cc" = arm-linux-gnueabihf-gcc ] || options=()
    "$cc" -c -O2 -ffreestanding -fno-pic "${options[@]}" -DMODULE_NAME="\"$name\"" -DVERMAGIC="\"$vermagic\"" \
        -o "$object" "$payload_repo/sample/modules/module.c"
    mkdir -p "$(dirname "$output")"
    "${cc%gcc}ld" -r -o "$output" "$object"
    rm -f "$object"
}

# A legacy U-Boot kernel image of the data file, as the instrument's boot loader takes it.
kernel_uimage() { # <data> <output> [mkimage options replacing the defaults' -A -O -T...]
    local data=$1 output=$2
    shift 2
    local options=(-A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008000)
    [ $# -eq 0 ] || options=("$@")
    mkimage "${options[@]}" -n "Linux-$payload_release" -d "$data" "$output" >/dev/null
}

# A UBI image holding one UBIFS volume of the folder, for a NAND of the given geometry.
ubi_image() { # <folder> <output> [page bytes, 2048] [erase block bytes, 131072] [volume name, rootfs] [sub-page]
    local folder=$1 output=$2 page=${3:-2048} block=${4:-131072} volume=${5:-rootfs} subpage=${6:-} work
    work=$(mktemp -d)
    mkfs.ubifs -r "$folder" -m "$page" -e $((block - 2 * page)) -c 2048 -x none -o "$work/volume.ubifs"
    printf '[%s]\nmode=ubi\nimage=%s\nvol_id=0\nvol_type=dynamic\nvol_name=%s\nvol_flags=autoresize\n' \
        "$volume" "$work/volume.ubifs" "$volume" >"$work/ubinize.ini"
    ubinize -o "$output" -p "$block" -m "$page" ${subpage:+-s "$subpage"} -Q 1 "$work/ubinize.ini" >/dev/null
    rm -rf "$work"
}

# The modules archive of a root folder holding lib/modules/<release>/: modules.dep made by depmod, files
# only (a folder entry lib/ would replace the instrument's /lib, which is a link).
modules_tar() { # <root folder> <output> [release]
    local root=$1 output=$2 release=${3:-$payload_release}
    depmod -b "$root" "$release" 2>/dev/null
    (cd "$root" && find lib -type f | sort |
        tar -cf "$output" --no-recursion --owner=0 --group=0 --mtime=@"$SOURCE_DATE_EPOCH" -T -)
}
