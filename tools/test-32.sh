#!/usr/bin/env bash
# Builds the component, the reference host, kp120 and the whole test suite
# for 32-bit x86 (cmake/i386-linux-gnu.cmake: gcc -m32 and Debian's :i386
# libraries) and runs the tests there.  Benchmarks and fuzz targets (their
# corpus replays included) are not built, nor debug information: the pass
# stays short enough for `make test` on two cores.
#
#   tools/test-32.sh [build-dir]        (default build-32)
set -euo pipefail

cd "$(dirname "$0")/.."
BUILD=${1:-build-32}
JOBS=${JOBS:-$(nproc)}

if [ ! -f "$BUILD/CMakeCache.txt" ]; then
    cmake -S . -B "$BUILD" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/i386-linux-gnu.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
        -DKP120_BENCH=OFF -DKP120_FUZZ=OFF -DKP120_FUZZ_REPLAY=OFF \
        -DKP120_TESTS=ON
fi
cmake --build "$BUILD" -j "$JOBS"
cd "$BUILD"
ctest --output-on-failure -j "$JOBS"
