#!/usr/bin/env bash
# Builds the release preset and runs the benchmarks, then prints the medians
# of the repetitions as tables: per kernel and size, the SSE4.1 build (k5)
# against the plain -O3 SSE4.1 loop, memcpy of the same bytes and the
# generic build, and its speed-up on the processor count against one
# thread beside the plain loop's (its rows shared by an OpenMP loop); the
# speed-up of every build that shares work among threads; the stubs against
# direct calls. Then draws a PNG chart per family
# (scripts/bench-charts.sh) into build/release/bench-charts/.
#   scripts/bench.sh [REPETITIONS] [BENCHMARK_FILTER] [MIN_TIME_SECONDS]
# Repetitions run interleaved in random order, so that a burst of load on a
# shared machine touches many benchmarks a little rather than one a lot.
# The full run, 5 repetitions of 0.05 s at least each, takes about 10
# minutes on a 2-processor machine.
set -euo pipefail
cd "$(dirname "$0")/.."
reps=${1:-5}
filter=${2:-.}
minTime=${3:-0.05}
[ "$reps" -ge 2 ] || { echo "bench: the tables are medians: give 2 repetitions or more" >&2; exit 2; }
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
loadBefore=$(cut -d' ' -f1-3 /proc/loadavg)
build/release/bench/lum_bench --benchmark_filter="$filter" --benchmark_repetitions="$reps" \
  --benchmark_min_time="$minTime" --benchmark_enable_random_interleaving=true \
  --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null > "$out"
echo "medians of $reps runs of at least $minTime s (raw figures: $out)"
echo "load average before: $loadBefore, after: $(cut -d' ' -f1-3 /proc/loadavg) (where other processes keep the"
echo "processors busy, a region's threads wait for them and the thread speed-ups mean little)"
# The medians by kernel, then size (pixels), then variant: interleaving left them in random order.
awk -F, '/_median"?,/ { n = $1; gsub(/"/, "", n); split(n, p, "/"); split(p[3], s, "x")
                        printf "%s %012d %s\t%s\n", p[1], s[1] * s[2], p[2], $0 }' "$out" | sort | cut -f2- |
awk -F, '
  /_median"?,/ {
    name = $1; gsub(/"/, "", name); sub(/_median$/, "", name); sub(/\/real_time$/, "", name)
    n = split(name, p, "/")
    group = p[1] "/" (n >= 3 ? p[3] : ""); variant = p[2]
    if (p[1] == "Stub") { group = "Stub/" p[2]; variant = p[3] }
    t = $3; unit = $5; bps = $6
    if (unit == "ms") t *= 1e6; else if (unit == "us") t *= 1e3; else if (unit == "s") t *= 1e9
    if (!(group in seen)) { seen[group] = 1; order[++ng] = group }
    key = group SUBSEP variant
    time[key] = t; rate[key] = bps
    if (variant ~ /^k[0-5]_[0-9]+threads$/) { threaded[group] = 1; procs = variant; sub(/^k[0-5]_/, "", procs) }
  }
  function ratio(k, ref) { return (ref in rate) && rate[ref] > 0 ? sprintf("%9.2f", rate[k] / rate[ref]) : sprintf("%9s", "-") }
  function speedupOf(one, many) {
    return (one in time) && (many in time) && time[many] > 0 ? time[one] / time[many] : -1
  }
  function speedup(g, b) { return speedupOf(g SUBSEP "k" b, g SUBSEP "k" b "_" procs) }
  END {
    printf "\nk5 per kernel and size (threads: k5 on %s against one thread; \"<\" marks a speed-up below 0.95;\n", procs == "" ? "-" : procs
    printf "plain thr: the same for the plain loop, its rows shared by an OpenMP loop)\n"
    printf "  %-34s %-10s %12s %8s %9s %9s %9s %8s %9s\n", "kernel", "size", "k5 ns", "GB/s", "x plain", "x memcpy", "x k0", "threads", "plain thr"
    slow = 0
    for (i = 1; i <= ng; ++i) {
      g = order[i]
      if (g ~ /^Stub\// || !((g SUBSEP "k5") in time)) continue
      split(g, q, "/"); k = g SUBSEP "k5"
      printf "  %-34s %-10s %12.0f %8.2f %s %s %s", q[1], q[2], time[k], rate[k] / 1e9, ratio(k, g SUBSEP "plain"), ratio(k, g SUBSEP "memcpy"), ratio(k, g SUBSEP "k0")
      s = speedup(g, 5)
      if (s < 0) printf " %8s  ", "-"; else { printf " %8.2f%s", s, s < 0.95 ? " <" : "  "; slow += s < 0.95 }
      s = speedupOf(g SUBSEP "plain", g SUBSEP "plain_" procs)
      if (s < 0) printf " %7s\n", "-"; else printf " %7.2f\n", s
    }
    header = 0
    for (i = 1; i <= ng; ++i) {
      g = order[i]
      if (!(g in threaded)) continue
      if (!header) {
        printf "\nspeed-up on %s against one thread, every build that shares work (\"<\": below 0.95)\n", procs
        printf "  %-34s %-10s %7s %7s %7s %7s %7s %7s\n", "kernel", "size", "k0", "k1", "k2", "k3", "k4", "k5"; header = 1
      }
      split(g, q, "/"); printf "  %-34s %-10s", q[1], q[2]
      for (b = 0; b <= 5; ++b) {
        s = speedup(g, b)
        if (s < 0) printf " %7s", "-"; else printf " %5.2f%-2s", s, s < 0.95 ? " <" : ""
        if (b != 5) slow += s >= 0 && s < 0.95
      }
      printf "\n"
    }
    if (header) printf "  speed-ups below 0.95: %d\n", slow
    header = 0
    for (i = 1; i <= ng; ++i) {
      g = order[i]
      if (!((g SUBSEP "cached") in time) || !((g SUBSEP "streaming") in time)) continue
      if (!header) { printf "\nthe float absolute difference kernels of k5 (same region)\n  %-34s %-10s %12s %12s\n", "", "size", "cached ns", "streaming ns"; header = 1 }
      split(g, q, "/"); printf "  %-34s %-10s %12.0f %12.0f\n", q[1], q[2], time[g SUBSEP "cached"], time[g SUBSEP "streaming"]
    }
    header = 0
    for (i = 1; i <= ng; ++i) {
      g = order[i]
      if (g !~ /^Stub\//) continue
      if (!header) { printf "\nstub overhead (1x1 call)\n  %-6s %10s %10s %8s\n", "build", "stub ns", "direct ns", "ratio"; header = 1 }
      s = time[g SUBSEP "stub"]; d = time[g SUBSEP "direct"]
      printf "  %-6s %10.2f %10.2f %8.3f\n", substr(g, 6), s, d, s / d
    }
  }'
echo
bash scripts/bench-charts.sh "$out" build/release/bench-charts
