#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests and the benchmarks
# need, when they are missing.  As root it runs apt-get; otherwise it prints
# the command to run.
set -eu
pkgs=(build-essential gcc-multilib cmake pkg-config python3 clang libclang-rt-dev lld
      libicu-dev libsqlite3-dev liblua5.4-dev libedit-dev
      libgtest-dev libgmock-dev libbenchmark-dev zlib1g-dev ncompress coreutils gcovr
      libglib2.0-dev libglib2.0-bin libsystemd-dev libzip-dev libx11-dev libxtst-dev libxrandr-dev libxext-dev
      xvfb xauth xdotool xclip x11-xserver-utils x11-utils trash-cli dbus python3-dbusmock python3-dbus python3-gi
      shared-mime-info desktop-file-utils binutils-mingw-w64-x86-64 binutils-mingw-w64-i686)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Missing packages: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "Run: sudo apt-get install -y ${missing[*]}"
  exit 1
fi
