#!/usr/bin/env bash
# Makes a Debian sysroot for ARCH (armhf, arm64) under DIR with the
# target's development libraries: debootstrap's first stage only unpacks
# the packages, which is all a cross compiler and qemu-user need.  Used by
# `make test-armhf` and `make test-arm64`; nothing is installed on the
# build machine for the target architecture, so the sysroot does not have
# to match the build machine's package versions.
#   tools/sysroot.sh ARCH DIR
set -euo pipefail
arch=${1:?usage: tools/sysroot.sh armhf|arm64 DIR}
dir=${2:?usage: tools/sysroot.sh armhf|arm64 DIR}
mirror=${KP120_DEBIAN_MIRROR:-http://deb.debian.org/debian}
suite=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
[ -f "$dir/.complete" ] && exit 0
include=libicu-dev,libsqlite3-dev,liblua5.4-dev,libedit-dev,libgtest-dev,libgmock-dev,libzip-dev,libglib2.0-dev
include=$include,libsystemd-dev,libx11-dev,libxtst-dev,libxrandr-dev,libxext-dev,libxcb1-dev,zlib1g-dev
include=$include,libstdc++-12-dev,libc6-dev
rm -rf "$dir"
mkdir -p "$dir"
debootstrap --foreign --variant=minbase --arch="$arch" --include="$include" "$suite" "$dir" "$mirror"
# The first stage extracts the base system only; the development packages
# it downloaded are unpacked here (no maintainer scripts are needed).
for deb in "$dir"/var/cache/apt/archives/*.deb; do
  dpkg-deb -x "$deb" "$dir"
done
# Absolute symbolic links inside the sysroot would point into the build
# machine: make them relative to the sysroot.
find "$dir" -type l -lname '/*' | while read -r link; do
  target=$(readlink "$link")
  rel=$(realpath -m --relative-to="$(dirname "$link")" "$dir$target")
  ln -sfn "$rel" "$link"
done
touch "$dir/.complete"
