#!/usr/bin/env bash
# Builds the release preset and runs the benchmarks, then prints the medians
# as ratio tables: each build against the plain -O3 SSE4.1 loop, memcpy of
# the same bytes and the generic build; the stubs against direct calls.
# Then draws a PNG chart per family (scripts/bench-charts.sh) into
# build/release/bench-charts/.
#   scripts/bench.sh [REPETITIONS] [BENCHMARK_FILTER]
set -euo pipefail
cd "$(dirname "$0")/.."
reps=${1:-5}
filter=${2:-.}
bash scripts/setup.sh charts
cmake --preset release > /dev/null
emulator=$(sed -n 's/^LUM_EMULATOR_IN_USE:INTERNAL=//p' build/release/CMakeCache.txt)
if [ -n "$emulator" ]; then
  echo "bench: i386 programs run under an emulator here ($emulator); its times say" >&2
  echo "bench: nothing about speed. Run the benchmarks on a machine that runs them natively." >&2
  exit 1
fi
cmake --build --preset release --target lum_bench > /dev/null
out=build/release/bench-results.csv
build/release/bench/lum_bench --benchmark_filter="$filter" --benchmark_repetitions="$reps" \
  --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null > "$out"
echo "medians of $reps runs (raw figures: $out)"
awk -F, '
  /_median"?,/ {
    name = $1; gsub(/"/, "", name); sub(/_median$/, "", name)
    n = split(name, p, "/")
    group = p[1] "/" (n >= 3 ? p[3] : ""); variant = p[2]
    if (p[1] == "Stub") { group = "Stub/" p[2]; variant = p[3] }
    t = $3; unit = $5; bps = $6
    if (unit == "ms") t *= 1e6; else if (unit == "us") t *= 1e3; else if (unit == "s") t *= 1e9
    if (!(group in seen)) { seen[group] = 1; order[++ng] = group }
    key = group SUBSEP variant
    time[key] = t; rate[key] = bps
    if (!(key in listed)) { listed[key] = 1; vars[group] = vars[group] " " variant }
  }
  END {
    for (i = 1; i <= ng; ++i) {
      g = order[i]
      if (g ~ /^Stub\//) continue
      printf "\n%s\n", g
      printf "  %-8s %12s %10s %9s %9s %9s\n", "variant", "ns", "GB/s", "x plain", "x memcpy", "x k0"
      m = split(vars[g], v, " ")
      for (j = 1; j <= m; ++j) {
        k = g SUBSEP v[j]
        printf "  %-8s %12.0f %10.2f", v[j], time[k], rate[k] / 1e9
        printf (g SUBSEP "plain") in rate ? " %9.2f" : " %9s", (g SUBSEP "plain") in rate ? rate[k] / rate[g SUBSEP "plain"] : "-"
        printf (g SUBSEP "memcpy") in rate ? " %9.2f" : " %9s", (g SUBSEP "memcpy") in rate ? rate[k] / rate[g SUBSEP "memcpy"] : "-"
        printf (g SUBSEP "k0") in rate ? " %9.2f\n" : " %9s\n", (g SUBSEP "k0") in rate ? rate[k] / rate[g SUBSEP "k0"] : "-"
      }
    }
    header = 0
    for (i = 1; i <= ng; ++i) {
      g = order[i]
      if (g !~ /^Stub\//) continue
      if (!header) { printf "\nstub overhead (1x1 call)\n  %-6s %10s %10s %8s\n", "build", "stub ns", "direct ns", "ratio"; header = 1 }
      s = time[g SUBSEP "stub"]; d = time[g SUBSEP "direct"]
      printf "  %-6s %10.2f %10.2f %8.3f\n", substr(g, 6), s, d, s / d
    }
  }' "$out"
echo
bash scripts/bench-charts.sh "$out" build/release/bench-charts
