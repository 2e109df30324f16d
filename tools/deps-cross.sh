#!/usr/bin/env bash
# Installs what the cross build for Debian architecture ARCH (armhf, arm64)
# needs: the cross compilers, qemu-user to run the tests, and the ARCH
# libraries of every dependency through multiarch.  As root it runs
# apt-get; otherwise it prints the commands.
#   tools/deps-cross.sh ARCH
set -eu
arch=${1:?usage: tools/deps-cross.sh armhf|arm64}
libs=(libicu-dev libsqlite3-dev liblua5.4-dev libedit-dev libgtest-dev libgmock-dev libzip-dev libglib2.0-dev
      libsystemd-dev libx11-dev libxtst-dev libxrandr-dev libxext-dev zlib1g-dev)
pkgs=("crossbuild-essential-$arch" qemu-user)
for l in "${libs[@]}"; do pkgs+=("$l:$arch"); done
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Missing packages: ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  echo "Run: sudo dpkg --add-architecture $arch && sudo apt-get update && sudo apt-get install -y ${missing[*]}"
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
lock=(-o DPkg::Lock::Timeout=900)
if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
  dpkg --add-architecture "$arch"
fi
# A mirror in the middle of a sync fails one index; the others still load.
apt-get "${lock[@]}" update -qq || echo "apt-get update reported an error; going on with the indexes it loaded"
apt-get "${lock[@]}" install -y -qq --no-install-recommends "${missing[@]}"
