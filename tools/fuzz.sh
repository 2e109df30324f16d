#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ and runs each for a while.
#
#   tools/fuzz.sh [target...]         run the targets (default: all of fuzz/*.cpp)
#   tools/fuzz.sh repro FILE...       run a saved input again (target from its folder)
#
# Environment: FUZZ_SECONDS per target (default 60), BUILD_FUZZ (default
# build-fuzz), JOBS.
#
# Each target starts from its seed corpus fuzz/corpus/<target>/ (kept in
# git) and from its working corpus build-fuzz/corpus/<target>/ (what earlier
# runs found).  Inputs that crash, leak, time out or run out of memory are
# saved as fuzz/crashes/<target>/<kind>-<sha1>, and
#   tools/fuzz.sh repro fuzz/crashes/<target>/<kind>-<sha1>
# replays one.  The build uses AddressSanitizer and UndefinedBehaviorSanitizer
# with libFuzzer's coverage on the module as well as on the targets.
set -euo pipefail

cd "$(dirname "$0")/.."
ROOT=$PWD
BUILD=${BUILD_FUZZ:-build-fuzz}
SECONDS_EACH=${FUZZ_SECONDS:-60}
JOBS=${JOBS:-$(nproc)}
CC=${CC_FUZZ:-clang}
CXX=${CXX_FUZZ:-clang++}

all_targets() {
    for f in fuzz/*.cpp; do basename "$f" .cpp; done
}

configure() {
    if ! command -v "$CXX" >/dev/null; then
        echo "fuzz: $CXX not found (tools/deps.sh fuzz installs clang)" >&2
        exit 1
    fi
    local rtdir link
    rtdir=$("$CXX" --print-runtime-dir)
    # One shared sanitizer runtime for the targets and the module they load.
    link="-shared-libsan -Wl,-rpath,$rtdir"
    tools/configure.sh "$BUILD" \
            -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
            -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DCMAKE_C_FLAGS="-fsanitize=fuzzer-no-link" -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link" \
            -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
            -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
            -DCMAKE_EXE_LINKER_FLAGS="$link" -DCMAKE_SHARED_LINKER_FLAGS="$link" \
            -DKP120_SANITIZE=ON -DKP120_FUZZ=ON -DKP120_TESTS=OFF -DKP120_BENCH=OFF >/dev/null
}

build() {
    local targets=(kp120std kp120host)
    for t in "$@"; do targets+=("fuzz_$t"); done
    cmake --build "$BUILD" -j "$JOBS" --target "${targets[@]}"
}

export ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:abort_on_error=0"
# libFuzzer puts libstdc++ ahead of the shared sanitizer runtime in the
# targets' libraries; preloading the runtime puts it first again.
asan_runtime() { "$CXX" -print-file-name=libclang_rt.asan-x86_64.so; }
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export KP120_COMPONENT="$ROOT/$BUILD/libkp120std.so"

if [ "${1:-}" = repro ]; then
    shift
    [ $# -gt 0 ] || { echo "usage: tools/fuzz.sh repro FILE..." >&2; exit 2; }
    targets=()
    for f in "$@"; do targets+=("$(basename "$(dirname "$f")")"); done
    configure
    build $(printf '%s\n' "${targets[@]}" | sort -u)
    rc=0
    for f in "$@"; do
        t=$(basename "$(dirname "$f")")
        LD_PRELOAD=$(asan_runtime) "$BUILD/fuzz_$t" "$(realpath "$f")" || rc=1
    done
    exit $rc
fi

if [ $# -gt 0 ]; then targets=("$@"); else mapfile -t targets < <(all_targets); fi
configure
build "${targets[@]}"

failed=()
summary=()
for t in "${targets[@]}"; do
    # Absolute paths: a target may change its current directory (generic_abi does).
    seeds="$ROOT/fuzz/corpus/$t"
    work="$ROOT/$BUILD/corpus/$t"
    crashes="$ROOT/fuzz/crashes/$t"
    mkdir -p "$seeds" "$work" "$crashes"
    log="$BUILD/fuzz-$t.log"
    echo "== $t: $SECONDS_EACH s (log $log)"
    set +e
    # Targets that take any pattern or any call are held to what one call of
    # the component may use: 1 GB and 5 s.
    # AddressSanitizer keeps freed blocks in a quarantine (256 MB by default)
    # and then in per-size free lists it never gives back, so after a few
    # hundred thousand inputs of varied sizes its own bookkeeping alone passes
    # 1 GB (a 60 s regex_pattern run reached 1,071 MB; with no quarantine the
    # same run stayed at 125 MB).  A 32 MB quarantine leaves the limit
    # measuring what the component holds.
    asan=$ASAN_OPTIONS
    case $t in
    generic_abi | regex_pattern)
        limits=(-timeout=5 -rss_limit_mb=1024)
        asan="$ASAN_OPTIONS:quarantine_size_mb=32"
        ;;
    *) limits=(-timeout=25 -rss_limit_mb=2048) ;;
    esac
    ASAN_OPTIONS=$asan LD_PRELOAD=$(asan_runtime) "$BUILD/fuzz_$t" -max_total_time="$SECONDS_EACH" "${limits[@]}" -handle_xfsz=0 \
        -print_final_stats=1 -artifact_prefix="$crashes/" "$work" "$seeds" >"$log" 2>&1
    rc=$?
    set -e
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 || true)
    if [ $rc -eq 0 ]; then
        summary+=("$t: ${execs:-?} executions, ${cov:-cov: ?}, no finding")
    else
        failed+=("$t")
        summary+=("$t: FINDING after ${execs:-?} executions (exit $rc)")
        grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$log" | head -5 || true
        grep -E 'Test unit written to' "$log" | sed "s|.*written to $ROOT/|  reproduce: tools/fuzz.sh repro |" || true
    fi
done

echo
printf '%s\n' "${summary[@]}"
if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz: findings in: ${failed[*]} (inputs under fuzz/crashes/)"
    exit 1
fi
