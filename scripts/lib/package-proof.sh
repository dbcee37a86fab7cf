# shellcheck shell=bash
# The proofs that a Debian package of ours is fit for a user's machine: lintian, and apt-get install into a
# clean Debian 12 root, made with mmdebstrap, kept in the cache as a tarball and unpacked afresh for every
# run. Sourced by scripts/install-proof.sh and scripts/test-armhf.sh, which set `cache` (a folder outside
# /tmp) and define `say`.

# package_lintian DEB...: lintian on the package files, failing on errors. It gets a TMPDIR of its own,
# removed after it, since it leaves files there.
package_lintian() {
    local tmp status=0
    tmp=$(mktemp -d) || return 1
    TMPDIR=$tmp lintian --fail-on error "$@" || status=$?
    rm -rf "$tmp"
    return $status
}

# clean_root_recipe FUNCTION...: a short hash of the functions' text, naming what they make.
clean_root_recipe() { declare -f "$@" | sha256sum | cut -c1-16; }

# clean_root NAME MAKER DIR: puts into DIR (which must not exist) the root that `MAKER DIR` makes. The root
# is kept as $cache/NAME-<recipe of MAKER>.tar.zst: made once per machine and recipe, unpacked later in
# seconds; a changed MAKER makes a new one and the old one is dropped.
clean_root() {
    local name=$1 maker=$2 dir=$3 tarball lock
    [ ! -e "$dir" ] || { echo "clean_root: $dir exists already" >&2; return 1; }
    tarball=${cache:?}/$name-$(clean_root_recipe "$maker").tar.zst
    exec {lock}>"$cache/.$name.lock"
    flock "$lock"
    if [ -s "$tarball" ]; then
        say "unpacking the cached root $name"
        mkdir -p "$dir"
        zstd -dcq "$tarball" | tar -C "$dir" --numeric-owner -xf - || return 1
    else
        say "making the root $name with mmdebstrap (once per machine)"
        # Checked one by one: a caller may have set -e off, and a root half made must not be kept.
        "$maker" "$dir" || return 1
        tar -C "$dir" --numeric-owner -cf - . | zstd -q -T0 >"$tarball.part" || return 1
        mv "$tarball.part" "$tarball" || return 1
        find "$cache" -maxdepth 1 -regextype posix-extended -regex ".*/$name-[0-9a-f]{16}\.tar\.zst" \
            ! -name "${tarball##*/}" -delete
    fi
    exec {lock}>&-
}

# clean_root_run ROOT ARCHIVES SCRIPT: runs the bash SCRIPT in ROOT with chroot, in a mount namespace of its
# own (so every mount ends with it) with /dev, /proc and /sys, a /dev/shm of its own, the machine's DNS
# set-up and ARCHIVES (a folder outside ROOT) as apt's cache of .debs, so that a repeated run downloads
# nothing new (runs that share ARCHIVES take turns). ROOT is made a mount point, as a machine's / is: the
# sandbox changes its propagation. The emulator's library prefix and TMPDIR name the build machine's
# folders: they stay outside.
clean_root_run() {
    local root=$1 archives=$2 script=$3 lock status=0
    mkdir -p "$archives"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
    exec {lock}>"${archives%/*}/.${archives##*/}.lock"
    flock "$lock"
    unshare --mount --propagation private -- bash -c '
        set -e
        root=$1
        mount --bind "$root" "$root"
        mount --rbind /dev "$root/dev"
        mount -t tmpfs -o mode=1777 shm "$root/dev/shm"
        mount -t proc proc "$root/proc"
        mount --rbind /sys "$root/sys"
        mount --bind "$2" "$root/var/cache/apt/archives"
        exec env -u QEMU_LD_PREFIX -u TMPDIR chroot "$root" /bin/bash -c "$3"' clean-root "$root" "$archives" "$script" || status=$?
    exec {lock}>&-
    return $status
}

# clean_root_install_script DEB: the start of a script for clean_root_run that installs the package file
# DEB, copied to /proof/ in the root beforehand, as a user does: apt-get install ./DEB, its Depends from
# the archive. Prints how many packages that set up; `say` there goes on counting the caller's seconds.
clean_root_install_script() {
    local name=${1##*/}
    cat <<EOF
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
say() { printf '== %s (at %d s)\n' "\$*" "\$((SECONDS + $SECONDS))"; }
say "apt-get install ./$name"
apt-get update -q >/dev/null
apt-get install -y -q --no-install-recommends "/proof/$name" >/proof/apt.log 2>&1 ||
    { cat /proof/apt.log; exit 1; }
echo "\$(grep -c '^Setting up' /proof/apt.log) packages set up; \$(grep -h '^Need to get' /proof/apt.log || echo 'nothing to download')"
apt-get autoclean -q >/dev/null # the cached .debs: only versions the archive still has
EOF
}
