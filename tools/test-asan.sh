#!/usr/bin/env bash
# Runs the whole test suite again in a second build made with clang's
# AddressSanitizer and UndefinedBehaviorSanitizer, and fails on any report.
#
#   tools/test-asan.sh [build-dir]        (default build-asan)
#
# The module is a shared library loaded with dlopen by the reference host, so
# every binary uses the shared sanitizer runtime (-shared-libsan): the module
# then links against it and keeps its -Wl,--no-undefined check, and all
# binaries share one runtime.  Only the module, the host, the command and the
# test binaries are built (no benchmarks, no fuzzers).
set -euo pipefail

cd "$(dirname "$0")/.."
BUILD=${1:-build-asan}
JOBS=${JOBS:-$(nproc)}
CC=${CC_SANITIZE:-clang}
CXX=${CXX_SANITIZE:-clang++}

if ! command -v "$CXX" >/dev/null; then
    echo "test-asan: $CXX not found (tools/deps.sh test installs clang)" >&2
    exit 1
fi
rtdir=$("$CXX" --print-runtime-dir)
link="-shared-libsan -Wl,-rpath,$rtdir"

tools/configure.sh "$BUILD" \
        -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
        -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
        -DCMAKE_EXE_LINKER_FLAGS="$link" -DCMAKE_SHARED_LINKER_FLAGS="$link" \
        -DKP120_SANITIZE=ON -DKP120_BENCH=OFF -DKP120_FUZZ=OFF -DKP120_TESTS=ON
cmake --build "$BUILD" -j "$JOBS"

# Any report ends the process with a failure; leaks are reports too.
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=0:detect_leaks=1:check_initialization_order=1:strict_init_order=1:detect_stack_use_after_return=1:exitcode=23"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:exitcode=23"
export LSAN_OPTIONS="exitcode=23"
cd "$BUILD"
ctest --output-on-failure -j "$JOBS"
