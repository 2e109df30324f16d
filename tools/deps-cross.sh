#!/usr/bin/env bash
# Installs what the cross build for Debian architecture ARCH (armhf, arm64)
# needs on the build machine: the cross compilers, qemu-user to run the
# tests, and debootstrap to make the target's sysroot (tools/sysroot.sh).
# As root it runs apt-get; otherwise it prints the command.
#   tools/deps-cross.sh ARCH
set -eu
arch=${1:?usage: tools/deps-cross.sh armhf|arm64}
pkgs=("crossbuild-essential-$arch" qemu-user debootstrap)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Missing packages: ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  echo "Run: sudo apt-get install -y ${missing[*]}"
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
lock=(-o DPkg::Lock::Timeout=900)
# A mirror in the middle of a sync fails one index; the others still load.
apt-get "${lock[@]}" update -qq || echo "apt-get update reported an error; going on with the indexes it loaded"
apt-get "${lock[@]}" install -y -qq --no-install-recommends "${missing[@]}"
