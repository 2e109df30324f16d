#!/usr/bin/env bash
# Runs every benchmark binary of the build and prints, for each, the timings
# and the ratio lines it reports against its peers.
set -u
build=${1:-build}
status=0
for b in "$build"/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" --benchmark_min_time=0.2 --benchmark_counters_tabular=true || status=1
done
exit $status
