#!/usr/bin/env bash
# Installs the build into a temporary prefix whose name holds a space, twice
# (the second over the first, as an upgrade does), then builds two programs
# outside the tree against that install only, one with find_package and one
# with pkg-config, each with GCC and with Clang when it is there, and runs
# them: each loads the installed component and calls a function; the minimal
# VM in C builds on kp120::headers alone and loads the module by its soname.
# Then it builds the Debian packages and runs lintian on them when it is
# there: no error, no warning that the overrides do not explain.
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
[ ! -e "$lib/libkp120std.so" ] || [ -L "$lib/libkp120std.so" ] || { echo "install: libkp120std.so is not a link"; exit 1; }

# Only <kp120/...> reaches the headers; the .pc files name the install's prefix.
targets=$(cat "$lib"/cmake/kp120/kp120Targets.cmake)
if grep -q 'include/kp120"' <<< "$targets"; then echo "install: include/kp120 is an include directory"; exit 1; fi
grep -q 'cxx_std_20' <<< "$targets" || { echo "install: kp120::host does not require C++20"; exit 1; }
export PKG_CONFIG_PATH="$lib/pkgconfig"
# (pkg-config keeps the backslash that escapes a blank in a variable.)
includedir=$(pkg-config --variable=includedir kp120)
[ "${includedir//\\/}" == "$prefix/include" ] || { echo "install: includedir is $includedir"; exit 1; }
module=$(pkg-config --variable=module kp120)
[ "${module//\\/}" == "$lib/libkp120std.so.1" ] || { echo "install: module is $module"; exit 1; }

compilers=(c++)
command -v clang++ > /dev/null && compilers+=(clang++)
for cxx in "${compilers[@]}"; do
  echo "== find_package with $cxx"
  cmake -S "$src/examples/consumers/cmake" -B "$work/cmake-$cxx" -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_PREFIX_PATH="$prefix" > "$work/cmake-$cxx.log"
  cmake --build "$work/cmake-$cxx" > "$work/cmake-$cxx-build.log"
  "$work/cmake-$cxx/consumer"
  "$work/cmake-$cxx/minimal_vm" | grep -q 'error 80125: The month must be between 1 and 12' || {
    echo "install: the minimal VM on kp120::headers failed"; exit 1; }

  echo "== pkg-config with $cxx"
  cflags=$(pkg-config --cflags kp120-host)
  libs=$(pkg-config --libs kp120-host)
  libdir=$(pkg-config --variable=libdir kp120-host)
  # pkg-config escapes the blanks of paths with a backslash; eval undoes it.
  eval "$cxx -std=c++20 -o \"$work/pc-$cxx\" \"$src/examples/consumers/consumer.cpp\" $cflags $libs \
        -Wl,-rpath,$libdir"
  "$work/pc-$cxx"
done
if command -v dpkg-deb > /dev/null && command -v dpkg-shlibdeps > /dev/null; then
  echo "== Debian packages"
  "$src/tools/package-deb.sh" "$build" "$work/deb" > "$work/deb.log"
  for p in libkp120-1 libkp120-dev kp120; do
    f=$(ls "$work"/deb/${p}_*.deb)
    dpkg-deb -f "$f" Multi-Arch | grep -qE 'same|foreign' || { echo "install: $p has no Multi-Arch"; exit 1; }
    grep -q "usr/share/doc/$p/copyright" <<< "$(dpkg-deb -c "$f")" || { echo "install: $p has no copyright"; exit 1; }
  done
  grep -q "usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)/libkp120std.so.1" <<< "$(dpkg-deb -c "$work"/deb/libkp120-1_*.deb)" ||
    { echo "install: the module is not in the multiarch directory"; exit 1; }
  grep -q 'doc/libkp120-dev/vm-authors.md' <<< "$(dpkg-deb -c "$work"/deb/libkp120-dev_*.deb)" ||
    { echo "install: the guide is not in libkp120-dev"; exit 1; }
  if command -v lintian > /dev/null; then
    lintian --tag-display-limit 0 "$work"/deb/*.deb | tee "$work/lintian.log"
    if grep -qE '^[EW]:' "$work/lintian.log"; then echo "install: lintian errors or warnings"; exit 1; fi
  fi
fi
echo "install: ok"
