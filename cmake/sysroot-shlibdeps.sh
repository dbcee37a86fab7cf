#!/bin/sh
# dpkg-shlibdeps for binaries built against a Debian sysroot, as cpack calls it in a cross build.
#   sysroot-shlibdeps.sh <sysroot> <debian architecture> [dpkg-shlibdeps arguments...]
# dpkg-shlibdeps finds a library on the file system and asks the package database which package holds
# it. Here the sysroot's multiarch library folder is shown at its installed path in a private mount
# namespace, and the sysroot's database answers: Depends names what the target itself would install.
set -eu
sysroot=${1:?usage: sysroot-shlibdeps.sh <sysroot> <debian architecture> [arguments...]}
arch=${2:?usage: sysroot-shlibdeps.sh <sysroot> <debian architecture> [arguments...]}
shift 2
multiarch=$(dpkg-architecture -a "$arch" -qDEB_HOST_MULTIARCH 2>/dev/null) ||
    { echo "sysroot-shlibdeps: unknown Debian architecture '$arch'" >&2; exit 2; }
libs="$sysroot/usr/lib/$multiarch"
[ -d "$libs" ] && [ -d "$sysroot/var/lib/dpkg/info" ] ||
    { echo "sysroot-shlibdeps: '$sysroot' is not a Debian $arch root file system (no $libs or dpkg database)" >&2; exit 2; }
exec bwrap --dev-bind / / --ro-bind "$libs" "/usr/lib/$multiarch" --setenv DEB_HOST_ARCH "$arch" -- \
    dpkg-shlibdeps --admindir="$sysroot/var/lib/dpkg" "$@"
