#!/usr/bin/env bash
# Sets up the machine, then builds and runs every test in three
# configurations: release (optimised, as shipped, including the generic
# build on an emulated processor without SSE), debug (-O0, where untagged
# inline functions would show up as weak symbols) and asan (address and
# undefined-behaviour sanitizers). On a machine that cannot run i386
# programs the tests run under qemu-i386 (see README).
set -euo pipefail
cd "$(dirname "$0")/.."
# The tests also build and check the Debian packages and the interface.
bash scripts/setup.sh packaging abi
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
