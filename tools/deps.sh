#!/usr/bin/env bash
# Installs the Debian packages of the named sets, when they are missing.
#
#   tools/deps.sh SET...
#
#   build        the compiler, CMake and the libraries the component, the
#                host and kp120 link (make build, make run)
#   test         GoogleTest, clang for the sanitizer pass, and the programs
#                the tests start or compare with (make test)
#   bench        Google Benchmark and the peers the benchmarks measure (make bench)
#   fuzz         clang and its libFuzzer runtime (make fuzz)
#   coverage     gcovr (make coverage)
#   cross-i386   the 32-bit x86 pass (make test-32, part of make test): the
#                i686 cross compiler and debootstrap for its sysroot
#   cross-armhf, cross-arm64
#                the ARM passes: cross compiler, qemu-user, debootstrap
#
# Every package here is one of the build machine's own architecture: the
# other architectures' libraries come from sysroots (tools/sysroot.sh), so
# no set depends on two architectures' indexes of the mirror agreeing.
# Each set is installed on its own: a set that cannot be installed is
# reported (set, packages, apt's error, what to do) and the others still
# are; the exit status is 1 if any failed.  As root it runs apt-get;
# otherwise it prints the command to run and installs nothing.
# KP120_DEBIAN_MIRROR is the mirror to name in the advice.
set -uo pipefail

# One package a line: additions merge easily.
set_build=(
  build-essential
  cmake
  pkg-config
  python3
  libicu-dev
  libsqlite3-dev
  liblua5.4-dev
  libedit-dev
  libglib2.0-dev
  libglib2.0-bin
  libsystemd-dev
  libzip-dev
  libx11-dev
  libxtst-dev
  libxrandr-dev
  libxext-dev
)
set_test=(
  libgtest-dev
  libgmock-dev
  clang
  libclang-rt-dev
  lld
  libc6-dev-i386
  zlib1g-dev
  ncompress
  coreutils
  xvfb
  xauth
  xdotool
  xclip
  x11-xserver-utils
  x11-utils
  openbox
  trash-cli
  dbus
  python3-dbusmock
  python3-dbus
  python3-gi
  shared-mime-info
  desktop-file-utils
  binutils-mingw-w64-x86-64
  binutils-mingw-w64-i686
  dpkg-dev
  lintian
  python3-samba
)
set_bench=(
  libbenchmark-dev
  zlib1g-dev
)
set_fuzz=(
  clang
  libclang-rt-dev
  lld
)
set_coverage=(
  gcovr
)
set_cross=(
  debootstrap
)
set_cross_i386=(
  "${set_cross[@]}"
  g++-i686-linux-gnu
)
set_cross_armhf=(
  "${set_cross[@]}"
  qemu-user
  crossbuild-essential-armhf
)
set_cross_arm64=(
  "${set_cross[@]}"
  qemu-user
  crossbuild-essential-arm64
)

mirror=${KP120_DEBIAN_MIRROR:-}
[ $# -gt 0 ] || set -- build

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }

advice() {
  echo "deps: what to do: run the same command again later (a mirror in the middle of a sync is whole"
  echo "  again within hours; 'apt-get update' names the index that failed), check the network, or"
  echo "  use another Debian mirror in /etc/apt/sources.list${mirror:+ (KP120_DEBIAN_MIRROR=$mirror is used by the sysroots)}."
}

updated=0
failed=()
for set in "$@"; do
  var="set_${set//-/_}[@]"
  if ! declare -p "set_${set//-/_}" >/dev/null 2>&1; then
    echo "deps: unknown set '$set' (build test bench fuzz coverage cross-i386 cross-armhf cross-arm64)" >&2
    exit 2
  fi
  missing=()
  for p in "${!var}"; do installed "$p" || missing+=("$p"); done
  [ ${#missing[@]} -eq 0 ] && continue
  echo "deps: the $set set needs: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "deps: installing needs root; run:" >&2
    echo "  sudo apt-get update && sudo apt-get install -y --no-install-recommends ${missing[*]}" >&2
    failed+=("$set")
    continue
  fi
  export DEBIAN_FRONTEND=noninteractive
  lock=(-o DPkg::Lock::Timeout=900)
  if [ $updated -eq 0 ]; then
    updated=1
    # A mirror in the middle of a sync fails one index; the others still
    # load, and a set whose packages they hold still installs.
    if ! out=$(apt-get "${lock[@]}" update -qq 2>&1); then
      echo "deps: apt-get update failed for some indexes; going on with those it loaded:"
      grep -E '^(E|W):' <<<"$out" | head -5
    fi
  fi
  # apt-get resolves and downloads the whole set before it unpacks any of
  # it: a set that cannot be had installs nothing.
  if ! out=$(apt-get "${lock[@]}" install -y -qq --no-install-recommends "${missing[@]}" 2>&1); then
    {
      echo "deps: the $set set could not be installed: ${missing[*]}"
      echo "deps: apt-get said:"
      grep -E '^(E|W):|held broken|Depends:|Unable' <<<"$out" | head -12 | sed 's/^/  /'
      advice
    } >&2
    failed+=("$set")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "deps: not installed: the ${failed[*]} set(s)" >&2
  exit 1
fi
exit 0
