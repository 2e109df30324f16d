#!/usr/bin/env bash
# Builds the Debian packages of a build tree:  tools/package-deb.sh BUILD_DIR [OUT_DIR]
#   libkp120-1    the component module, the reference host library and the
#                 registry maintenance library (Multi-Arch: same)
#   libkp120-dev  headers, CMake and pkg-config files, the guide, the function
#                 reference and the minimal VM (Multi-Arch: same)
#   kp120         the kp120 command and its manual page (Multi-Arch: foreign)
# Each holds the MIT licence as its copyright file and a changelog; the
# library package has a shlibs file and the ldconfig trigger.  Dependencies
# on system libraries come from dpkg-shlibdeps.  The packages land in OUT_DIR
# (default BUILD_DIR/packages); lintian checks them (tests/install).
set -euo pipefail
build=$(cd "$1" && pwd)
out=${2:-$build/packages}
src=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$out"
out=$(cd "$out" && pwd)

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
major=${version%%.*}
arch=$(dpkg --print-architecture)
maintainer="kp120 maintainers <maintainers@kp120.invalid>"
work=$(mktemp -d "${TMPDIR:-/tmp}/kp120-deb-XXXXXX")
trap 'rm -rf "$work"' EXIT
runtime=libkp120-$major

# The changelog of this version (a native package: changelog.gz).
changelog() {
  cat <<EOF
kp120 ($version) unstable; urgency=medium

  * Release $version: the standard-function component, its reference host,
    the kp120 command, headers, CMake and pkg-config files.

 -- $maintainer  $(date -R -u -d @"${SOURCE_DATE_EPOCH:-$(git -C "$src" log -1 --format=%ct 2> /dev/null || date +%s)}")
EOF
}

copyright() {
  cat <<EOF
Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: kp120
Upstream-Contact: $maintainer

Files: *
Copyright: 2026 kp120 maintainers
License: Expat

License: Expat
EOF
  # The licence text, each line indented, blank lines as " .".
  sed -n '/^Permission/,$p' "$src/LICENSE" | sed -e 's/^$/./' -e 's/^/ /'
}

# stage COMPONENT PACKAGE: installs one component under $work/PACKAGE.
stage() {
  local root="$work/$2"
  DESTDIR="$root" cmake --install "$build" --prefix /usr --component "$1" --strip > /dev/null
  local doc="$root/usr/share/doc/$2"
  mkdir -p "$doc"
  # Documents installed for the project move to the package's own directory.
  if [ -d "$root/usr/share/doc/kp120" ] && [ "$2" != kp120 ]; then
    cp -a "$root/usr/share/doc/kp120/." "$doc/"
    rm -rf "$root/usr/share/doc/kp120"
  fi
  rm -f "$doc/LICENSE"
  copyright > "$doc/copyright"
  changelog | gzip -9n > "$doc/changelog.gz"
  find "$root/usr/share/man" -type f -name '*.[0-9]' -exec gzip -9n {} + 2> /dev/null || true
  find "$root" -type d -exec chmod 0755 {} +
  find "$root" -type f -exec chmod 0644 {} +
  [ -d "$root/usr/bin" ] && chmod 0755 "$root"/usr/bin/*
  mkdir -p "$root/DEBIAN"
}

# control PACKAGE SECTION MULTIARCH DEPENDS SUMMARY DESCRIPTION
control() {
  local root="$work/$1"
  local size
  size=$(du -sk --exclude=DEBIAN "$root" | cut -f1)
  {
    echo "Package: $1"
    echo "Source: kp120"
    echo "Version: $version"
    echo "Architecture: $arch"
    echo "Multi-Arch: $3"
    echo "Maintainer: $maintainer"
    echo "Installed-Size: $size"
    [ -n "$4" ] && echo "Depends: $4"
    echo "Section: $2"
    echo "Priority: optional"
    echo "Description: $5"
    echo "$6" | fold -s -w 72 | sed -e 's/ *$//' -e 's/^/ /'
  } > "$root/DEBIAN/control"
  (cd "$root" && find usr -type f -exec md5sum {} + | sort -k2) > "$root/DEBIAN/md5sums"
}

# The shlibs lines of the libraries of the library package.
shlibs() {
  local l
  for l in libkp120std libkp120host libkp120regtool; do
    printf '%s %s %s (>= %s)\n' "$l" "$major" "$runtime" "$version"
  done
}

# shlibdeps PACKAGE: the dependencies of its ELF files on system libraries
# and on the library package.
shlibdeps() {
  local root="$work/$1" files
  mapfile -t files < <(find "$root/usr" -type f \( -name '*.so.*' -o -path '*/bin/*' \))
  [ ${#files[@]} -gt 0 ] || return 0
  mkdir -p "$work/sd/debian"
  printf 'Source: kp120\n\nPackage: %s\nArchitecture: any\n' "$1" > "$work/sd/debian/control"
  shlibs > "$work/sd/debian/shlibs.local"
  (cd "$work/sd" && dpkg-shlibdeps -O -l"$work/$runtime/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" \
    "${files[@]}" 2> /dev/null) | sed -n 's/^shlibs:Depends=//p'
}

stage runtime "$runtime"
stage dev libkp120-dev
stage tool kp120

shlibs > "$work/$runtime/DEBIAN/shlibs"
echo "activate-noawait ldconfig" > "$work/$runtime/DEBIAN/triggers"
# The lintian overrides of each package, with their reasons.
for p in "$runtime" libkp120-dev kp120; do
  f="$src/tools/debian/${p/$runtime/libkp120}.lintian-overrides"
  [ -f "$f" ] || continue
  install -D -m 0644 "$f" "$work/$p/usr/share/lintian/overrides/$p"
  chmod 0755 "$work/$p/usr/share/lintian" "$work/$p/usr/share/lintian/overrides"
done

control "$runtime" libs same "$(shlibdeps "$runtime")" \
  "standard-function component of a 4GL bytecode VM" \
  "The module libkp120std.so.$major that a 4GL bytecode virtual machine loads with dlopen: 381 functions (dates and masks, currency, files, INI files, saved parameters, the registry, encryption, compression, checksums, encodings, regular expressions, processes, the clipboard, memory zones and device functions) with French and English names, 441 constants and 45 variables. The package also holds libkp120host, the reference host that plays the virtual machine for C++ programs, and libkp120regtool, which reads and writes the registry database for the kp120 command."
control libkp120-dev libdevel same "$runtime (= $version)" \
  "standard-function component of a 4GL bytecode VM - development files" \
  "The C headers a virtual machine needs to load the kp120 component (kp120/component.h, kp120/types.h, kp120/vm.h), the C++20 header of the reference host, the CMake package (kp120::headers, kp120::host, KP120_MODULE_PATH) and the pkg-config files kp120 and kp120-host. The guide for virtual-machine authors, the reference of the provided functions and a minimal virtual machine in C are in /usr/share/doc/libkp120-dev."
control kp120 devel foreign "$(shlibdeps kp120)" \
  "call the functions of the kp120 component from Lua" \
  "kp120 runs Lua 5.4 scripts and an interactive prompt over the reference host of the kp120 standard-function component: kp.NAME(...) calls any function by its French or English name. It also describes every function (parameters, purpose, failure value, error identifiers) and reads and writes the registry database."

for p in "$runtime" libkp120-dev kp120; do
  dpkg-deb --root-owner-group -Zxz --build "$work/$p" "$out/${p}_${version}_${arch}.deb" > /dev/null
  echo "$out/${p}_${version}_${arch}.deb"
done
