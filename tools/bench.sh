#!/usr/bin/env bash
# Runs every benchmark binary of the build, then prints one table of every
# measure taken beside a peer (the RATIO lines of bench/ratio.h): what,
# ours, peer, ratio, target, met or not; and writes the same as JSON to
# <build>/bench.json so that runs can be compared.
set -u
build=${1:-build}
status=0
lines=$(mktemp)
trap 'rm -f "$lines"' EXIT
for b in "$build"/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" --benchmark_min_time=0.2 --benchmark_counters_tabular=true | tee -a "$lines"
  [ "${PIPESTATUS[0]}" -eq 0 ] || status=1
done

# RATIO|what|ours|peer|ratio|value|op|target|unit
grep '^RATIO|' "$lines" | awk -F'|' -v json="$build/bench.json" '
function esc(s) { gsub(/\\/, "\\\\", s); gsub(/"/, "\\\"", s); return s }
{
  what = $2; ours = $3; peer = $4; ratio = $5; value = $6; op = $7; target = $8; unit = $9
  if (value == "-") met = "no peer"
  else if (op == ">=") met = (value + 0 >= target + 0) ? "met" : "NOT MET"
  else met = (value + 0 <= target + 0) ? "met" : "NOT MET"
  goal = op " " target (unit == "" ? "" : " " unit)
  n++
  W[n] = what; O[n] = ours; P[n] = peer; R[n] = ratio; G[n] = goal; M[n] = met
  V[n] = value; OP[n] = op; T[n] = target; U[n] = unit
}
END {
  printf "\n%-62s %-16s %-28s %7s %-12s %s\n", "measure", "ours", "peer", "ratio", "target", "met"
  for (i = 1; i <= n; i++)
    printf "%-62s %-16s %-28s %7s %-12s %s\n", W[i], O[i], P[i], R[i], G[i], M[i]
  printf "[\n" > json
  for (i = 1; i <= n; i++) {
    printf "  {\"what\": \"%s\", \"ours\": \"%s\", \"peer\": \"%s\", \"ratio\": %s, \"value\": %s, ", \
      esc(W[i]), esc(O[i]), esc(P[i]), (R[i] == "-" ? "null" : R[i]), (V[i] == "-" ? "null" : V[i]) > json
    printf "\"op\": \"%s\", \"target\": %s, \"unit\": \"%s\", \"met\": %s}%s\n", OP[i], T[i], esc(U[i]), \
      (M[i] == "met" ? "true" : "false"), (i < n ? "," : "") > json
  }
  printf "]\n" > json
  printf "\n(%d measures; written to %s)\n", n, json
}'
exit $status
