#!/usr/bin/env bash
# Configures a build directory with CMake when its configuration is not the
# one asked for:
#
#   tools/configure.sh BUILD-DIR [cmake argument...]
#
# BUILD-DIR/kp120-configure.stamp records the arguments, the compilers
# named by CC and CXX, the toolchain file's contents and the layout version
# of the build directories.  When any differs, or the directory has no
# stamp (made by hand or by an older version of the project), the cache
# is dropped and CMake configures afresh from the arguments alone: a build
# directory never keeps flags it was not given this time.  Object files
# stay; the build then recompiles what the new flags change.
set -euo pipefail
build=${1:?usage: tools/configure.sh BUILD-DIR [cmake argument...]}
shift
cd "$(dirname "$0")/.."
# Raised when the build directories change in a way an old one cannot follow.
layout=2

mkdir -p "$build"
new=$build/kp120-configure.stamp.new
toolchain=
for a in "$@"; do
  case $a in -DCMAKE_TOOLCHAIN_FILE=*) toolchain=${a#*=} ;; esac
done
{
  echo "layout $layout"
  echo "source $PWD"
  printf 'arg %s\n' "$@"
  echo "CC ${CC:-} CXX ${CXX:-}"
  if [ -n "$toolchain" ]; then
    # The toolchain file and what it includes beside it.
    { cat "$toolchain" "$(dirname "$toolchain")"/cross-debian.cmake 2>/dev/null || true; } | sha256sum
  fi
} >"$new"

stamp=$build/kp120-configure.stamp
toolchain_lines() { awk '!/^arg / || /^arg -D(CMAKE_(C|CXX)_COMPILER|CMAKE_TOOLCHAIN_FILE)[:=]/'; }
if [ -f "$build/CMakeCache.txt" ] && [ -f "$stamp" ] && cmp -s "$stamp" "$new"; then
  rm -f "$new"
  exit 0
fi
if [ -f "$build/CMakeCache.txt" ]; then
  if [ -f "$stamp" ]; then
    echo "configure: $build was configured with other flags or another toolchain; configuring it afresh" >&2
    diff "$stamp" "$new" | grep '^[<>]' | head -6 | sed 's/^/  /' >&2 || true
  else
    echo "configure: $build was made by an older version of the project or by hand; configuring it afresh" >&2
  fi
  # The cache goes, and what CMake found out about the compilers when they
  # may have changed (a new compiler, toolchain or layout, or no stamp):
  # finding it out again makes every object be compiled again.  The object
  # files under the targets' folders stay.
  rm -f "$build/CMakeCache.txt"
  if ! cmp -s <(toolchain_lines 2>/dev/null <"$stamp") <(toolchain_lines <"$new"); then
    rm -rf "$build"/CMakeFiles/[0-9]*
  fi
fi
rm -f "$stamp"
cmake -S . -B "$build" "$@"
mv "$new" "$stamp"
