#!/usr/bin/env bash
# Sets up the machine, then builds and runs every test in three
# configurations: release (optimised, as shipped, including the generic
# build on an emulated processor without SSE), debug (-O0, where untagged
# inline functions would show up as weak symbols) and asan (address and
# undefined-behaviour sanitizers).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)
for preset in release debug asan; do
  echo "==== $preset"
  cmake --preset "$preset" > /dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
