#!/usr/bin/env bash
# The updater on its own platform: cross-builds everything for the instrument's board (32-bit ARM
# Cortex-A8, Debian 12 armhf) into build-armhf/, runs the test suite under user-mode emulation of that CPU,
# writes build-armhf/instrument-updater_<version>_armhf.deb, checks it with lintian, installs it with
# `apt-get install ./instrument-updater_*.deb` into a clean Debian 12 armhf root (apt and nothing else; its
# Depends from Debian's archive), runs the demo's stick update with the updater apt installed there, and
# prints the emulated start-up time. Exit status 0 only when all of that succeeded.
#   scripts/test-armhf.sh           as root on Debian 12 amd64 (CI runs it after scripts/test.sh)
#   scripts/test-armhf.sh sysroot   only make (or unpack) the cached armhf sysroot and print its path
#   scripts/test-armhf.sh profile   write sim/profile/instrument.profile afresh from the sysroot
#   scripts/test-armhf.sh install   only the package: build the updater, cpack, lintian, the clean root's
#                                   install and stick update (no test suite)
# The full run also checks that the committed instrument profile agrees with a fresh capture of the sysroot
# on what matters (platform, top-level links, folders), not on every versioned file name.
#
# Kept between runs in /var/cache/instrument-updater (outside /tmp, /home, /mnt and /run, which the sandbox
# replaces, so emulated programs keep their libraries): the armhf sysroot and the clean armhf root as
# tarballs (each made once with mmdebstrap, a few minutes; unpacked again in seconds), the .debs apt fetched
# into the clean root, and qemu-arm 10 from bookworm-backports, fetched
# into a folder of its own so that the machine's apt sources and packages stay as they are. For the run,
# qemu-arm is registered with binfmt_misc so that scripts, bubblewrap and QProcess can start ARM programs;
# the entry is removed at exit, whatever happened.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
cache=/var/cache/instrument-updater
build=$repo/build-armhf
mirror=${ARMHF_MIRROR:-http://deb.debian.org/debian}
sysroot=$cache/armhf-sysroot
qemu=$cache/qemu/qemu-arm
binfmt=/proc/sys/fs/binfmt_misc
# qemu-user has no I2C_SLAVE ioctl: emulated programs cannot address the simulated expander on /dev/i2c-1.
native_only='^tst_(expander|shell)$'

say() { printf '== %s (at %d s)\n' "$*" "$SECONDS"; }
die() { echo "test-armhf: $*" >&2; exit 1; }
mode=${1:-all}
case "$mode" in all | sysroot | profile | install) ;; *) die "unknown argument '$mode' (none, sysroot, profile or install)" ;; esac
[ "$(id -u)" = 0 ] || die "run as root: it installs packages, registers qemu-arm with binfmt_misc and keeps its cache in $cache"

. scripts/lib/package-proof.sh

say "host tools"
bash scripts/setup.sh g++-arm-linux-gnueabihf mmdebstrap dpkg-dev file zstd lintian

entry="" mounted_binfmt="" work=""
cleanup() {
    if [ -n "$work" ]; then rm -rf "$work"; fi
    if [ -n "$entry" ] && [ -e "$binfmt/$entry" ]; then echo -1 >"$binfmt/$entry" || true; fi
    if [ -n "$mounted_binfmt" ]; then umount "$binfmt" || true; fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

fetch_qemu() { # qemu-arm from bookworm-backports; bookworm's 7.2 cannot run Qt's QProcess (clone flags)
    local apt=$cache/qemu/apt
    rm -rf "$apt"
    mkdir -p "$apt/lists/partial" "$apt/archives/partial" "$apt/sources.list.d"
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror bookworm-backports main" \
        >"$apt/sources.list"
    local opts=(-q -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts="$apt/sources.list.d"
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt" -o Dir::Cache::Archives="$apt/archives"
        -o Dir::State::Status=/dev/null -o APT::Sandbox::User=root)
    apt-get "${opts[@]}" update >/dev/null
    (cd "$apt" && apt-get "${opts[@]}" download qemu-user/bookworm-backports >/dev/null)
    dpkg-deb --fsys-tarfile "$apt"/qemu-user_*.deb | tar -xO ./usr/bin/qemu-arm >"$qemu.new"
    chmod 755 "$qemu.new"
    mv "$qemu.new" "$qemu"
    rm -rf "$apt"
}
qemu_ready() { "$qemu" --version 2>/dev/null | grep -qE 'version (1[0-9]|[2-9][0-9])\.'; }

# <dir>: Debian 12 armhf with what the project builds and runs against, dpkg database included, and the
# instrument's own tools the updater runs (mount, bzip2 for tar, kmod), so that it also stands for the
# instrument's image (sim/profile/instrument.profile is captured from it).
make_sysroot() {
    # Maintainer scripts run emulated (binfmt). The security suite is left out: its armhf index did not
    # download consistently.
    mmdebstrap --mode=root --variant=essential --architectures=armhf --skip=check/qemu \
        --hook-dir=/usr/share/mmdebstrap/hooks/merged-usr --dpkgopt='path-exclude=/usr/share/doc/*' \
        --dpkgopt='path-exclude=/usr/share/man/*' --dpkgopt='path-exclude=/usr/share/locale/*' \
        --include=qtbase5-dev,libfuse3-dev,libstdc++-12-dev,libc6-dev,mount,bzip2,kmod \
        bookworm "$1" "deb $mirror bookworm main" "deb $mirror bookworm-updates main"
}
# <dir>: an armhf root made fit for QEMU_LD_PREFIX, where the emulator looks every path up first.
emulation_prefix() {
    local dir=${1:?}
    # Absolute links would lead out of the root into the build machine: make them relative, noting what
    # they were (for the instrument profile).
    (cd "$dir" && find . -type l -lname '/*' -printf '/%P %l\n' | LC_ALL=C sort >.absolute-links)
    find "$dir" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
        ln -sfn "$(realpath -m -s --relative-to="$(dirname "$link")" "$dir$(readlink "$link")")" "$link"
    done
    # Its /dev would hide the machine's devices and its /tmp the sandbox's: the runtime folders go.
    rm -rf "${dir:?}"/{boot,dev,home,media,mnt,opt,proc,root,run,srv,sys,tmp} "${dir:?}"/var/{cache,lock,log,mail,run,spool,tmp}
}
recipe=$(clean_root_recipe make_sysroot emulation_prefix)
sysroot_ready() { [ "$(cat "$sysroot/.recipe" 2>/dev/null)" = "$recipe" ]; }

register_emulator() {
    if [ ! -e "$binfmt/register" ]; then
        mount -t binfmt_misc binfmt_misc "$binfmt" || die "cannot mount binfmt_misc on $binfmt"
        mounted_binfmt=1
    fi
    [ "$(cat "$binfmt/status")" = enabled ] || die "binfmt_misc is disabled on this machine ($binfmt/status)"
    # ELF header of 32-bit little-endian ARM programs and libraries, the entry qemu's own tables give.
    local magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
    local mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    entry=instrument-updater-arm-$$
    # O: qemu gets the opened program, P: argv[0] kept, F: qemu opened now, so it also works in namespaces.
    echo ":$entry:M::$magic:$mask:$qemu:OPF" >"$binfmt/register" || die "cannot register $qemu with binfmt_misc"
}

# Runs that use the cache hold it shared; only a run that has to change it takes it alone.
mkdir -p "$cache/qemu"
exec 9>"$cache/.lock"
flock -s 9
if ! qemu_ready || ! sysroot_ready; then
    flock -x 9
    if ! qemu_ready; then
        say "fetching qemu-arm from bookworm-backports into $cache/qemu"
        fetch_qemu
    fi
fi
register_emulator
if ! sysroot_ready; then
    rm -rf "$sysroot.new"
    clean_root armhf-sysroot make_sysroot "$sysroot.new"
    emulation_prefix "$sysroot.new"
    rm -rf "$sysroot" && mv "$sysroot.new" "$sysroot"
    echo "$recipe" >"$sysroot/.recipe"
fi
flock -s 9
"$qemu" --version | head -n 1
if [ "$mode" = sysroot ]; then
    echo "$sysroot"
    exit 0
fi

# The instrument's image is the sysroot (less what only a build needs) with what the instrument adds;
# links the sysroot made relative are given as the image has them.
profile=$repo/sim/profile/instrument.profile
instrument_profile() {
    local all
    all=$(instrument_profile_lines)
    grep -v '^entry' <<<"$all"
    grep '^entry' <<<"$all" | LC_ALL=C sort -k7,7
}
instrument_profile_lines() {
    echo "# The virtual instrument's profile: the Debian 12 armhf root the project builds against (made by"
    echo "# scripts/test-armhf.sh with mmdebstrap) and what the instrument adds (instrument-additions)."
    echo "# Written by 'scripts/test-armhf.sh profile'. Left out: /usr/include and qmake's mkspecs (what a"
    echo "# build needs, not the instrument); that root has no documentation, manual pages or locales."
    sh scripts/capture-profile.sh --leave-out /.recipe --leave-out /.absolute-links --leave-out /usr/include \
        --leave-out /usr/lib/arm-linux-gnueabihf/qt5/mkspecs "$sysroot" | grep -v '^#' |
        awk -v additions="$repo/sim/profile/instrument-additions" -v links="$sysroot/.absolute-links" '
            function key(line, f) {
                split(line, f, " ")
                if (f[1] == "entry") return "entry " f[7]
                return f[1] == "partition" || f[1] == "mount" ? f[1] " " f[2] : f[1]
            }
            BEGIN { while ((getline line < additions) > 0) if (line !~ /^(#|$)/) { added[key(line)] = line; order[n++] = key(line) }
                    while ((getline line < links) > 0) { split(line, f, " "); absolute[f[1]] = f[2] } }
            $1 == "format" { print; next }
            { k = key($0) }
            k in added { next }
            $1 == "entry" && $2 == "l" && ($7 in absolute) { $8 = absolute[$7] }
            { print }
            END { for (i = 0; i < n; i++) print added[order[i]] }'
}
# What must agree: the platform facts, the top-level entries and every folder.
profile_essentials() {
    awk '$1 != "entry" && $1 !~ /^#/ { print; next } $2 == "d" { print "folder", $7 }
         $1 == "entry" && $7 ~ /^\/[^\/]*$/ { print "top", $2, $7, $8 }' "$1" | LC_ALL=C sort
}
# The files of that root whose content decides what tar does (the names of owners) go in sim/target.
owner_names=(etc/passwd etc/group)
if [ "$mode" = profile ]; then
    instrument_profile >"$profile.new"
    mv "$profile.new" "$profile"
    for file in "${owner_names[@]}"; do cp "$sysroot/$file" "$repo/sim/target/$file"; done
    say "wrote $profile ($(grep -c '^entry' "$profile") entries) and ${owner_names[*]/#/sim/target/}"
    exit 0
fi

status=0
if [ "$mode" = all ]; then
    say "the committed instrument profile against a fresh capture of the sysroot"
    if ! diff -u <(profile_essentials "$profile") <(instrument_profile | profile_essentials /dev/stdin) >&2; then
        echo "test-armhf: $profile disagrees with the sysroot on what matters (lines above: - committed, + fresh);" \
            "write it afresh with 'scripts/test-armhf.sh profile'" >&2
        status=1
    fi
    for file in "${owner_names[@]}"; do
        cmp "$sysroot/$file" "sim/target/$file" ||
            { echo "test-armhf: sim/target/$file differs from the sysroot's: 'scripts/test-armhf.sh profile'" >&2; status=1; }
    done

    # The sandbox runs the build machine's cp, rm and tar for the instrument's: the same versions.
    for package in coreutils tar bzip2; do
        ours=$(dpkg-query -W -f='${Version}' "$package" 2>/dev/null | sed 's/-[^-]*$//')
        theirs=$(dpkg-query --admindir="$sysroot/var/lib/dpkg" -W -f='${Version}' "$package" 2>/dev/null | sed 's/-[^-]*$//')
        if [ "$ours" != "$theirs" ]; then
            echo "test-armhf: $package is ${ours:-missing} here and ${theirs:-missing} on the instrument: the sandbox's" \
                "target commands no longer stand for the instrument's" >&2
            status=1
        fi
    done
fi

say "cross build into $build"
cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/armhf-toolchain.cmake" \
    -DARMHF_SYSROOT="$sysroot" -DARMHF_EMULATOR="$qemu" -DUPDATER_SANITIZE=OFF >/dev/null
targets=()
[ "$mode" = all ] || targets=(--target updater probe)
nice cmake --build "$build" -j 2 "${targets[@]}"
file "$build/updater/updater"
# The build machine's own programs: the tests below and the installed updater's stick update.
native=$repo/build-native
cmake -S "$repo" -B "$native" -G Ninja -DUPDATER_SANITIZE=OFF >/dev/null
nice cmake --build "$native" -j 2 --target tst_expander tst_shell sim-instrument update-package

export QEMU_LD_PREFIX=$sysroot QEMU_CPU=cortex-a8 QT_QPA_PLATFORM=offscreen
if [ "$mode" = all ]; then
    # QtTest ends a test function after 5 minutes; an emulated CPU needs longer for the PIC and end-to-end runs.
    export QTEST_FUNCTION_TIMEOUT=1800000
    say "test suite under Cortex-A8 emulation"
    host=$(mktemp)
    bash scripts/host-state.sh record "$host"
    ctest --test-dir "$build" -E "$native_only" -j 2 --output-on-failure --timeout 1800 || status=1
    bash scripts/host-state.sh compare "$host" || status=1
    rm -f "$host"

    say "tst_expander and tst_shell natively only: qemu-user has no I2C_SLAVE ioctl, so an emulated program cannot address the simulated expander on /dev/i2c-1"
    ctest --test-dir "$native" -R "$native_only" --output-on-failure --timeout 900 || status=1
fi

# The package as a user installs it: `apt-get install ./<deb>` into a clean Debian 12 armhf root (apt and
# nothing else; the security suite left out as for the sysroot) fetches its Depends from the archive. Then
# the demo's stick update runs with the updater apt installed there, which the sandbox puts at the
# instrument's path, and the emulator takes every library from that root. The rest is the build machine's:
# the simulated instrument, the state reader and the probe (the armhf build's, loaded into the updater).
make_armhf_root() {
    mmdebstrap --mode=root --variant=apt --architectures=armhf --skip=check/qemu \
        --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' \
        --dpkgopt='path-exclude=/usr/share/locale/*' \
        bookworm "$1" "deb $mirror bookworm main" "deb $mirror bookworm-updates main"
}
installed_stick_update() {
    local root tree out=$build/installed-stick demo=0
    say "the package into a clean Debian 12 armhf root"
    work=$(mktemp -d "$cache/armhf-install.XXXXXX") # below $cache, so visible in the sandbox (sim/keep.list)
    root=$work/root
    clean_root armhf-bookworm-root make_armhf_root "$root"
    mkdir -p "$root/proof"
    cp "$deb" "$root/proof/"
    if clean_root_run "$root" "$cache/armhf-install-apt" "$(clean_root_install_script "$deb")"; then
        emulation_prefix "$root"
        # A build tree as sim/sandbox and scripts/demo.sh take one, of links.
        tree=$work/build
        mkdir -p "$tree/updater" "$tree/sim/instrument" "$tree/sim/probe" "$tree/tools/update-package"
        ln -s "$root$updater_path" "$tree/updater/updater"
        ln -s "$build/sim/probe/plugins" "$tree/sim/probe/plugins"
        ln -s "$native/sim/instrument/sim-instrument" "$tree/sim/instrument/sim-instrument"
        ln -s "$native/tools/update-package/update-package" "$tree/tools/update-package/update-package"
        say "the demo's stick update with the installed $updater_path"
        rm -rf "$out"
        QEMU_LD_PREFIX=$root bash scripts/demo.sh --build "$tree" --out "$out" || demo=$?
        if [ "$demo" = 77 ]; then
            echo "test-armhf: SKIPPED the installed updater's stick update: the sandbox is unavailable here (above)" >&2
        elif [ "$demo" != 0 ] || ! grep -q 'Update complete' "$out/view.txt" 2>/dev/null; then
            for log in "$out/outcome" "$out/sandbox.log" "$out/updater.log"; do
                [ ! -s "$log" ] || { echo "--- $log"; tail -n 40 "$log"; } >&2
            done
            echo "test-armhf: the installed updater did not complete the stick update (demo status $demo; $out)" >&2
            status=1
        fi
    else
        echo "test-armhf: apt-get did not install $deb into the clean armhf root (above)" >&2
        status=1
    fi
    rm -rf "$work"
    work=""
}

say "Debian package"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
deb=$build/instrument-updater_${version}_armhf.deb
rm -f "$deb"
if (cd "$build" && cpack) >"$build/cpack.log" 2>&1 && [ -s "$deb" ]; then
    dpkg-deb -I "$deb"
    # The package installs the updater where the instrument profile says it is.
    updater_path=$(awk '$1 == "updater" { print $2 }' "$profile")
    dpkg-deb -c "$deb" | awk '{ print $6 }' | grep -qx ".$updater_path" || {
        echo "test-armhf: the package does not install the updater at $updater_path, where $profile has it" >&2
        status=1
    }
    # Every library the updater loads must be covered by Depends, through the package that ships it.
    depends=$(dpkg-deb -f "$deb" Depends | sed -E 's/\([^)]*\)//g; s/[|,]/\n/g' | tr -d ' ')
    for soname in $(arm-linux-gnueabihf-readelf -d "$build/updater/updater" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p'); do
        owner=$(dpkg-query --admindir="$sysroot/var/lib/dpkg" -S "*/$soname" 2>/dev/null | head -n 1 | cut -d: -f1)
        if [ -z "$owner" ] || ! grep -qxF "$owner" <<<"$depends"; then
            echo "test-armhf: Depends lacks the package of $soname (${owner:-no package found in the sysroot})" >&2
            status=1
        fi
    done
    say "lintian"
    package_lintian "$deb" || { echo "test-armhf: lintian found errors in $deb" >&2; status=1; }
    installed_stick_update
else
    cat "$build/cpack.log" >&2
    echo "test-armhf: cpack did not write $deb" >&2
    status=1
fi

if [ "$mode" = all ]; then
    say "start-up of the armhf updater under emulation"
    bash bench/startup/run.sh "$build" 9 || status=1
fi

say "$([ $status = 0 ] && echo "armhf: all passed" || echo "armhf: FAILED (see above)")"
exit $status
