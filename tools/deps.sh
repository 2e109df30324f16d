#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests and the benchmarks
# need, when they are missing.  As root it runs apt-get; otherwise it prints
# the command to run.
#
# The 32-bit x86 build (make test-32, part of make test) needs the 32-bit
# compiler support libraries and the :i386 twins of the libraries, from
# Debian's multiarch: the i386 architecture is added to dpkg first.  (Not
# gcc-multilib itself: Debian makes it conflict with the ARM cross compilers
# of make test-armhf, and g++ -m32 needs only what is listed here.)
# KP120_32=0 leaves them out.
set -eu
pkgs=(build-essential cmake pkg-config python3 clang libclang-rt-dev lld
      libicu-dev libsqlite3-dev liblua5.4-dev libedit-dev
      libgtest-dev libgmock-dev libbenchmark-dev zlib1g-dev ncompress coreutils gcovr
      libglib2.0-dev libglib2.0-bin libsystemd-dev libzip-dev libx11-dev libxtst-dev libxrandr-dev libxext-dev
      xvfb xauth xdotool xclip x11-xserver-utils x11-utils openbox trash-cli dbus python3-dbusmock python3-dbus python3-gi
      shared-mime-info desktop-file-utils binutils-mingw-w64-x86-64 binutils-mingw-w64-i686)
# The 32-bit build: libraries of the component, the host, kp120 and the
# tests (no benchmark library: benchmarks are not built for 32 bits).
pkgs32=(lib32gcc-12-dev lib32stdc++-12-dev libc6-dev-i386 libicu-dev:i386 libsqlite3-dev:i386 liblua5.4-dev:i386 libedit-dev:i386
        libgtest-dev:i386 libgmock-dev:i386 libzip-dev:i386 libglib2.0-dev:i386 libsystemd-dev:i386
        libx11-dev:i386 libxtst-dev:i386 libxrandr-dev:i386 libxext-dev:i386)
if [ "${KP120_32:-1}" != 0 ]; then
  pkgs+=("${pkgs32[@]}")
fi
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Missing packages: ${missing[*]}"
need_i386=0
case " ${missing[*]}" in *:i386*) dpkg --print-foreign-architectures | grep -qx i386 || need_i386=1 ;; esac
if [ "$(id -u)" -eq 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  [ $need_i386 -eq 1 ] && dpkg --add-architecture i386
  # A mirror in the middle of a sync fails one index; the others still load.
  apt-get update -qq || echo "apt-get update reported an error; going on with the indexes it loaded"
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  [ $need_i386 -eq 1 ] && echo "Run: sudo dpkg --add-architecture i386 && sudo apt-get update"
  echo "Run: sudo apt-get install -y ${missing[*]}"
  exit 1
fi
