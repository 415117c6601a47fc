#!/bin/sh
# run_cpu_probe.sh CHECKER PROBE CPU [QEMU]
# Runs the probe on the emulated processor CPU (a qemu -cpu argument), or on
# this machine when CPU is "native", and checks its report.
set -eu
checker=$1 probe=$2 cpu=$3 qemu=${4:-}
out=$(mktemp); trap 'rm -f "$out"' EXIT
if [ "$cpu" = native ]; then
  "$probe" > "$out"
else
  "$qemu" -cpu "$cpu" "$probe" > "$out"
fi
"$checker" "$cpu" < "$out"
