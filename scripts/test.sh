#!/usr/bin/env bash
# Sets up the machine, then builds and runs every test in three
# configurations: release (optimised, as shipped, including the generic
# build on an emulated processor without SSE), debug (-O0, where untagged
# inline functions would show up as weak symbols) and asan (address and
# undefined-behaviour sanitizers). Then each fuzz target for a short while,
# and, where i386 programs run natively, the layout, guard and thread cases
# of the release tests under valgrind's memcheck. On a machine that cannot
# run i386 programs the tests run under qemu-i386 (see README).
set -euo pipefail
cd "$(dirname "$0")/.."
# The tests also build and check the Debian packages and the interface.
bash scripts/setup.sh packaging abi fuzz
jobs=$(nproc)
notes=$(mktemp); trap 'rm -f "$notes"' EXIT
for preset in release debug asan; do
  echo "==== $preset"
  # The configure output is quiet but for lum's own notes, each said once.
  cmake --preset "$preset" | sed -n 's/^-- lum: //p' | while IFS= read -r note; do
    grep -qxF "$note" "$notes" || { echo "note: $note"; echo "$note" >> "$notes"; }
  done
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done

# Every fuzz target keeps building and running; scripts/fuzz.sh runs them longer.
echo "==== fuzz"
emulated=$(sed -n 's/^LUM_EMULATOR_IN_USE:INTERNAL=//p' build/release/CMakeCache.txt)
bash scripts/fuzz.sh "$([ -n "$emulated" ] && echo 8 || echo 20)"

echo "==== valgrind"
if [ -n "$emulated" ]; then
  echo "valgrind: skipped, i386 programs run under an emulator here (valgrind runs them itself, natively only)"
else
  bash scripts/setup.sh valgrind
  # Not the exhaustive sweeps: a few minutes under memcheck. Memcheck runs the
  # program on its own model of the processor, which keeps no x87 tag word and
  # raises no MXCSR exception flags (LUM_MEMCHECK tells the harness not to read
  # the tag word), so the conversions, which mend NaNs where their row raised
  # the invalid flag, are checked for memory only through the filters that use
  # them; and one hostile case reads an inaccessible window on purpose.
  LUM_MEMCHECK=1 valgrind --error-exitcode=1 --leak-check=no --quiet build/release/tests/lum_tests --gtest_brief=1 \
    --gtest_filter='*Harness8u*:*Harness32f*:HostileSizes.*:*FormulaAndWindow*:*ThreadsAndBands*:-HostileSizes.AKernelWhoseScratchWouldWrapIsNeverAskedFor'
fi
