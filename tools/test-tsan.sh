#!/usr/bin/env bash
# Runs the whole test suite again in a build made with clang's
# ThreadSanitizer, and fails on any report.
#
#   tools/test-tsan.sh [build-dir]        (default build-tsan)
#
# The module is a shared library loaded with dlopen by the reference host.
# Programs link the static TSan runtime (clang 14's shared one crashes at
# start on this kernel, even for an empty program) and export its symbols;
# the module is linked without --no-undefined and takes them from the
# program that loads it, so both share one runtime and one view of the
# threads.  tools/tsan.supp lists what is suppressed (third-party libraries
# only, each line with its reason).
set -euo pipefail

cd "$(dirname "$0")/.."
ROOT=$PWD
BUILD=${1:-build-tsan}
JOBS=${JOBS:-$(nproc)}
CC=${CC_SANITIZE:-clang}
CXX=${CXX_SANITIZE:-clang++}

if ! command -v "$CXX" >/dev/null; then
    echo "test-tsan: $CXX not found (tools/deps.sh installs clang)" >&2
    exit 1
fi

if [ ! -f "$BUILD/CMakeCache.txt" ]; then
    cmake -S . -B "$BUILD" \
        -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_C_FLAGS="-fsanitize=thread" -DCMAKE_CXX_FLAGS="-fsanitize=thread" \
        -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
        -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
        -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" -DKP120_ALLOW_UNDEFINED=ON \
        -DKP120_SANITIZE=OFF -DKP120_BENCH=OFF -DKP120_FUZZ=OFF -DKP120_TESTS=ON
fi
cmake --build "$BUILD" -j "$JOBS"

# Any report ends the process with a failure.  KP120_TSAN tells the tests
# that run programs of their own (tests/lua) that they run under it.
export TSAN_OPTIONS="halt_on_error=1:exitcode=66:second_deadlock_stack=1:suppressions=$ROOT/tools/tsan.supp"
export KP120_TSAN=1
cd "$BUILD"
ctest --output-on-failure -j "$JOBS"
