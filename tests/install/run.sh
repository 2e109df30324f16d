#!/usr/bin/env bash
# Installs the build into a temporary prefix whose name holds a space, twice
# (the second over the first, as an upgrade does), then builds two programs
# outside the tree against that install only, one with find_package and one
# with pkg-config, each with GCC and with Clang when it is there, and runs
# them: each loads the installed component and calls a function.
#   tests/install/run.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
src=$(cd "$2" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/kp120-install-XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix="$work/pre fix"
unset KP120_COMPONENT

cmake --install "$build" --prefix "$prefix" > "$work/install1.log"
cmake --install "$build" --prefix "$prefix" > "$work/install2.log"
for f in include/kp120/component.h include/kp120/vm.h include/kp120/types.h include/kp120/host.h bin/kp120 \
         share/man/man1/kp120.1; do
  [ -e "$prefix/$f" ] || { echo "install: $f is missing"; exit 1; }
done
lib=$(dirname "$(find "$prefix" -name 'libkp120std.so.*.*' | head -n 1)")
[ -n "$lib" ] || { echo "install: the component is missing"; exit 1; }
soname=$(objdump -p "$lib"/libkp120std.so.*.* | awk '/SONAME/ {print $2}')
[[ "$soname" == libkp120std.so.* ]] || { echo "install: component SONAME is '$soname'"; exit 1; }
"$prefix/bin/kp120" -e 'assert(kp.DateToInteger("20261124") == 82873)'

compilers=(c++)
command -v clang++ > /dev/null && compilers+=(clang++)
for cxx in "${compilers[@]}"; do
  echo "== find_package with $cxx"
  cmake -S "$src/examples/consumers/cmake" -B "$work/cmake-$cxx" -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_PREFIX_PATH="$prefix" > "$work/cmake-$cxx.log"
  cmake --build "$work/cmake-$cxx" > "$work/cmake-$cxx-build.log"
  "$work/cmake-$cxx/consumer"

  echo "== pkg-config with $cxx"
  export PKG_CONFIG_PATH="$lib/pkgconfig"
  cflags=$(pkg-config --cflags kp120-host)
  libs=$(pkg-config --libs kp120-host)
  libdir=$(pkg-config --variable=libdir kp120-host)
  # pkg-config escapes the blanks of paths with a backslash; eval undoes it.
  eval "$cxx -std=c++20 -o \"$work/pc-$cxx\" \"$src/examples/consumers/consumer.cpp\" $cflags $libs \
        -Wl,-rpath,$libdir"
  "$work/pc-$cxx"
done
echo "install: ok"
