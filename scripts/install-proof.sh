#!/usr/bin/env bash
# The engineers' package proven by installing it as an engineer would: cpack writes
# instrument-update-tools_<version>_amd64.deb from the native build, lintian checks it (no errors), and
# `apt-get install ./instrument-update-tools_*.deb` puts it into a clean Debian 12 amd64 root with its
# Depends from Debian's archive. There, with no checkout and no build tree, update-package runs `lint`,
# `inspect` and `preview` of the sample package from a folder of its own. Exit status 0 only when all of
# that succeeded.
#   scripts/install-proof.sh [build dir]    as root on Debian 12 amd64 (CI runs it after scripts/test.sh,
#                                           which builds build-native)
# Kept between runs in /var/cache/instrument-updater: the clean root as a tarball (made once with
# mmdebstrap) and the .debs apt fetched into it, so that a repeated run downloads nothing new.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(cd "${1:-$repo/build-native}" && pwd)
cache=/var/cache/instrument-updater
mirror=${DEBIAN_MIRROR:-http://deb.debian.org/debian}
say() { printf '== %s (at %d s)\n' "$*" "$SECONDS"; }
die() { echo "install-proof: $*" >&2; exit 1; }
. "$repo/scripts/lib/package-proof.sh"
[ "$(id -u)" = 0 ] || die "run as root: it installs packages and runs a Debian root with chroot"

say "host tools"
bash "$repo/scripts/setup.sh" mmdebstrap lintian dpkg-dev zstd

say "the package (cpack in $build)"
cmake --build "$build" -j 2 >/dev/null || die "the build in $build failed: run scripts/test.sh first"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
deb=$build/instrument-update-tools_${version}_amd64.deb
rm -f "$deb"
(cd "$build" && cpack -G DEB) >"$build/cpack.log" 2>&1 && [ -s "$deb" ] ||
    { cat "$build/cpack.log" >&2; die "cpack did not write $deb"; }
updater_deb=$build/instrument-updater_${version}_amd64.deb # the same build's, beside it
dpkg-deb -I "$deb" | sed -n '/Package:/,$p'
printf '%s: %s bytes\n' "${deb##*/}" "$(stat -c %s "$deb")" "${updater_deb##*/}" "$(stat -c %s "$updater_deb")"
say "lintian"
package_lintian "$deb" "$updater_deb" || die "lintian found errors in $deb or $updater_deb"

say "the sample package"
work=$(mktemp -d "$cache/install-proof.XXXXXX")
cleanup() { rm -rf "$work"; }
trap cleanup EXIT
trap 'exit 130' INT TERM
# Nothing in the package may lead back to this checkout or its build tree.
mkdir -p "$work/deb"
dpkg-deb -x "$deb" "$work/deb"
if grep -rlaF -e "$repo" -e "$build" "$work/deb"; then
    die "the files above name $repo or $build: found relative to the installed binary instead"
fi
bash "$repo/scripts/make-packages.sh" "$work/packages" >/dev/null
package=$(find "$work/packages/good" -name '*M_firmware_update_*.tar.bz2' | head -n 1)
[ -n "$package" ] || die "make-packages.sh wrote no good package"

# The clean root: Debian 12 with apt and nothing else, as a new machine has it.
make_root() {
    mmdebstrap --mode=root --variant=apt --dpkgopt='path-exclude=/usr/share/doc/*' \
        --dpkgopt='path-exclude=/usr/share/locale/*' bookworm "$1" \
        "deb $mirror bookworm main" "deb $mirror bookworm-updates main" \
        "deb ${mirror%/debian}/debian-security bookworm-security main"
}
root=$work/root
clean_root amd64-bookworm-root make_root "$root"
mkdir -p "$root/proof"
cp "$deb" "$package" "$root/proof/"

# Inside: what an engineer types. preview's sandbox needs /dev (FUSE), /proc and /sys; its cache of the
# instrument's root layers gets a /dev/shm of its own, so nothing built from the host's root is reused.
inside=$(
    clean_root_install_script "$deb"
    cat <<EOF
cd /proof
update-package --version
say "update-package lint"
update-package lint "${package##*/}"
say "update-package inspect"
update-package inspect "${package##*/}" >inspect.txt
grep -q . inspect.txt
say "update-package preview"
# The proof is that preview runs installed: the job reaches its end and the instrument does what the
# installed tool predicted.
status=0
update-package preview "${package##*/}" --out-dir preview || status=\$?
if [ "\$status" != 0 ] || ! grep -q 'Update complete' preview/view.txt; then
    for log in preview/outcome preview/sandbox.log preview/updater.log preview/probe.txt; do
        [ ! -s "\$log" ] || { echo "--- \$log"; tail -n 40 "\$log"; }
    done
    exit 1
fi
test -s /usr/share/man/man1/update-package.1.gz
test -s /usr/share/bash-completion/completions/update-package
EOF
)
say "into the clean root"
clean_root_run "$root" "$cache/install-proof-apt" "$inside" || die "the installed package failed (above)"
say "installed and previewed in a clean Debian 12 root"
