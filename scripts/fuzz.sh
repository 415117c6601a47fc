#!/usr/bin/env bash
# Builds the fuzz targets (preset fuzz: clang, libFuzzer, address and
# undefined-behaviour sanitizers) and runs each for SECONDS (default 60), from
# its committed seeds (tests/fuzz/corpus/<target>) and what earlier runs found
# (build/fuzz/corpus/<target>). Prints the executions each reached. At the
# first failed check or sanitizer finding it stops with the input kept in
# build/fuzz/findings; replay it with
#   build/fuzz/run-i386 build/fuzz/tests/fuzz/fuzz_<target> <input>
#   scripts/fuzz.sh [seconds] [target...]     targets: mul div absDiff fill filter convert
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -gt 0 ] && shift
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(mul div absDiff fill filter convert)

bash scripts/setup.sh fuzz
cmake --preset fuzz | sed -n 's/^-- lum: /note: /p'
cmake --build --preset fuzz -j "$(nproc)"

extra=()
if [ -n "$(sed -n 's/^LUM_EMULATOR_IN_USE:INTERNAL=//p' build/fuzz/CMakeCache.txt)" ]; then
  # The emulator does not keep a program's SSE registers across a signal
  # handler, and libFuzzer's per-input timer is a signal: without it a hung
  # input is ended by the overall limit below instead.
  extra+=(-timeout=0)
  echo "note: under an emulator executions are some hundred times slower than natively"
fi
mkdir -p build/fuzz/findings
status=0
for t in "${targets[@]}"; do
  corpus=build/fuzz/corpus/$t log=build/fuzz/fuzz_$t.log
  mkdir -p "$corpus"
  set +e
  timeout -s KILL $((seconds + 300)) build/fuzz/run-i386 build/fuzz/tests/fuzz/fuzz_$t \
    -max_total_time="$seconds" -detect_leaks=0 -print_final_stats=1 "${extra[@]}" \
    -artifact_prefix="build/fuzz/findings/$t-" "$corpus" "tests/fuzz/corpus/$t" > "$log" 2>&1
  result=$?
  set -e
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  echo "fuzz_$t: ${runs:-?} executions in ${seconds} s, corpus $(ls "$corpus" | wc -l) inputs"
  if [ $result -ne 0 ]; then
    grep -v '^INFO\|^#[0-9]\|NEW_FUNC' "$log" | head -40
    echo "fuzz_$t: FAILED (exit $result); the input is in build/fuzz/findings, the log in $log"
    status=1
    break
  fi
done
exit $status
