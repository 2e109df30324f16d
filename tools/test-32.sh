#!/usr/bin/env bash
# Builds the component, the reference host, kp120 and the whole test suite
# for 32-bit x86 and runs the tests there: the i686 cross compiler against
# a Debian i386 sysroot (tools/sysroot.sh, build-sysroot-i386), the
# programs run natively through the sysroot's loader
# (cmake/i386-linux-gnu.cmake).  Benchmarks and fuzz targets (their corpus
# replays included) are not built, nor debug information: the pass stays
# short enough for `make test` on two cores.
#
#   tools/test-32.sh [build-dir]        (default build-32)
set -euo pipefail

cd "$(dirname "$0")/.."
BUILD=${1:-build-32}
JOBS=${JOBS:-$(nproc)}

if ! command -v i686-linux-gnu-g++ >/dev/null; then
    echo "test-32: i686-linux-gnu-g++ is missing: the 32-bit x86 pass cannot be built (tools/deps.sh cross-i386)" >&2
    exit 1
fi
if ! tools/sysroot.sh i386 build-sysroot-i386; then
    echo "test-32: FAILED: the 32-bit x86 pass has no i386 libraries (above: why, and what to do)" >&2
    exit 1
fi
tools/configure.sh "$BUILD" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/i386-linux-gnu.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DKP120_BENCH=OFF -DKP120_FUZZ=OFF -DKP120_FUZZ_REPLAY=OFF -DKP120_TESTS=ON
cmake --build "$BUILD" -j "$JOBS"
cd "$BUILD"
ctest --output-on-failure -j "$JOBS"
