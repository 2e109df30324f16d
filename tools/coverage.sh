#!/usr/bin/env bash
# Builds with gcc's coverage instrumentation, runs the test suite and prints
# line and branch coverage per folder of src/.
#
#   tools/coverage.sh [build-dir]        (default build-cov)
#
# The counts of a run start from zero; the per-file report is left in
# <build-dir>/coverage.txt and the summary in <build-dir>/coverage.json.
# Branches that only exist for exceptions thrown by the standard library, and
# branches the compiler proves unreachable, are not counted.
set -euo pipefail

cd "$(dirname "$0")/.."
BUILD=${1:-build-cov}
JOBS=${JOBS:-$(nproc)}
# ccache's base directory makes the compiler see relative source names, which
# gcov cannot resolve from the object directory: this build keeps them absolute.
unset CCACHE_BASEDIR

command -v gcovr >/dev/null || { echo "coverage: gcovr not found (tools/deps.sh coverage installs it)" >&2; exit 1; }

tools/configure.sh "$BUILD" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Debug \
        -DKP120_COVERAGE=ON -DKP120_BENCH=OFF -DKP120_FUZZ=OFF -DKP120_TESTS=ON >/dev/null
cmake --build "$BUILD" -j "$JOBS"
find "$BUILD" -name '*.gcda' -delete
# The suite's verdict is reported, but coverage is printed either way.
status=0
(cd "$BUILD" && ctest -j "$JOBS" --output-on-failure) || status=$?

gcovr --root . --object-directory "$BUILD" --filter 'src/' \
    --exclude-throw-branches --exclude-unreachable-branches --gcov-ignore-parse-errors \
    --json-summary "$BUILD/coverage.json" --txt "$BUILD/coverage.txt" -j "$JOBS" >/dev/null

python3 - "$BUILD/coverage.json" <<'EOF'
import json, sys
from collections import defaultdict

data = json.load(open(sys.argv[1]))
folders = defaultdict(lambda: [0, 0, 0, 0])
for f in data["files"]:
    parts = f["filename"].split("/")
    folder = "/".join(parts[:2]) if len(parts) > 2 else parts[0]
    acc = folders[folder]
    acc[0] += f["line_covered"]
    acc[1] += f["line_total"]
    acc[2] += f["branch_covered"]
    acc[3] += f["branch_total"]

def pct(a, b):
    return f"{100.0 * a / b:6.1f}%" if b else "     -"

print(f"{'folder':<20} {'lines':>18} {'':>7} {'branches':>18} {'':>7}")
total = [0, 0, 0, 0]
for name in sorted(folders):
    a = folders[name]
    total = [x + y for x, y in zip(total, a)]
    print(f"{name:<20} {a[0]:>8} / {a[1]:<7} {pct(a[0], a[1])} {a[2]:>8} / {a[3]:<7} {pct(a[2], a[3])}")
print(f"{'src (all)':<20} {total[0]:>8} / {total[1]:<7} {pct(total[0], total[1])} "
      f"{total[2]:>8} / {total[3]:<7} {pct(total[2], total[3])}")
EOF
if [ $status -ne 0 ]; then
    echo "coverage: some tests failed (ctest exit $status)" >&2
fi
exit $status
