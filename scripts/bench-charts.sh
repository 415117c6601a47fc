#!/usr/bin/env bash
# Draws one PNG chart per benchmark family from the CSV of scripts/bench.sh:
# throughput (GB/s, bytes read plus written, median of the repetitions) of
# each build on one thread beside the plain loop and memcpy, one group of
# bars per size (the thread counts' speed-ups are in bench.sh's tables).
#   scripts/bench-charts.sh RESULTS.csv OUTPUT_DIRECTORY
# Needs gnuplot (scripts/setup.sh charts). The stub overhead and the
# streaming-store comparison are no family of builds and get no chart.
set -euo pipefail
csv=$1 out=$2
command -v gnuplot > /dev/null || { echo "bench-charts: gnuplot is missing: run scripts/setup.sh charts" >&2; exit 1; }
mkdir -p "$out"
data=$(mktemp -d); trap 'rm -rf "$data"' EXIT

# One table per family, data/<family>.dat: a row per size, a column per
# variant measured in that family, in the order k0..k5, plain, memcpy (a
# dash where one size lacks it).
awk -F, -v dir="$data" '
  /_median"?,/ {
    name = $1; gsub(/"/, "", name); sub(/_median$/, "", name); sub(/\/real_time$/, "", name)
    if (split(name, p, "/") != 3 || p[1] == "Stub" || p[1] ~ /_kernels$/) next
    family = p[1]; variant = p[2]; size = p[3]
    if (!(family in seen)) { seen[family] = 1; families[++nf] = family }
    if (!((family, size) in hasSize)) { hasSize[family, size] = 1; sizes[family] = sizes[family] " " size }
    rate[family, variant, size] = $6 / 1e9
    measured[family, variant] = 1
  }
  END {
    nv = split("k0 k1 k2 k3 k4 k5 plain memcpy", variants, " ")
    for (f = 1; f <= nf; ++f) {
      family = families[f]; file = dir "/" family ".dat"
      line = "size"
      for (v = 1; v <= nv; ++v) if ((family, variants[v]) in measured) line = line " " variants[v]
      print line > file
      ns = split(sizes[family], s, " ")
      # Smallest region first.
      for (i = 2; i <= ns; ++i) {
        x = s[i]; split(x, a, "x")
        for (j = i - 1; j >= 1; --j) { split(s[j], b, "x"); if (b[1] * b[2] <= a[1] * a[2]) break; s[j + 1] = s[j] }
        s[j + 1] = x
      }
      for (i = 1; i <= ns; ++i) {
        line = s[i]
        for (v = 1; v <= nv; ++v)
          if ((family, variants[v]) in measured)
            line = line " " (((family, variants[v], s[i]) in rate) ? rate[family, variants[v], s[i]] : "-")
        print line > file
      }
      close(file)
    }
  }' "$csv"

count=0
for table in "$data"/*.dat; do
  [ -e "$table" ] || break
  family=$(basename "$table" .dat)
  columns=$(head -n 1 "$table" | wc -w)
  gnuplot <<GNUPLOT
set terminal png size 1000,520 font ",11" noenhanced
set output "$out/$family.png"
set title "$family: throughput per build, bytes read + written (higher is better)"
set ylabel "GB/s"
set xlabel "region (width x height)"
set datafile missing "-"
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.85 border -1
set key outside right top vertical
set grid ytics
set yrange [0:*]
plot for [i=2:$columns] "$table" using i:xtic(1) title columnheader(i)
GNUPLOT
  count=$((count + 1))
done
[ $count -gt 0 ] || { echo "bench-charts: no benchmark family in $csv" >&2; exit 1; }
echo "bench-charts: $count chart(s) in $out"
