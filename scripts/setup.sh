#!/usr/bin/env bash
# Installs every Debian package the project needs. Safe to run again: it installs only what is missing.
#   scripts/setup.sh [more packages...]   (scripts with needs of their own name them here)
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config
    qtbase5-dev qtbase5-dev-tools libqt5test5
    clang-format-14 clang-tidy-14
    bubblewrap fuse3 libfuse3-dev util-linux uidmap
    gputils srecord bzip2 tar python3 libarchive-dev
    g++-arm-linux-gnueabihf u-boot-tools mtd-utils kmod libelf-dev zlib1g-dev
)

packages+=("$@")
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo=()
[ "$(id -u)" = 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
