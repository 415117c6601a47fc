#!/bin/sh
# run_cpu_probe.sh RUN CHECKER PROBE CPU [QEMU]
# Runs the probe on the emulated processor CPU (a qemu -cpu argument), or on
# this machine when CPU is "native", and checks its report. RUN runs an i386
# program of this build (natively, or under the emulator the build chose).
set -eu
run=$1 checker=$2 probe=$3 cpu=$4 qemu=${5:-}
out=$(mktemp); trap 'rm -f "$out"' EXIT
if [ "$cpu" = native ]; then
  "$run" "$probe" > "$out"
else
  "$qemu" -cpu "$cpu" "$probe" > "$out"
fi
"$run" "$checker" "$cpu" < "$out"
