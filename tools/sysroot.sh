#!/usr/bin/env bash
# Makes a Debian sysroot for ARCH (i386, armhf, arm64) under DIR with the
# target's development libraries: debootstrap's first stage only unpacks
# the packages, which is all a cross compiler, qemu-user and the 32-bit x86
# programs (run through the sysroot's own loader) need.  Used by
# `make test-32`, `make test-armhf` and `make test-arm64`; nothing is
# installed on the build machine for the target architecture, so the
# sysroot does not have to match the build machine's package versions.
#   tools/sysroot.sh ARCH DIR
#
# A sysroot is made under DIR.part and renamed to DIR once whole; DIR/.complete
# holds the stamp of the package list it was made from.  A DIR without it
# (an interrupted download) or with another stamp (the list changed) is
# made again.  KP120_DEBIAN_MIRROR picks the Debian mirror.
set -euo pipefail
usage="usage: tools/sysroot.sh i386|armhf|arm64 DIR"
arch=${1:?$usage}
dir=${2:?$usage}
mirror=${KP120_DEBIAN_MIRROR:-http://deb.debian.org/debian}
suite=bookworm

# The libraries of the component, the host, kp120 and the tests.  One
# package a line: additions merge easily.
pkgs=(
  libc6-dev
  libstdc++-12-dev
  libicu-dev
  libsqlite3-dev
  liblua5.4-dev
  libedit-dev
  libzip-dev
  libglib2.0-dev
  libsystemd-dev
  libx11-dev
  libxtst-dev
  libxrandr-dev
  libxext-dev
  libxcb1-dev
  zlib1g-dev
  libgtest-dev
  libgmock-dev
)
case $arch in
  # The ARM builds carry the benchmarks (the ABI call under emulation).
  armhf | arm64) pkgs+=(libbenchmark-dev) ;;
  i386) ;;
  *) echo "$usage" >&2; exit 2 ;;
esac
include=$(IFS=,; echo "${pkgs[*]}")
stamp="$suite $arch $include"

if [ -f "$dir/.complete" ] && [ "$(cat "$dir/.complete")" = "$stamp" ]; then
  exit 0
fi
if [ -e "$dir" ]; then
  if [ -f "$dir/.complete" ]; then
    echo "sysroot $arch: $dir was made from another package list; making it again"
  else
    echo "sysroot $arch: $dir is incomplete (an interrupted download); making it again"
  fi
fi
fail() {
  echo "sysroot $arch: $1" >&2
  echo "sysroot $arch: packages: ${pkgs[*]}" >&2
  echo "sysroot $arch: what to do: run the same command again later (a mirror in the middle of a sync" >&2
  echo "  is whole again within hours), or pick another Debian mirror, e.g." >&2
  echo "  KP120_DEBIAN_MIRROR=http://ftp.de.debian.org/debian (now $mirror)" >&2
  exit 1
}
if [ "$(id -u)" -ne 0 ]; then
  echo "sysroot $arch: debootstrap needs root; run:" >&2
  echo "  sudo KP120_DEBIAN_MIRROR=$mirror $0 $arch $dir" >&2
  exit 1
fi
command -v debootstrap >/dev/null || fail "debootstrap is missing (tools/deps.sh cross-$arch installs it)"

part=$dir.part
rm -rf "$part" "$dir"
mkdir -p "$part"
log=$part.log
echo "sysroot $arch: downloading ${#pkgs[@]} development packages and their dependencies from $mirror"
if ! debootstrap --foreign --variant=minbase --arch="$arch" --include="$include" "$suite" "$part" "$mirror" >"$log" 2>&1; then
  grep -E '^(E|W):' "$log" | tail -5 >&2 || tail -5 "$log" >&2
  fail "debootstrap could not download the packages (whole log: $log)"
fi
# The first stage extracts the base system only; the development packages
# it downloaded are unpacked here (no maintainer scripts are needed).
for deb in "$part"/var/cache/apt/archives/*.deb; do
  dpkg-deb -x "$deb" "$part" || fail "$(basename "$deb") is damaged (dpkg-deb -x failed)"
done
rm -f "$part"/var/cache/apt/archives/*.deb
# Absolute symbolic links inside the sysroot would point into the build
# machine: make them relative to the sysroot.
find "$part" -type l -lname '/*' | while read -r link; do
  target=$(readlink "$link")
  rel=$(realpath -m --relative-to="$(dirname "$link")" "$part$target")
  ln -sfn "$rel" "$link"
done
echo "$stamp" >"$part/.complete"
mv "$part" "$dir"
rm -f "$log"
